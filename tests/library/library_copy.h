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
    LoadedLibrary library{Copied(path)};
    decltype(&setLogLevel) setLog = library.Get<decltype(setLog)>("setLogLevel");
    decltype(&createScanner) create = library.Get<decltype(create)>("createScanner");
    decltype(&destoryScanner) destroy = library.Get<decltype(destroy)>("destoryScanner");
    decltype(&openScanner) open = library.Get<decltype(open)>("openScanner");
    decltype(&getBarCodeCacheCount) count = library.Get<decltype(count)>("getBarCodeCacheCount");

  private:
    static const std::filesystem::path& Copied(const std::filesystem::path& copy) {
        std::filesystem::copy_file(LoadedLibrary::PathOf(reinterpret_cast<void*>(&createScanner)), copy);
        return copy;
    }
};

}  // namespace quillet::test
