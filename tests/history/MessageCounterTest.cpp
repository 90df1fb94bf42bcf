#include "history/MessageCounter.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "NastyLines.h"
#include "history/ClaudeCodeIds.h"
#include "history/ReplyMarks.h"
#include "history/SessionHistory.h"
#include "support/TempDir.h"
#include "support/TranscriptLines.h"
#include "support/Transcripts.h"

namespace sonra {
namespace {

using Ids = MessageCounter::Ids;

const std::atomic<bool> never = false;

Ids countedIn(const std::string& path) {
    return MessageCounter::messageIds(path, HistorySource::claudeCode, never).value();
}

std::optional<HistoryMessage> parsed(std::string_view line) {
    return ClaudeCodeParser().parse(TranscriptRecord::jsonl(std::string(line)));
}

std::optional<std::string> exactId(std::string_view line) {
    const auto message = parsed(line);
    if (!message) return std::nullopt;
    return message->messageId;
}

/// The ids by the plain way: every line through the parser.
Ids parsedIn(std::string_view content) {
    Ids ids;
    while (!content.empty()) {
        const auto end = std::min(content.find('\n'), content.size());
        if (const auto id = exactId(content.substr(0, end))) ids.insert(*id);
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    return ids;
}

Ids pagedIn(const std::string& path, std::size_t chunkBytes) {
    SessionHistory history(path, HistorySource::claudeCode, chunkBytes);
    Ids ids;
    for (auto page = history.loadOlder(64); !page.empty(); page = history.loadOlder(64))
        for (const auto& message : page) ids.insert(message.messageId);
    return ids;
}

/// Each id tells which line it came from, so that no line hides behind another.
std::string numbered(std::string line, std::size_t number) {
    for (std::size_t at = line.find("\"u"); at != std::string::npos; at = line.find("\"u", at + 2))
        if (line.compare(at, 6, "\"uuid\"") != 0) line.insert(at + 1, std::to_string(number) + "-");
    return line;
}

void expectSameId(const std::string& line) {
    const auto exact = exactId(line);
    EXPECT_EQ(ClaudeCodeIds().idOf(line), exact) << line.substr(0, 400);
    EXPECT_TRUE(!exact || ReplyMarks::mayBeReply(line)) << line.substr(0, 400);
}

TEST(ClaudeCodeIds, AreTheParsersForNastyLines) {
    std::size_t messages = 0;
    for (const auto& line : test::nastyLines()) {
        expectSameId(line);
        messages += parsed(line) ? 1U : 0U;
    }
    EXPECT_GT(messages, 50U);
}

TEST(ClaudeCodeIds, AreTheParsersForRandomLines) {
    std::size_t messages = 0;
    for (const auto& line : test::randomLines(7, 40'000)) {
        expectSameId(line);
        messages += parsed(line) ? 1U : 0U;
    }
    EXPECT_GT(messages, 5'000U);
    EXPECT_LT(messages, 35'000U);
}

TEST(ReplyMarks, AreFoundAtEveryPlaceOfALine) {
    const std::string line = R"({"type":"assistant","text":""})";
    for (std::size_t before = 0; before < 600; ++before) {
        const std::string padded = std::string(before, ' ') + line;
        ASSERT_TRUE(ReplyMarks::mayBeReply(padded)) << before;
        ASSERT_TRUE(ReplyMarks::mayBeReply(padded + std::string(before, ' '))) << before;
        ASSERT_EQ(ReplyMarks::find(padded, 0), before + line.find("\"text\"")) << before;
        ASSERT_TRUE(ReplyMarks::mayBeReply(std::string(before, 'x') + "\\u0061")) << before;
    }
}

TEST(ReplyMarks, PassOverWhatIsNoReply) {
    EXPECT_FALSE(ReplyMarks::mayBeReply(""));
    EXPECT_FALSE(ReplyMarks::mayBeReply(R"({"type":"assistant","message":{"content":[]}})"));
    EXPECT_FALSE(ReplyMarks::mayBeReply(test::userLine("\"assistant\"")));
    EXPECT_FALSE(ReplyMarks::mayBeReply(R"({"a":"\u001b[31m \u00e9 \u0041"})"));
    EXPECT_EQ(ReplyMarks::find("{\"a\":1}\n", 0), std::string_view::npos);
}

TEST(MessageCounter, FindsTheIdsOfAFileOfNastyLines) {
    const test::TempDir dir;
    std::string content;
    std::size_t number = 0;
    for (const auto& line : test::nastyLines()) content += numbered(line, ++number) + "\n";
    for (const auto& line : test::randomLines(11, 4000))
        content += numbered(line, ++number) + "\r\n";
    for (int turn = 0; turn < 3; ++turn) {
        test::writeFile(dir / "nasty.jsonl", content);
        const auto expected = parsedIn(content);
        EXPECT_GT(expected.size(), 1000U);
        EXPECT_EQ(countedIn(dir / "nasty.jsonl"), expected);
        EXPECT_EQ(pagedIn(dir / "nasty.jsonl", 65536), expected);
        // The windows cut the lines at other places.
        content.insert(0, "\n").insert(0, 333'337, ' ');
    }
}

TEST(MessageCounter, FindsTheIdsOfRealTranscripts) {
    const auto files = test::transcripts("claude-code", ".jsonl");
    if (files.empty()) GTEST_SKIP();
    std::size_t messages = 0;
    for (const auto& file : files) {
        const auto expected = parsedIn(test::readFile(file.path));
        messages += expected.size();
        EXPECT_EQ(countedIn(file.path), expected) << file.name;
        EXPECT_EQ(pagedIn(file.path, 65536), expected) << file.name;
        EXPECT_EQ(pagedIn(file.path, 1024), expected) << file.name;
    }
    EXPECT_GT(messages, 50U);
}

TEST(MessageCounter, TakesAMessageWithTwoLinesForOne) {
    const test::TempDir dir;
    test::writeFile(dir / "a.jsonl", test::assistantLine("m1", "One.") +
                                         test::assistantLine("m1", "Two.") +
                                         test::assistantLine("m2", "Three."));
    EXPECT_EQ(countedIn(dir / "a.jsonl"), (Ids{"m1", "m2"}));
}

TEST(MessageCounter, FindsALastLineWithoutALineFeed) {
    const test::TempDir dir;
    std::string content = test::assistantLine("m1", "One.") + test::assistantLine("m2", "Two.");
    content.pop_back();
    test::writeFile(dir / "a.jsonl", content);
    EXPECT_EQ(countedIn(dir / "a.jsonl"), (Ids{"m1", "m2"}));
}

/// Lines whose ends lie around the end of a window of a megabyte, and around that of the second.
TEST(MessageCounter, FindsLinesAtTheEdgesOfItsWindows) {
    const test::TempDir dir;
    const std::string first = test::assistantLine("m1", "One.");
    for (const std::size_t window : {std::size_t{1} << 20, std::size_t{2} << 20}) {
        for (std::size_t shift = 0; shift < first.size() + 40; shift += 7) {
            const std::string filler(window + 20 - shift, 'x');
            test::writeFile(dir / "a.jsonl",
                            filler + "\n" + first + test::assistantLine("m2", "Two."));
            ASSERT_EQ(countedIn(dir / "a.jsonl"), (Ids{"m1", "m2"})) << window << " " << shift;
        }
    }
}

TEST(MessageCounter, FindsAReplyLongerThanItsWindow) {
    const test::TempDir dir;
    const std::string longReply = test::assistantLine("long", std::string(5'000'000, 'x'));
    test::writeFile(dir / "a.jsonl", test::assistantLine("m1", "One.") + longReply +
                                         test::userLine(std::string(5'000'000, 'y')) +
                                         test::assistantLine("m2", "Two."));
    EXPECT_EQ(countedIn(dir / "a.jsonl"), (Ids{"m1", "long", "m2"}));
    test::writeFile(dir / "a.jsonl", longReply.substr(0, longReply.size() - 1));
    EXPECT_EQ(countedIn(dir / "a.jsonl"), (Ids{"long"}));
}

/// What tells a reply may lie across the edge of two pieces of a long line.
TEST(MessageCounter, FindsALongReplyWhoseMarkIsCut) {
    const test::TempDir dir;
    const std::string head = R"({"pad":")";
    const std::string tail = R"(","type":"assistant","uuid":"long","message":{"content":)"
                             R"([{"type":"text","text":"Hi."}]}})";
    for (std::size_t cut = 0; cut <= tail.size(); cut += 3) {
        const std::size_t pad = (std::size_t{1} << 20) - head.size() - cut;
        test::writeFile(dir / "a.jsonl", head + std::string(pad, 'x') + tail + "\n");
        ASSERT_EQ(countedIn(dir / "a.jsonl"), (Ids{"long"})) << cut;
    }
}

TEST(MessageCounter, FindsNothingWhereThereIsNoFile) {
    const test::TempDir dir;
    EXPECT_TRUE(countedIn(dir / "missing").empty());
    EXPECT_TRUE(countedIn(dir.path()).empty());
    test::writeFile(dir / "empty", "");
    EXPECT_TRUE(countedIn(dir / "empty").empty());
}

TEST(MessageCounter, GivesNothingWhenCancelled) {
    const test::TempDir dir;
    test::writeFile(dir / "a.jsonl", test::assistantLine("m1", "One."));
    const std::atomic<bool> cancelled = true;
    for (const auto source : {HistorySource::claudeCode, HistorySource::codex})
        EXPECT_EQ(MessageCounter::messageIds(dir / "a.jsonl", source, cancelled), std::nullopt);
}

}  // namespace
}  // namespace sonra
