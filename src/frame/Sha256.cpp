#include "frame/Sha256.h"

#include <sha2.h>

namespace sonra {

std::array<std::uint8_t, 32> sha256(std::string_view bytes) {
    SHA2_CTX context;
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest{};
    SHA256Final(digest.data(), &context);
    return digest;
}

}  // namespace sonra
