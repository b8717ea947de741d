// SPDX-License-Identifier: MIT
// A folder of its own for a test, removed with all that it holds.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "support/process.h"

namespace quillet::test {

class TempTree {
  public:
    TempTree() {
        static int made = 0;
        const std::string name = "quillet-test-" + std::to_string(ProcessId()) + "-";
        do {  // one of an earlier process of that number may still be there
            m_Root = std::filesystem::temp_directory_path() / (name + std::to_string(++made));
        } while (!std::filesystem::create_directory(m_Root));
        std::filesystem::permissions(m_Root, std::filesystem::perms::owner_all);  // as folders of devices have to be
    }
    ~TempTree() {
        if (ProcessId() != m_Maker) return;  // a child that a test has forked
        std::error_code ignored;
        std::filesystem::remove_all(m_Root, ignored);
    }
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    std::string Path(const std::string& name) const { return (m_Root / name).string(); }

    // Both make the folders on the way.
    std::string Write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((m_Root / name).parent_path());
        std::ofstream(m_Root / name, std::ios::binary) << content;
        return Path(name);
    }
    void Link(const std::string& name, const std::string& target) const {
        std::filesystem::create_directories((m_Root / name).parent_path());
        std::filesystem::create_symlink(target, m_Root / name);
    }

  private:
    const uint32_t m_Maker = ProcessId();
    std::filesystem::path m_Root;
};

}  // namespace quillet::test
