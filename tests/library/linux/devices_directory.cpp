#include "library/devices_directory.h"

#include <cstdlib>

#include "support/temp_tree.h"

namespace quillet::tests {
namespace {

// One for the process: the library reads the variable at its first look at the devices.
class RuntimeDirectory {
  public:
    RuntimeDirectory() { setenv("XDG_RUNTIME_DIR", m_Tree.Path("").c_str(), 1); }
    std::string Path(const std::string& name) const { return m_Tree.Path(name); }

  private:
    const test::TempTree m_Tree;
};

}  // namespace

std::string DevicesDirectory() {
    static const RuntimeDirectory directory;
    return directory.Path("quillet/devices");
}

}  // namespace quillet::tests
