#include <gtest/gtest.h>

#include <fstream>

#include "ingest/ClaudeCodeReader.h"
#include "ingest/GoldenMessages.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

/// Real transcripts through reader and parser.
namespace sonra {
namespace {

constexpr std::size_t growthStep = 1000;

std::vector<HistoryMessage> readWhole(const std::string& path) {
    return test::followed(ClaudeCodeReader(), path, TailOffset::byte(0));
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
        test::follow(ClaudeCodeReader(), dir / "growing.jsonl", cursor, messages);
    }
    return messages;
}

TEST(ClaudeCodeGolden, MessagesOfRealTranscriptsAreTheKnownOnes) {
    const auto files = test::transcripts("claude-code", ".jsonl");
    if (files.empty()) GTEST_SKIP();
    Json found = Json::object();
    for (const auto& file : files) found[file.name] = test::summaryOf(readWhole(file.path));
    test::expectGolden("claude-code.json", found);
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
