#include "frame/UniqueName.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "frame/Sha256.h"

namespace sonra {
namespace {

constexpr std::size_t longestName = 100;

std::string hexadecimal(std::span<const std::uint8_t> bytes, const char* digits) {
    std::string text;
    for (const auto byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

bool isPlain(const std::string& id) {
    return !id.empty() && id != "." && id != ".." && id.size() <= longestName &&
           std::none_of(id.begin(), id.end(), [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return byte < 0x20 || byte == 0x7F || c == '/';
           });
}

}  // namespace

std::string uniqueSuffix() {
    std::array<std::uint8_t, 4> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const auto got = getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (got > 0) filled += static_cast<std::size_t>(got);
    }
    return hexadecimal(bytes, "0123456789ABCDEF");
}

std::string safeFileName(const std::string& id) {
    if (isPlain(id)) return id;
    const auto digest = sha256(id);
    return hexadecimal(std::span(digest).first(8), "0123456789abcdef");
}

}  // namespace sonra
