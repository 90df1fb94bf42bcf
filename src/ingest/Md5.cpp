#include "ingest/Md5.h"

extern "C" {
#include <md5.h>
}

#include <cstddef>

namespace sonra {
namespace {

constexpr std::size_t prefixSize = 8;

}  // namespace

std::array<std::uint8_t, 16> md5(std::string_view bytes) {
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    std::array<std::uint8_t, MD5_DIGEST_LENGTH> digest{};
    MD5Final(digest.data(), &context);
    return digest;
}

std::string md5Prefix16(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto digest = md5(bytes);
    std::string hex;
    for (std::size_t i = 0; i < prefixSize; ++i) {
        hex += digits[digest[i] >> 4U];
        hex += digits[digest[i] & 15U];
    }
    return hex;
}

}  // namespace sonra
