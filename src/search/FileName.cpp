#include "search/FileName.h"

#include <unicode/utf8.h>

#include <cstdint>

namespace sonra {
namespace {

constexpr UChar32 firstEscape = 0xF780;  // stands for the byte 0x80
constexpr UChar32 lastEscape = 0xF7FF;
constexpr unsigned firstEscapedByte = 0x80;

bool isEscape(UChar32 c) {
    return c >= firstEscape && c <= lastEscape;
}

std::string_view withoutSlashesAtEnd(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

void appendEscape(std::string& text, unsigned char byte) {
    const UChar32 c = firstEscape + static_cast<UChar32>(byte - firstEscapedByte);
    text += static_cast<char>(0xE0U | (static_cast<unsigned>(c) >> 12U));
    text += static_cast<char>(0x80U | ((static_cast<unsigned>(c) >> 6U) & 0x3FU));
    text += static_cast<char>(0x80U | (static_cast<unsigned>(c) & 0x3FU));
}

/// Calls `visit` with each character, negative where the bytes aren't one, and its bytes.
template <typename Visit>
void eachCharacter(std::string_view bytes, Visit visit) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    const auto length = static_cast<std::int64_t>(bytes.size());
    std::int64_t at = 0;
    while (at < length) {
        const auto start = at;
        UChar32 c = 0;
        U8_NEXT(data, at, length, c);
        visit(c,
              bytes.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(at - start)));
    }
}

}  // namespace

std::string_view FileName::lastComponent(std::string_view path) {
    path = withoutSlashesAtEnd(path);
    if (path == "/") return path;
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view FileName::withoutLastComponent(std::string_view path) {
    path = withoutSlashesAtEnd(path);
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return {};
    return withoutSlashesAtEnd(path.substr(0, slash + 1));
}

std::string_view FileName::withoutExtension(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return name;
    return name.substr(0, dot);
}

std::string FileName::escaped(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    eachCharacter(bytes, [&](UChar32 c, std::string_view own) {
        if (c >= 0 && !isEscape(c)) {
            text += own;
        } else {
            // What isn't a character may be several bytes of one that was cut.
            for (const char byte : own) appendEscape(text, static_cast<unsigned char>(byte));
        }
    });
    return text;
}

std::string FileName::unescaped(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    eachCharacter(text, [&](UChar32 c, std::string_view own) {
        if (isEscape(c)) {
            bytes += static_cast<char>(static_cast<unsigned>(c - firstEscape) + firstEscapedByte);
        } else {
            bytes += own;
        }
    });
    return bytes;
}

}  // namespace sonra
