#include "ingest/AiderChatReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>

#include "ingest/AiderReader.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

const TailOffset start = TailOffset::byte(0);

class AiderChatReading : public testing::Test {
  protected:
    /// Every write is at this moment; `later` lets time pass since.
    void write(const std::string& content) {
        test::writeFile(path, content);
        stamp();
    }
    void append(const std::string& content) {
        test::appendFile(path, content);
        stamp();
    }
    void later(milliseconds passed) { now = written + passed; }

    /// Reads from the cursor and moves it, as who follows the file does.
    std::vector<HistoryMessage> follow() {
        const auto reading = reader.readSince(path, cursor);
        cursor = cursor.advanced(reading.newOffset);
        std::vector<HistoryMessage> messages;
        for (const auto& record : reading.records)
            if (auto message = reader.parser().parse(record))
                messages.push_back(*std::move(message));
        return messages;
    }
    std::vector<std::string> followedTexts() {
        std::vector<std::string> texts;
        for (const auto& message : follow()) texts.push_back(message.text);
        return texts;
    }

    test::TempDir dir;
    const std::string path = dir / ".aider.chat.history.md";
    const system_clock::time_point written{std::chrono::seconds(1'800'000'000)};
    system_clock::time_point now = written;
    const AiderChatReader reader{QuietFile([this] { return now; })};
    TailOffset cursor = start;

  private:
    void stamp() const {
        const timespec time{1'800'000'000, 0};
        const std::array<timespec, 2> times{time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
    }
};
using Texts = std::vector<std::string>;

TEST_F(AiderChatReading, SpeaksAReplyWhenTheUserGoesOn) {
    write("#### fix it  \n\nI fixed it.\n\n> Tokens: 1k  \n");
    EXPECT_EQ(followedTexts(), Texts{});
    append("\n#### thanks  \n");
    EXPECT_EQ(followedTexts(), Texts{"I fixed it."});
    EXPECT_EQ(followedTexts(), Texts{});
}

TEST_F(AiderChatReading, SpeaksAReplyAfterQuiet) {
    write("#### fix it  \n\nI fixed it.\n\n> Tokens: 1k  \n");
    later(milliseconds(1499));
    EXPECT_EQ(followedTexts(), Texts{});
    later(milliseconds(1500));
    EXPECT_EQ(followedTexts(), Texts{"I fixed it."});
    EXPECT_EQ(cursor, reader.initialOffset(path));
    EXPECT_EQ(followedTexts(), Texts{});
}

TEST_F(AiderChatReading, WaitsForTheWholeOfAReplyThatGrows) {
    write("#### fix it  \n\nI fix");
    later(milliseconds(1000));
    EXPECT_EQ(followedTexts(), Texts{});
    append("ed it.\nAnd more.\n");
    EXPECT_EQ(followedTexts(), Texts{});
    later(milliseconds(1500));
    EXPECT_EQ(followedTexts(), Texts{"I fixed it.\nAnd more."});
}

TEST_F(AiderChatReading, TakesAWriteOfTheFutureForOld) {
    write("#### fix it  \n\nI fixed it.\n");
    later(-milliseconds(3'600'000));
    EXPECT_EQ(followedTexts(), Texts{"I fixed it."});
}

TEST_F(AiderChatReading, SpeaksTheRestAfterAQuietThatCameTooEarly) {
    write("#### fix it  \n\nI fixed");
    later(milliseconds(2000));
    const auto early = follow();
    ASSERT_EQ(early.size(), 1U);
    append(" it.\nAnd more.\n");
    const auto rest = follow();
    ASSERT_EQ(rest.size(), 1U);
    EXPECT_EQ(rest[0].text, "it.\nAnd more.");
    EXPECT_NE(rest[0].messageId, early[0].messageId);
}

TEST_F(AiderChatReading, DoesNotSpeakTheBeginningOfAUsersLine) {
    write("#### fix it  \n\nI fixed it.\n\n##");
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{"I fixed it."});
    append("## thanks  \n");
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{});
}

TEST_F(AiderChatReading, DoesNotSpeakTheRestOfALineThatIsNoReply) {
    const std::string asked = "#### fix it";
    write(asked + " please  \nDone.\n");
    cursor = TailOffset::byte(static_cast<std::int64_t>(asked.size()));
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{"Done."});
}

TEST_F(AiderChatReading, StaysBeforeALineOfTheUserThatHasNoEnd) {
    const std::string said = "#### go  \n\nDone.\n\n";
    const std::string longLine(10'000, 'x');
    write(said + "#### " + longLine);
    EXPECT_EQ(followedTexts(), Texts{"Done."});
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{});
    EXPECT_EQ(cursor.intValue(), static_cast<std::int64_t>(said.size()));
    append("and so on  \n\nDone again.\n");
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{"Done again."});
}

TEST_F(AiderChatReading, GivesTheSameIdsWhereverAReadStarts) {
    const std::string first = "#### fix it  \n\nDone.\n\n";
    write(first + "#### again  \n\nDone.\n\n#### more  \nDone.\n");
    later(milliseconds(2000));
    const auto whole = follow();
    ASSERT_EQ(whole.size(), 3U);
    for (const std::size_t from : {first.size(), first.size() + 7, first.size() + 13}) {
        cursor = TailOffset::byte(static_cast<std::int64_t>(from));
        EXPECT_EQ(follow(), (std::vector<HistoryMessage>{whole[1], whole[2]})) << from;
    }
}

TEST_F(AiderChatReading, GivesTheSameMessagesHoweverOftenItLooked) {
    const std::string content =
        "#### one  \n> Added  \n\nFirst.\n\n> # 1 block failed!\n\nreport\nend  \n\nSecond.\n\n"
        "> Tokens  \n\n# aider chat started at 2026-05-03 08:00:00\n\n#### two  \n\n# Third …\n";
    write(content);
    later(milliseconds(2000));
    const auto whole = follow();
    EXPECT_EQ(whole.size(), 3U);
    for (const std::size_t step : {1U, 2U, 7U, 40U}) {
        cursor = start;
        write("");
        later(milliseconds(0));
        std::vector<HistoryMessage> messages;
        for (std::size_t at = 0; at < content.size() + step; at += step) {
            if (at < content.size()) append(content.substr(at, step));
            if (at >= content.size()) later(milliseconds(2000));
            for (auto& message : follow()) messages.push_back(std::move(message));
        }
        EXPECT_EQ(messages, whole) << step;
    }
}

TEST_F(AiderChatReading, LeavesACharacterThatIsStillBeingWritten) {
    const std::string whole = "#### go  \n\nFertig …";
    write(whole.substr(0, whole.size() - 1));
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{"Fertig"});
    EXPECT_EQ(cursor.intValue(), static_cast<std::int64_t>(whole.size() - 3));
}

TEST_F(AiderChatReading, ReadsALineOfAMegabyte) {
    const std::string longLine(std::size_t{1} << 20, 'x');
    write("#### go  \n\n" + longLine + "\n");
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{longLine});
}

TEST_F(AiderChatReading, TakesBytesThatAreNotUtf8) {
    write("#### go  \n\nDone \xFF and well.\n");
    later(milliseconds(2000));
    EXPECT_EQ(followedTexts(), Texts{"Done \xFF and well."});
}

TEST_F(AiderChatReading, YieldsNothingOfWhatIsNoFile) {
    for (const auto offset : {start, TailOffset::byte(7), TailOffset::byte(-1)}) {
        const auto reading = reader.readSince(path, offset);
        EXPECT_TRUE(reading.records.empty());
        EXPECT_EQ(reading.newOffset, offset);
    }
    EXPECT_FALSE(reader.recognises(path));
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    EXPECT_FALSE(reader.recognises(path));
    EXPECT_EQ(reader.initialOffset(path), start);
}

TEST_F(AiderChatReading, RecognisesAFileByItsBeginning) {
    write("# aider chat started at 2026-05-03 07:59:00\n\n> v0.86  \n");
    EXPECT_FALSE(reader.recognises(path));
    append("\n#### fix it  \n");
    EXPECT_TRUE(reader.recognises(path));
    write("\n#### 2026-05-03 08:00:00\n> fix it\n\n#### aider response\nDone.\n");
    EXPECT_FALSE(reader.recognises(path));
}

TEST_F(AiderChatReading, YieldsRecordsThatAreNoOthers) {
    write("#### fix it  \n\naider response\nDone.\n");
    later(milliseconds(2000));
    const auto reading = reader.readSince(path, start);
    ASSERT_EQ(reading.records.size(), 1U);
    EXPECT_FALSE(AiderParser().parse(reading.records[0]).has_value());
    EXPECT_TRUE(reader.parser().parse(reading.records[0]).has_value());
    for (const auto& record : AiderReader().readSince(path, start).records)
        EXPECT_FALSE(reader.parser().parse(record).has_value());
}

}  // namespace
}  // namespace sonra
