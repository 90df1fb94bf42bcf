#include "history/SessionHistory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "support/TempDir.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

constexpr std::size_t smallest = 1024;

class SessionHistoryTest : public testing::Test {
  protected:
    void write(const std::string& content) { test::writeFile(path_, content); }
    [[nodiscard]] SessionHistory open(std::size_t chunkBytes = smallest) const {
        return {path_, HistorySource::claudeCode, chunkBytes};
    }

    /// "m1" to "m<count>", oldest first, a user's line before each.
    static std::string conversation(int count) {
        std::string lines;
        for (int i = 1; i <= count; ++i)
            lines += test::userLine("Go on.") + test::assistantLine(name(i), "Reply " + name(i));
        return lines;
    }
    static std::string name(int i) { return "m" + std::to_string(i); }

    static std::vector<std::string> ids(const std::vector<HistoryMessage>& messages) {
        std::vector<std::string> result;
        for (const auto& message : messages) result.push_back(message.messageId);
        return result;
    }
    using Ids = std::vector<std::string>;

    const test::TempDir dir_;
    const std::string path_ = dir_ / "session.jsonl";
};

TEST_F(SessionHistoryTest, LimitOfZeroReturnsNothingAndConsumesNothing) {
    write(conversation(2));
    auto history = open();
    EXPECT_TRUE(history.loadOlder(0).empty());
    EXPECT_TRUE(history.loadOlder(-3).empty());
    EXPECT_EQ(history.loadedCount(), 0U);
    EXPECT_FALSE(history.isExhausted());
    EXPECT_EQ(ids(history.loadOlder(5)), (Ids{"m2", "m1"}));
}

TEST_F(SessionHistoryTest, PagesGiveEachMessageOnceNewestFirst) {
    write(conversation(25));
    auto history = open();
    Ids seen;
    for (auto page = history.loadOlder(2); !page.empty(); page = history.loadOlder(2)) {
        EXPECT_LE(page.size(), 2U);
        for (const auto& message : page) seen.push_back(message.messageId);
    }
    Ids expected;
    for (int i = 25; i >= 1; --i) expected.push_back(name(i));
    EXPECT_EQ(seen, expected);
    EXPECT_TRUE(history.isExhausted());
    EXPECT_TRUE(history.loadOlder(2).empty());
    EXPECT_EQ(ids(history.loadedMessages()), expected);
    EXPECT_EQ(history.loadedCount(), expected.size());
}

TEST_F(SessionHistoryTest, CarriesTextAndTimeOfAMessage) {
    write(test::assistantLine("only", "Hello."));
    const auto page = open().loadOlder(1);
    ASSERT_EQ(page.size(), 1U);
    EXPECT_EQ(page[0].text, "Hello.");
    EXPECT_EQ(page[0].timestamp.time_since_epoch(), std::chrono::seconds(1777629600));
}

TEST_F(SessionHistoryTest, LineThatStraddlesBlocksIsParsedOnceAndWhole) {
    // The last line grows by a byte at a time, so that the cut comes to every place of it.
    for (std::size_t extra = 0; extra < smallest + 200; ++extra) {
        const std::string text(extra + 1, 'x');
        write(conversation(3) + test::assistantLine("last", text));
        auto history = open();
        const auto messages = history.loadOlder(10);
        ASSERT_EQ(ids(messages), (Ids{"last", "m3", "m2", "m1"})) << extra;
        ASSERT_EQ(messages[0].text, text);
    }
}

TEST_F(SessionHistoryTest, LineOverManyBlocksIsJoined) {
    std::string text;
    for (int i = 0; i < 5000; ++i) text += std::to_string(i) + " ";
    write(conversation(1) + test::assistantLine("long", text) + conversation(1));
    auto history = open();
    const auto messages = history.loadOlder(10);
    ASSERT_EQ(ids(messages), (Ids{"m1", "long", "m1"}));
    EXPECT_EQ(messages[1].text + " ", text);
}

/// How much is read at a time shows in what is left when the file has gone after the first message.
TEST_F(SessionHistoryTest, ChunkBytesOfTenAreRaised) {
    write(conversation(20));
    std::array<SessionHistory, 3> histories{open(10), open(1024), open(2048)};
    for (auto& history : histories) EXPECT_EQ(ids(history.loadOlder(1)), (Ids{"m20"}));
    std::filesystem::remove(path_);
    const auto ofTen = ids(histories[0].loadOlder(20));
    EXPECT_FALSE(ofTen.empty());
    EXPECT_EQ(ofTen, ids(histories[1].loadOlder(20)));
    EXPECT_LT(ofTen.size(), histories[2].loadOlder(20).size());
}

TEST_F(SessionHistoryTest, FirstLineOfAFileIsParsed) {
    write(test::assistantLine("first", "One.") + test::userLine("Two."));
    EXPECT_EQ(ids(open().loadOlder(10)), (Ids{"first"}));
}

TEST_F(SessionHistoryTest, LastLineNeedsNoLineFeed) {
    std::string line = test::assistantLine("last", "Two.");
    line.pop_back();
    write(conversation(1) + line);
    EXPECT_EQ(ids(open().loadOlder(10)), (Ids{"last", "m1"}));
}

TEST_F(SessionHistoryTest, EmptyLinesAndCarriageReturnsAreNoMessages) {
    std::string line = test::assistantLine("m2", "Two.");
    line.insert(line.size() - 1, "\r");
    write("\n\n" + conversation(1) + "\n\r\n" + line + "\n\n\n");
    EXPECT_EQ(ids(open().loadOlder(10)), (Ids{"m2", "m1"}));
}

TEST_F(SessionHistoryTest, BytesAppendedLaterAreNotRead) {
    write(conversation(2));
    auto history = open();
    test::appendFile(path_, test::assistantLine("late", "Late."));
    EXPECT_EQ(ids(history.loadOlder(10)), (Ids{"m2", "m1"}));
    EXPECT_TRUE(history.isExhausted());
}

TEST_F(SessionHistoryTest, FileThatShrinksEndsTheReading) {
    write(conversation(40));
    auto history = open();
    EXPECT_EQ(ids(history.loadOlder(1)), (Ids{"m40"}));
    const auto size = std::filesystem::file_size(path_);
    std::filesystem::resize_file(path_, size / 2);
    EXPECT_LT(history.loadOlder(100).size(), 10U);
    EXPECT_TRUE(history.isExhausted());
    EXPECT_TRUE(history.loadOlder(1).empty());
}

/// The bytes that are left of a block aren't followed by those that were read behind it, but what
/// is older is all there.
TEST_F(SessionHistoryTest, BlockThatLostItsEndCostsOnlyTheLinesThatWereCut) {
    std::size_t least = 40;
    for (std::uintmax_t lost = 1; lost < smallest; lost += 97) {
        write(conversation(40));
        auto whole = open();
        auto cut = open();
        const auto all = ids(whole.loadOlder(100));
        EXPECT_EQ(ids(cut.loadOlder(1)), (Ids{"m40"}));
        std::filesystem::resize_file(path_, std::filesystem::file_size(path_) - smallest - lost);
        const auto left = ids(cut.loadOlder(100));
        EXPECT_TRUE(cut.isExhausted());
        least = std::min(least, left.size());
        // As they were, in their order.
        auto from = all.begin();
        for (const auto& id : left) {
            from = std::find(from, all.end(), id);
            ASSERT_NE(from, all.end()) << id;
        }
        EXPECT_EQ(left.back(), "m1");
    }
    EXPECT_GT(least, 20U);
    EXPECT_LT(least, 39U) << "something was cut";
}

TEST_F(SessionHistoryTest, FileThatVanishesEndsTheReading) {
    write(conversation(40));
    auto history = open();
    EXPECT_EQ(history.loadOlder(1).size(), 1U);
    std::filesystem::remove(path_);
    EXPECT_LT(history.loadOlder(100).size(), 10U);
    EXPECT_TRUE(history.isExhausted());
}

TEST_F(SessionHistoryTest, OnlyTheBlocksThatAreNeededAreRead) {
    write(std::string(50'000, 'x') + "\n" + conversation(3));
    auto history = open();
    EXPECT_EQ(history.loadOlder(1).size(), 1U);
    std::filesystem::resize_file(path_, 1000);
    EXPECT_FALSE(history.isExhausted());
    EXPECT_EQ(ids(history.loadOlder(2)), (Ids{"m2", "m1"}));
}

TEST_F(SessionHistoryTest, MissingFileIsExhausted) {
    auto history = open();
    EXPECT_TRUE(history.isExhausted());
    EXPECT_FALSE(history.canPageHistory());
    EXPECT_TRUE(history.loadOlder(4).empty());
}

TEST_F(SessionHistoryTest, WhatIsNoRegularFileIsAsIfMissing) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    EXPECT_TRUE(open().isExhausted());
    EXPECT_TRUE(SessionHistory(dir_.path(), HistorySource::claudeCode).isExhausted());
    EXPECT_TRUE(SessionHistory("/dev/zero", HistorySource::claudeCode).isExhausted());
}

TEST_F(SessionHistoryTest, EmptyOrMissingFileCannotBePagedUnlessItsNameIsADocuments) {
    const auto canPage = [](const std::string& path, HistorySource source) {
        return SessionHistory(path, source).canPageHistory();
    };
    write("");
    for (const auto source : {HistorySource::claudeCode, HistorySource::codex,
                              HistorySource::gemini, HistorySource::aider, HistorySource::pi}) {
        EXPECT_FALSE(canPage(path_, source)) << rawValue(source);
        EXPECT_FALSE(canPage(dir_ / "missing.jsonl", source)) << rawValue(source);
    }
    EXPECT_TRUE(canPage(dir_ / "missing.json", HistorySource::gemini));
    EXPECT_TRUE(canPage(dir_ / "missing.JSON", HistorySource::gemini));
    EXPECT_FALSE(canPage(dir_ / "missing.json", HistorySource::claudeCode));
}

TEST_F(SessionHistoryTest, FileOfAnAgentWithABackwardReaderCanBePaged) {
    write("x\n");
    for (const auto source :
         {HistorySource::claudeCode, HistorySource::codex, HistorySource::gemini,
          HistorySource::opencode, HistorySource::aider, HistorySource::cline, HistorySource::pi})
        EXPECT_EQ(SessionHistory(path_, source).canPageHistory(), hasBackwardReader(source))
            << rawValue(source);
}

TEST_F(SessionHistoryTest, AgentsWithoutAParserAreExhaustedAtOnce) {
    write(conversation(2));
    for (const auto source : {HistorySource::opencode, HistorySource::cline}) {
        SessionHistory history(path_, source);
        EXPECT_TRUE(history.isExhausted()) << rawValue(source);
        EXPECT_TRUE(history.loadOlder(4).empty()) << rawValue(source);
    }
}

TEST(SessionHistory, NamesMessagesByTheirDigest) {
    EXPECT_EQ(SessionHistory::md5Prefix16("2000First message after attach."), "1084219ef7ab62e2");
}

}  // namespace
}  // namespace sonra
