// SPDX-License-Identifier: MIT
// Runs a fuzz target once over every file of the folders given. Fails if there is none.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz_input.h"

namespace {

int Replay(const std::filesystem::path& folder) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::printf("%s: %zu bytes\n", entry.path().filename().string().c_str(), bytes.size());
        std::fflush(stdout);  // names the file that a crash ends at
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++files;
    }
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) files += Replay(argv[i]);
    if (files == 0) std::fputs("no corpus file was found\n", stderr);
    return files == 0 ? 1 : 0;
}
