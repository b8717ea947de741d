// SPDX-License-Identifier: MIT
// Conversion by the C library's converter.
#include "platform/code_page.h"

#include <array>
#include <cerrno>
#include <iconv.h>

namespace quillet::platform {
namespace {

class Converter {
  public:
    Converter(const char* to, const char* from) noexcept : m_Handle(::iconv_open(to, from)) {}
    ~Converter() {
        if (IsOpen()) ::iconv_close(m_Handle);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool IsOpen() const noexcept { return reinterpret_cast<intptr_t>(m_Handle) != -1; }

    // False if a byte can't be converted or the text ends inside a character.
    bool Convert(const std::string& text, std::string& result) {
        // iconv takes a pointer to non-const and doesn't write through it.
        char* next = const_cast<char*>(text.data());
        size_t left = text.size();
        while (left > 0) {
            std::array<char, 512> piece{};
            char* out = piece.data();
            size_t room = piece.size();
            const size_t irreversible = ::iconv(m_Handle, &next, &left, &out, &room);
            const bool full = irreversible == static_cast<size_t>(-1);
            if (full && errno != E2BIG) return false;
            result.append(piece.data(), piece.size() - room);
        }
        return true;
    }

  private:
    iconv_t m_Handle;
};

std::string Convert(const char* to, const char* from, const std::string& text) noexcept try {
    Converter converter(to, from);
    std::string result;
    return converter.IsOpen() && converter.Convert(text, result) ? result : std::string();
} catch (...) {
    return {};
}

}  // namespace

std::string Cp936ToUtf8(const std::string& text) noexcept {
    return Convert("UTF-8", "CP936", text);
}

std::string Utf8ToCp936(const std::string& text) noexcept {
    return Convert("CP936", "UTF-8", text);
}

}  // namespace quillet::platform
