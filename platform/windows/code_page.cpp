// SPDX-License-Identifier: MIT
// Conversion by the system's converter, through wide characters.
#include "platform/code_page.h"

#include <windows.h>
#include <limits>

namespace quillet::platform {
namespace {

constexpr UINT kGbk = 936;
constexpr size_t kMaxText = static_cast<size_t>(std::numeric_limits<int>::max());

// Empty on any byte that isn't of the code page.
std::wstring Widen(UINT codePage, const std::string& text) {
    const int size = static_cast<int>(text.size());
    const int needed = ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<size_t>(needed), L'\0');
    ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(), needed);
    return wide;
}

// Empty on any character that the code page hasn't got.
std::string Narrow(UINT codePage, const std::wstring& wide) {
    const bool isUtf8 = codePage == CP_UTF8;  // it has them all, and refuses to be asked
    const DWORD flags = isUtf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
    BOOL replaced = FALSE;
    BOOL* const asksForReplaced = isUtf8 ? nullptr : &replaced;
    const int size = static_cast<int>(wide.size());
    const int needed = ::WideCharToMultiByte(codePage, flags, wide.data(), size, nullptr, 0, nullptr, asksForReplaced);
    std::string text(static_cast<size_t>(needed), '\0');
    ::WideCharToMultiByte(codePage, flags, wide.data(), size, text.data(), needed, nullptr, asksForReplaced);
    return replaced ? std::string() : text;
}

std::string Convert(UINT to, UINT from, const std::string& text) noexcept try {
    if (text.empty() || text.size() > kMaxText) return {};
    const std::wstring wide = Widen(from, text);
    return wide.empty() ? std::string() : Narrow(to, wide);
} catch (...) {
    return {};
}

}  // namespace

std::string Cp936ToUtf8(const std::string& text) noexcept {
    return Convert(CP_UTF8, kGbk, text);
}

std::string Utf8ToCp936(const std::string& text) noexcept {
    return Convert(kGbk, CP_UTF8, text);
}

}  // namespace quillet::platform
