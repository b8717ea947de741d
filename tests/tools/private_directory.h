// SPDX-License-Identifier: MIT
// A directory of a test's own that nobody else may write to, as directories of devices have to be.
#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace quillet::tools {

struct PrivateDirectory {
    PrivateDirectory() {
        std::filesystem::create_directory(path);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }
    ~PrivateDirectory() { std::filesystem::remove_all(path); }
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    const std::string path = ::testing::TempDir() + "quillet-scanner-test-" + std::to_string(std::random_device{}());
};

}  // namespace quillet::tools
