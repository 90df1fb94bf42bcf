#include "ingest/Md5.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>

namespace sonra {
namespace {

std::string hexOf(std::string_view bytes) {
    std::string hex;
    for (const auto byte : md5(bytes)) {
        constexpr std::string_view digits = "0123456789abcdef";
        hex += digits[byte >> 4U];
        hex += digits[byte & 15U];
    }
    return hex;
}

TEST(Md5, GivesTheDigestsOfTheRfc) {
    EXPECT_EQ(hexOf(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(hexOf("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(hexOf("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hexOf("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(hexOf("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
}

TEST(Md5, AgreesWithAnotherImplementationAtEveryLength) {
    std::string text;
    for (int length = 0; length <= 300; ++length) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned int size = 0;
        EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_md5(), nullptr);
        const auto own = md5(text);
        ASSERT_EQ(size, own.size());
        EXPECT_TRUE(std::equal(own.begin(), own.end(), digest.begin())) << length;
        text += static_cast<char>(length * 37);
    }
}

/// Other programs compute the same ids.
TEST(Md5, PrefixNamesAMessageWithoutAnId) {
    EXPECT_EQ(md5Prefix16("2000First message after attach."), "1084219ef7ab62e2");
    EXPECT_EQ(md5Prefix16("First message after attach."), "6bc9f45bce018919");
    EXPECT_EQ(md5Prefix16(""), "d41d8cd98f00b204");
    EXPECT_EQ(md5Prefix16("Größe, 漢字"), hexOf("Größe, 漢字").substr(0, 16));
}

}  // namespace
}  // namespace sonra
