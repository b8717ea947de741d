// SPDX-License-Identifier: MIT
// The library once more, to be unloaded: what a test links itself never is.
#pragma once

#include <filesystem>
#include <string>

#include <quillet/quillet.h>

#include "support/process.h"
#include "support/temp_tree.h"

namespace quillet::test {

class LibraryCopy {
    const TempTree m_Tree;

  public:
    const std::filesystem::path path = m_Tree.Path("QuilletCopy.dll");
    LoadedLibrary loaded{Copied(path)};
    decltype(&setLogLevel) setLog = loaded.Get<decltype(setLog)>("setLogLevel");
    decltype(&createScanner) create = loaded.Get<decltype(create)>("createScanner");
    decltype(&destoryScanner) destroy = loaded.Get<decltype(destroy)>("destoryScanner");
    decltype(&openScanner) open = loaded.Get<decltype(open)>("openScanner");
    decltype(&getBarCodeCacheCount) count = loaded.Get<decltype(count)>("getBarCodeCacheCount");

  private:
    static const std::filesystem::path& Copied(const std::filesystem::path& copy) {
        std::filesystem::copy_file(LoadedLibrary::PathOf(reinterpret_cast<void*>(&createScanner)), copy);
        return copy;
    }
};

}  // namespace quillet::test
