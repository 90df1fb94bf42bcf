#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <fstream>

#include "frame/Home.h"
#include "ingest/ClaudeCodeReader.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

/// Real transcripts through reader and parser. The golden file holds counts, ids and digests;
/// running once with SONRA_UPDATE_GOLDEN set writes it anew, and fails, so that nobody leaves it
/// set.
namespace sonra {
namespace {

const std::string goldenPath = SONRA_SOURCE_DIR "/tests/ingest/golden/claude-code.json";
constexpr std::size_t growthStep = 1000;

bool isUpdating() {
    return !environmentValue("SONRA_UPDATE_GOLDEN").empty();
}

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

/// Reads from `cursor` on, appends the messages and moves the cursor.
void follow(const std::string& path, TailOffset& cursor, std::vector<HistoryMessage>& messages) {
    const ClaudeCodeReader reader;
    const auto reading = reader.readSince(path, cursor);
    cursor = cursor.advanced(reading.newOffset);
    for (const auto& record : reading.records) {
        if (auto message = reader.parser().parse(record)) messages.push_back(*std::move(message));
    }
}

std::vector<HistoryMessage> readWhole(const std::string& path) {
    std::vector<HistoryMessage> messages;
    TailOffset cursor = TailOffset::byte(0);
    follow(path, cursor, messages);
    return messages;
}

/// The file as its agent might have written it: a thousand bytes at a time, looked at after each.
std::vector<HistoryMessage> readGrowing(const std::string& path) {
    const std::string content = test::readFile(path);
    const test::TempDir dir;
    std::ofstream growing(dir / "growing.jsonl", std::ios::binary);
    std::vector<HistoryMessage> messages;
    TailOffset cursor = TailOffset::byte(0);
    for (std::size_t at = 0; at < content.size(); at += growthStep) {
        growing << content.substr(at, growthStep) << std::flush;
        follow(dir / "growing.jsonl", cursor, messages);
    }
    return messages;
}

Json summary(const std::vector<HistoryMessage>& messages) {
    Json ids = Json::array();
    Json digests = Json::array();
    for (const auto& message : messages) {
        ids.push_back(message.messageId);
        digests.push_back(sha256(message.text));
    }
    return {{"count", messages.size()}, {"messageIds", ids}, {"textDigests", digests}};
}

TEST(ClaudeCodeGolden, UpdateModeIsOff) {
    EXPECT_FALSE(isUpdating()) << "unset SONRA_UPDATE_GOLDEN";
}

TEST(ClaudeCodeGolden, MessagesOfRealTranscriptsAreTheKnownOnes) {
    const auto files = test::transcripts("claude-code", ".jsonl");
    if (files.empty()) GTEST_SKIP();
    Json found = Json::object();
    for (const auto& file : files) found[file.name] = summary(readWhole(file.path));
    if (isUpdating()) test::writeFile(goldenPath, json::dumpPretty(found) + "\n");
    const auto golden = json::parse(test::readFile(goldenPath));
    ASSERT_TRUE(golden.has_value());
    EXPECT_EQ(golden->size(), files.size());
    for (const auto& [name, expected] : golden->items()) EXPECT_EQ(found[name], expected) << name;
}

TEST(ClaudeCodeGolden, CutTranscriptsGiveTheMessagesOfWholeOnes) {
    const auto files = test::transcripts("claude-code", ".jsonl");
    if (files.empty()) GTEST_SKIP();
    std::size_t messages = 0;
    for (const auto& file : files) {
        const auto whole = readWhole(file.path);
        messages += whole.size();
        EXPECT_EQ(readGrowing(file.path), whole) << file.name;
    }
    EXPECT_GT(messages, 50U);
}

}  // namespace
}  // namespace sonra
