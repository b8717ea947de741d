// SPDX-License-Identifier: MIT
// Runs a fuzz target once over every file of the folders given. Fails if there is none.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_input.h"

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            const std::vector<uint8_t> bytes(text.begin(), text.end());  // no larger than it must be
            std::printf("%s: %zu bytes\n", entry.path().filename().string().c_str(), bytes.size());
            std::fflush(stdout);  // names the file that a crash ends at
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++files;
        }
    }
    if (files == 0) std::fputs("no corpus file was found\n", stderr);
    return files == 0 ? 1 : 0;
}
