// SPDX-License-Identifier: MIT
#include "protocol/symbology.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace quillet {
namespace {

constexpr int32_t kUnknownCode = 0;
constexpr int32_t kNone = -1;  // no scan data type

struct Symbology {
    int32_t code;
    std::string_view label;
    int32_t scanDataType;
};

// In order of code. The padding of the labels isn't uniform; dumps rely on it as it stands.
constexpr Symbology kSymbologies[] = {
    {0, "unknow\t\t\t\t\t\t", 0},
    {1, "Code 39\t\t\t\t\t", 108},
    {2, "Codabar\t\t\t\t\t", 107},
    {3, "Code 128\t\t\t\t\t", 110},
    {4, "Discrete (Standard) 2 of 5\t", 105},
    {5, "IATA\t\t\t\t\t\t", kNone},
    {6, "Interleaved 2 of 5\t\t\t", 106},
    {7, "Code 93\t\t\t\t\t", 109},
    {8, "UPC-A\t\t\t\t\t\t", 101},
    {9, "UPC-E0\t\t\t\t\t\t", 510},
    {10, "EAN-8\t\t\t\t\t\t", 103},
    {11, "EAN-13\t\t\t\t\t\t", 104},
    {12, "Code 11\t\t\t\t\t", kNone},
    {13, "Code 49\t\t\t\t\t", kNone},
    {14, "MSI\t\t\t\t\t\t", 515},
    {15, "EAN-128\t\t\t\t\t", 120},
    {16, "UPC-E1\t\t\t\t\t\t", 517},
    {17, "PDF-417\t\t\t\t\t", 201},
    {18, "Code 16K\t\t\t\t\t", kNone},
    {19, "Code 39 Full ASCII\t\t\t", 520},
    {20, "UPC-D\t\t\t\t\t\t", 521},
    {21, "Code 39 Trioptic\t\t\t", 522},
    {22, "Bookland\t\t\t\t\t", 523},
    {23, "Coupon Code\t\t\t\t", kNone},
    {24, "NW-7\t\t\t\t\t\t", kNone},
    {25, "ISBT-128\t\t\t\t\t", 526},
    {26, "Micro PDF\t\t\t\t\t", 207},
    {27, "DataMatrix\t\t\t\t\t", 203},
    {28, "QR Code\t\t\t\t\t", 204},
    {29, "Micro PDF CCA\t\t\t\t", kNone},
    {30, "PostNet US\t\t\t\t\t", 531},
    {31, "Planet Code\t\t\t\t", kNone},
    {32, "Code 32\t\t\t\t\t", 533},
    {33, "ISBT-128 Con\t\t\t\t", kNone},
    {34, "Japan Postal\t\t\t\t", kNone},
    {35, "Australian Postal\t\t\t", kNone},
    {36, "Dutch Postal\t\t\t\t", kNone},
    {37, "MaxiCode\t\t\t\t\t", 202},
    {38, "Canadian Postal\t\t\t", kNone},
    {39, "UK Postal\t\t\t\t\t", kNone},
    {40, "Macro PDF\t\t\t\t\t", 541},
    {41, "Macro QR\t\t\t\t\t", 542},
    {44, "Micro QR\t\t\t\t\t", 205},
    {45, "Aztec\t\t\t\t\t\t", 206},
    {46, "Aztec Rune\t\t\t\t\t", 547},
    {48, "GS1 DataBar-14\t\t\t\t", 131},
    {49, "GS1 DataBar Limited\t\t", 130},
    {50, "GS1 DataBar Expanded\t\t", 132},
    {52, "USPS 4CB\t\t\t\t\t", 553},
    {53, "UPU 4State\t\t\t\t\t", kNone},
    {54, "ISSN         \t\t\t\t", 555},
    {55, "Scanlet\t\t\t\t\t", kNone},
    {56, "CueCode\t\t\t\t\t", kNone},
    {57, "Matrix 2 of 5\t\t\t\t", 558},
    {72, "UPC-A + 2 Supplemental\t\t", 573},
    {73, "UPC-E0 + 2 Supplemental\t", 574},
    {74, "EAN-8 + 2 Supplemental\t\t", 575},
    {75, "EAN-13 + 2 Supplemental\t", 576},
    {80, "UPC-E1 + 2 Supplemental\t", 581},
    {81, "CCA EAN-128\t\t\t\t", kNone},
    {82, "CCA EAN-13\t\t\t\t\t", kNone},
    {83, "CCA EAN-8\t\t\t\t\t", kNone},
    {84, "CCA GS1 DataBar Expanded\t", kNone},
    {85, "CCA GS1 DataBar Limited\t", kNone},
    {86, "CCA GS1 DataBar-14\t\t\t", kNone},
    {87, "CCA UPC-A\t\t\t\t\t", kNone},
    {88, "CCA UPC-E\t\t\t\t\t", kNone},
    {89, "CCC EAN-128\t\t\t\t", kNone},
    {90, "TLC-39\t\t\t\t\t\t", 591},
    {97, "CCB EAN-128\t\t\t\t", kNone},
    {98, "CCB EAN-13\t\t\t\t\t", kNone},
    {99, "CCB EAN-8\t\t\t\t\t", kNone},
    {100, "CCB GS1 DataBar Expanded   ", kNone},
    {101, "CCB GS1 DataBar Limited    ", kNone},
    {102, "CCB GS1 DataBar-14         ", kNone},
    {103, "CCB UPC-A                  ", kNone},
    {104, "CCB UPC-E                  ", kNone},
    {105, "Signature Capture          ", kNone},
    {114, "Chinese 2 of 5\t\t\t\t", 615},
    {115, "Korean 3 of 5\t\t\t\t", 616},
    {136, "UPC-A + 5 supplemental\t\t", 637},
    {137, "UPC-E0 + 5 supplemental\t", 638},
    {138, "EAN-8 + 5 supplemental\t\t", 639},
    {139, "EAN-13 + 5 supplemental\t", 640},
    {144, "UPC-E1 + 5 Supplemental\t", 645},
    {154, "Macro Micro PDF\t\t\t", 655},
    {180, "GS1 Databar Coupon\t\t\t", kNone},
    {183, "Han Xin\t\t\t\t\t", 684},
};

static_assert(std::is_sorted(std::begin(kSymbologies), std::end(kSymbologies),
                             [](const Symbology& a, const Symbology& b) { return a.code < b.code; }));

const Symbology* FindSymbology(int32_t code) {
    const Symbology* const row = std::lower_bound(std::begin(kSymbologies), std::end(kSymbologies), code,
                                                  [](const Symbology& s, int32_t c) { return s.code < c; });
    return row != std::end(kSymbologies) && row->code == code ? row : nullptr;
}

}  // namespace

bool IsKnownCodeType(int32_t code) {
    return code != kUnknownCode && FindSymbology(code) != nullptr;
}

std::string_view CodeTypeName(int32_t code) {
    const Symbology* row = FindSymbology(code);
    return row != nullptr ? row->label : std::string_view{};
}

std::optional<int32_t> CodeTypeScanDataType(int32_t code) {
    const Symbology* row = FindSymbology(code);
    if (row == nullptr || row->scanDataType == kNone) return std::nullopt;
    return row->scanDataType;
}

}  // namespace quillet
