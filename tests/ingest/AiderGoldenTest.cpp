#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "ingest/AiderChatReader.h"
#include "ingest/AiderReader.h"
#include "ingest/FileTime.h"
#include "ingest/GoldenMessages.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

namespace sonra {
namespace {

constexpr std::size_t growth = 1000;
const TailOffset chatStart = TailOffset::byte(0);

/// To it all files have been quiet for long.
AiderChatReader quietReader() {
    return AiderChatReader(QuietFile([] { return std::chrono::system_clock::time_point{}; }));
}

/// To it this one has just been written to.
AiderChatReader busyReader(const std::string& path) {
    return AiderChatReader(QuietFile([path] { return test::writtenAt(path); }));
}

/// The file as aider might have written it: a thousand bytes at a time, looked at after each.
std::vector<HistoryMessage> readGrowingChat(const std::string& path) {
    const std::string content = test::readFile(path);
    const test::TempDir dir;
    const auto copy = dir / "growing.md";
    std::ofstream growing(copy, std::ios::binary);
    std::vector<HistoryMessage> messages;
    TailOffset cursor = chatStart;
    for (std::size_t at = 0; at < content.size(); at += growth) {
        growing << content.substr(at, growth) << std::flush;
        test::follow(busyReader(copy), copy, cursor, messages);
    }
    test::follow(quietReader(), copy, cursor, messages);
    return messages;
}

TEST(AiderGolden, MessagesOfRealTranscriptsAreTheKnownOnes) {
    const auto files = test::transcripts("aider", ".md");
    if (files.empty()) GTEST_SKIP();
    Json found = Json::object();
    for (const auto& file : files)
        found[file.name] = test::summaryOf(test::followed(quietReader(), file.path, chatStart));
    test::expectGolden("aider.json", found);
}

TEST(AiderGolden, RealTranscriptsHaveTodaysShape) {
    const auto files = test::transcripts("aider", ".md");
    if (files.empty()) GTEST_SKIP();
    for (const auto& file : files) {
        EXPECT_TRUE(quietReader().recognises(file.path)) << file.name;
        EXPECT_TRUE(test::followed(AiderReader(), file.path, chatStart).empty()) << file.name;
    }
}

TEST(AiderGolden, CutTranscriptsGiveTheMessagesOfWholeOnes) {
    const auto files = test::transcripts("aider", ".md");
    if (files.empty()) GTEST_SKIP();
    std::size_t messages = 0;
    for (const auto& file : files) {
        const auto whole = test::followed(quietReader(), file.path, chatStart);
        messages += whole.size();
        EXPECT_EQ(readGrowingChat(file.path), whole) << file.name;
    }
    EXPECT_GT(messages, 20U);
}

}  // namespace
}  // namespace sonra
