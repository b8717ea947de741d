// SPDX-License-Identifier: MIT
// The two codings of binary data in text: every byte survives, and a group that is cut short is refused.
#include <stdexcept>
#include <string>

#include "foundation/text.h"
#include "fuzz_input.h"

using namespace quillet;

namespace {

void CheckMode(std::string_view bytes, BinaryConversion mode, size_t groupSize) {
    const std::string text = EncodeBinaryText(bytes, mode);
    fuzz::Require(text.size() == bytes.size() * groupSize);
    fuzz::Require(DecodeBinaryText(text, mode) == bytes);
    bool refused = false;
    try {
        fuzz::Require(DecodeBinaryText(bytes, mode).size() == bytes.size() / groupSize);
    } catch (const std::out_of_range&) {
        refused = true;
    }
    fuzz::Require(refused == (bytes.size() % groupSize != 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::ExactInput input(data, size);
    CheckMode(input.View(), BinaryConversion::None, 1);
    CheckMode(input.View(), BinaryConversion::Nibble, 2);
    CheckMode(input.View(), BinaryConversion::Decimal, 3);
    return 0;
}
