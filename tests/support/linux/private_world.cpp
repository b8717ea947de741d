// SPDX-License-Identifier: MIT
// Part of every test program: the devices and claims of its process, and of those that it starts, are nobody else's.
#include <filesystem>
#include <stdlib.h>
#include <string>
#include <unistd.h>

namespace quillet::test {
namespace {

// Made before main, since the library reads the variable at its first look. Folders that others may write to, it passes
// over, whatever the umask.
class PrivateWorld {
  public:
    PrivateWorld() {
        if (mkdtemp(m_Root.data()) == nullptr) abort();
        for (const char* folder : {"/quillet", "/quillet/locks"}) {
            std::filesystem::create_directory(m_Root + folder);
            std::filesystem::permissions(m_Root + folder, std::filesystem::perms::owner_all);
        }
        setenv("XDG_RUNTIME_DIR", m_Root.c_str(), 1);
    }
    ~PrivateWorld() {
        if (getpid() != m_Maker) return;  // a child that a test has forked
        std::error_code ignored;
        std::filesystem::remove_all(m_Root, ignored);
    }
    PrivateWorld(const PrivateWorld&) = delete;
    PrivateWorld& operator=(const PrivateWorld&) = delete;

  private:
    const pid_t m_Maker = getpid();
    std::string m_Root = std::filesystem::temp_directory_path() / "quillet-world-XXXXXX";
};

const PrivateWorld kWorld;

}  // namespace
}  // namespace quillet::test
