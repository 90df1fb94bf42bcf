#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "ingest/AiderChatReader.h"
#include "ingest/AiderReader.h"
#include "ingest/GoldenMessages.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

namespace sonra {
namespace {

constexpr std::size_t growth = 1000;
const TailOffset chatStart = TailOffset::byte(0);

/// Follows files that are never quiet, or always.
AiderChatReader chatReader(bool isQuiet) {
    return AiderChatReader(QuietFile([isQuiet] {
        return isQuiet ? std::chrono::system_clock::time_point{} : std::chrono::system_clock::now();
    }));
}

/// The file as aider might have written it: a thousand bytes at a time, looked at after each.
std::vector<HistoryMessage> readGrowingChat(const std::string& path) {
    const std::string content = test::readFile(path);
    const test::TempDir dir;
    std::ofstream growing(dir / "growing.md", std::ios::binary);
    std::vector<HistoryMessage> messages;
    TailOffset cursor = chatStart;
    for (std::size_t at = 0; at < content.size(); at += growth) {
        growing << content.substr(at, growth) << std::flush;
        test::follow(chatReader(false), dir / "growing.md", cursor, messages);
    }
    test::follow(chatReader(true), dir / "growing.md", cursor, messages);
    return messages;
}

TEST(AiderGolden, MessagesOfRealTranscriptsAreTheKnownOnes) {
    const auto files = test::transcripts("aider", ".md");
    if (files.empty()) GTEST_SKIP();
    Json found = Json::object();
    for (const auto& file : files)
        found[file.name] = test::summaryOf(test::followed(chatReader(true), file.path, chatStart));
    test::expectGolden("aider.json", found);
}

TEST(AiderGolden, RealTranscriptsHaveTodaysShape) {
    const auto files = test::transcripts("aider", ".md");
    if (files.empty()) GTEST_SKIP();
    for (const auto& file : files) {
        EXPECT_TRUE(chatReader(true).recognises(file.path)) << file.name;
        EXPECT_TRUE(test::followed(AiderReader(), file.path, chatStart).empty()) << file.name;
    }
}

TEST(AiderGolden, CutTranscriptsGiveTheMessagesOfWholeOnes) {
    const auto files = test::transcripts("aider", ".md");
    if (files.empty()) GTEST_SKIP();
    std::size_t messages = 0;
    for (const auto& file : files) {
        const auto whole = test::followed(chatReader(true), file.path, chatStart);
        messages += whole.size();
        EXPECT_EQ(readGrowingChat(file.path), whole) << file.name;
    }
    EXPECT_GT(messages, 20U);
}

}  // namespace
}  // namespace sonra
