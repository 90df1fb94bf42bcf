#include "frame/Sha256.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <string>

namespace sonra {
namespace {

std::string sha256Hex(std::string_view bytes) {
    std::string hex;
    for (const auto byte : sha256(bytes)) {
        constexpr std::string_view digits = "0123456789abcdef";
        hex += digits[byte >> 4U];
        hex += digits[byte & 15U];
    }
    return hex;
}

TEST(Sha256, GivesTheDigestsOfTheStandard) {
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Sha256, AgreesWithAnotherImplementationAtEveryLength) {
    std::string text;
    for (int length = 0; length <= 300; ++length) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned int size = 0;
        EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr);
        const auto own = sha256(text);
        ASSERT_EQ(size, own.size());
        EXPECT_TRUE(std::equal(own.begin(), own.end(), digest.begin())) << length;
        text += static_cast<char>(length * 37);
    }
}

}  // namespace
}  // namespace sonra
