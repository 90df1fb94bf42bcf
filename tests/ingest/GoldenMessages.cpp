#include "ingest/GoldenMessages.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <array>
#include <string_view>
#include <utility>

#include "frame/Home.h"
#include "support/TempDir.h"

namespace sonra::test {
namespace {

std::string sha256(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr);
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        constexpr std::string_view digits = "0123456789abcdef";
        hex += digits[digest[i] >> 4U];
        hex += digits[digest[i] & 15U];
    }
    return hex;
}

}  // namespace

void follow(const LiveTailReader& reader, const std::string& path, TailOffset& cursor,
            std::vector<HistoryMessage>& messages) {
    const auto reading = reader.readSince(path, cursor);
    cursor = cursor.advanced(reading.newOffset);
    for (const auto& record : reading.records)
        if (auto message = reader.parser().parse(record)) messages.push_back(*std::move(message));
}

std::vector<HistoryMessage> followed(const LiveTailReader& reader, const std::string& path,
                                     TailOffset cursor) {
    std::vector<HistoryMessage> messages;
    follow(reader, path, cursor, messages);
    return messages;
}

Json summaryOf(const std::vector<HistoryMessage>& messages) {
    Json ids = Json::array();
    Json digests = Json::array();
    for (const auto& message : messages) {
        ids.push_back(message.messageId);
        digests.push_back(sha256(message.text));
    }
    return {{"count", messages.size()}, {"messageIds", ids}, {"textDigests", digests}};
}

void expectGolden(const std::string& name, const Json& found) {
    const std::string path = SONRA_SOURCE_DIR "/tests/ingest/golden/" + name;
    const bool isUpdating = !environmentValue("SONRA_UPDATE_GOLDEN").empty();
    EXPECT_FALSE(isUpdating) << "unset SONRA_UPDATE_GOLDEN";
    if (isUpdating) writeFile(path, json::dumpPretty(found) + "\n");
    const auto golden = json::parse(readFile(path));
    ASSERT_TRUE(golden.has_value());
    EXPECT_EQ(golden->size(), found.size());
    for (const auto& [transcript, expected] : golden->items())
        EXPECT_EQ(found.value(transcript, Json()), expected) << transcript;
}

}  // namespace sonra::test
