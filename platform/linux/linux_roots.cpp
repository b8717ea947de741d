// SPDX-License-Identifier: MIT
#include "platform/linux/linux_roots.h"

#include <cstdlib>
#include <unistd.h>

#include "platform/no_destroy.h"

namespace quillet::platform {
namespace {

std::string RuntimeDirectory() {
    const char* runtime = ::secure_getenv("XDG_RUNTIME_DIR");
    return runtime != nullptr && runtime[0] == '/' ? runtime : "";
}

std::string UserDirectory(const std::string& runtime) {
    return (runtime.empty() ? "/tmp/quillet-" + std::to_string(::geteuid()) : runtime + "/quillet") + "/devices";
}

LinuxRoots ReadSystemRoots() {
    LinuxRoots roots;
    roots.claims.runtime = RuntimeDirectory();
    roots.registered = {"/run/quillet/devices", UserDirectory(roots.claims.runtime)};
    return roots;
}

}  // namespace

const LinuxRoots& SystemRoots() {
    static NoDestroy<LinuxRoots> roots(ReadSystemRoots());
    return roots.Get();
}

}  // namespace quillet::platform
