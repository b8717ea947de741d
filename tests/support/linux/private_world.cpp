// SPDX-License-Identifier: MIT
// Part of every test program: the devices and claims of its process, and of those that it starts, are nobody else's.
#include <cstdlib>

#include "support/temp_tree.h"

namespace quillet::test {
namespace {

// Made before main, since the library reads the variable at its first look.
const class PrivateWorld {
  public:
    PrivateWorld() {
        m_Tree.Write("quillet/locks/made", "");
        // Whatever the umask, or the library would pass them over.
        for (const char* folder : {"quillet", "quillet/locks"}) {
            std::filesystem::permissions(m_Tree.Path(folder), std::filesystem::perms::owner_all);
        }
        setenv("XDG_RUNTIME_DIR", m_Tree.Path("").c_str(), 1);
    }

  private:
    const TempTree m_Tree;
} kWorld;

}  // namespace
}  // namespace quillet::test
