#include "platform/linux/linux_roots.h"

#include <cstdlib>
#include <unistd.h>

#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

std::string UserDirectory() {
    const char* runtime = ::secure_getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/') {
        return std::string(runtime) + "/quillet/devices";
    }
    return "/tmp/quillet-" + std::to_string(::geteuid()) + "/devices";
}

LinuxRoots ReadSystemRoots() {
    LinuxRoots roots;
    roots.registered = {"/run/quillet/devices", UserDirectory()};
    return roots;
}

}  // namespace

const LinuxRoots& SystemRoots() {
    static NoDestroy<LinuxRoots> roots(ReadSystemRoots());
    return roots.Get();
}

}  // namespace quillet::platform
