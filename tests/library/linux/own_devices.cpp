// SPDX-License-Identifier: MIT
#include "library/own_devices.h"

#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

#include "support/temp_tree.h"

namespace quillet::test {
namespace {

// One for the process: the library reads the variable at its first look at the devices.
class RuntimeDirectory {
  public:
    RuntimeDirectory() { setenv("XDG_RUNTIME_DIR", m_Tree.Path("").c_str(), 1); }
    std::string Path(const std::string& name) const { return m_Tree.Path(name); }

  private:
    const test::TempTree m_Tree;
};

constexpr int kFirstPort = 100;
constexpr int kPorts = 29;

// Locked for the life of the process.
bool LockPort(int port) {
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("quillet-test-port-" + std::to_string(getuid()) + "-" + std::to_string(port)))
                                 .string();
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file >= 0 && flock(file, LOCK_EX | LOCK_NB) == 0) return true;
    if (file >= 0) close(file);
    return false;
}

int LockAnyPort() {
    for (int i = 0; i < kPorts; ++i) {
        const int port = kFirstPort + (static_cast<int>(test::ProcessId()) + i) % kPorts;
        if (LockPort(port)) return port;
    }
    throw std::runtime_error("other test processes have all the ports");
}

}  // namespace

int OwnPort() {
    static const int port = LockAnyPort();
    return port;
}

std::string DevicesDirectory() {
    static const RuntimeDirectory directory;
    return directory.Path("quillet/devices");
}

}  // namespace quillet::test
