#include "ingest/GeminiLinesReader.h"

#include <gtest/gtest.h>

#include "ingest/FileTime.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string header =
    R"({"sessionId":"s","projectHash":"h","startTime":"2026-04-23T12:52:52.759Z","kind":"main"})"
    "\n";
const std::string touched = R"({"$set":{"lastUpdated":"2026-04-23T12:53:02.597Z"}})"
                            "\n";

std::string geminiReply(const std::string& id, const std::string& text) {
    return R"({"id":")" + id + R"(","timestamp":"2026-04-23T12:53:11.257Z","type":"gemini",)" +
           R"("content":")" + text + "\"}\n";
}

std::string geminiUserLine(const std::string& id) {
    return R"({"id":")" + id + R"(","type":"user","content":[{"text":"Please."}]})" + "\n";
}

std::string rewindTo(const std::string& id) {
    return R"({"$rewindTo":")" + id + "\"}\n";
}

class GeminiLines : public testing::Test {
  protected:
    /// Appends, and looks at once, as after an event; then what was said.
    void expectSaid(const std::string& appended, const std::vector<std::string>& texts) {
        test::appendFile(path, appended);
        now = test::writtenAt(path);
        expectSaidNow(texts);
    }
    void expectSaidAfterQuiet(const std::vector<std::string>& texts) {
        now += QuietFile::enough;
        expectSaidNow(texts);
    }
    void expectSaidNow(const std::vector<std::string>& texts) {
        std::vector<std::string> said;
        const auto reading = reader.readSince(path, cursor);
        cursor = cursor.advanced(reading.newOffset);
        for (const auto& record : reading.records)
            if (const auto message = reader.parser().parse(record)) said.push_back(message->text);
        EXPECT_EQ(said, texts);
    }
    bool recognises(const std::string& content) {
        test::writeFile(path, content);
        return reader.recognises(path);
    }

    test::TempDir dir;
    std::string path = dir / "session.jsonl";
    std::chrono::system_clock::time_point now;
    GeminiLinesReader reader{QuietFile([this] { return now; })};
    TailOffset cursor = TailOffset::byte(0);
};

TEST_F(GeminiLines, AReplyIsFinalWhenAnotherMessageFollows) {
    expectSaid(header + geminiReply("a", "One.") + touched, {});
    expectSaid(geminiUserLine("u"), {"One."});
    expectSaid(geminiReply("b", "Two.") + geminiReply("c", "Three."), {"Two."});
}

TEST_F(GeminiLines, AReplyIsFinalAfterQuiet) {
    expectSaid(header + geminiReply("a", "One."), {});
    expectSaidAfterQuiet({"One."});
    EXPECT_EQ(cursor, reader.initialOffset(path));
    expectSaidNow({});
}

TEST_F(GeminiLines, WhatIsStillBeingWrittenIsNotOldForWhoComesNow) {
    std::string old = header;
    for (int message = 0; message < 1000; ++message)
        old += geminiReply("old-" + std::to_string(message), "Old.");
    test::writeFile(path, old + geminiReply("b", "Half") + touched);
    now = test::writtenAt(path);
    cursor = reader.initialOffset(path);
    EXPECT_EQ(cursor, TailOffset::byte(static_cast<std::int64_t>(old.size())));
    expectSaid(geminiReply("b", "Half and half.") + touched, {});
    expectSaidAfterQuiet({"Half and half."});
    EXPECT_EQ(cursor, reader.initialOffset(path));
    expectSaid(geminiReply("c", "New.") + geminiUserLine("u"), {"New."});
    EXPECT_EQ(cursor, reader.initialOffset(path));
}

TEST_F(GeminiLines, ARepeatedIdReplacesTheEarlierMessageAndIsSaidOnce) {
    expectSaid(header + geminiReply("a", "") + touched, {});
    expectSaid(geminiReply("a", "One.") + touched, {});
    expectSaid(geminiReply("a", "One and a half.") + touched, {});
    expectSaidAfterQuiet({"One and a half."});
}

TEST_F(GeminiLines, CursorWaitsInFrontOfAReplyThatMayChange) {
    expectSaid(header + geminiUserLine("u"), {});
    const auto before = cursor;
    EXPECT_EQ(before, reader.initialOffset(path));
    expectSaid(geminiReply("a", "One."), {});
    EXPECT_EQ(cursor, before);
}

TEST_F(GeminiLines, ARewindTakesBackTheReplyThatWaits) {
    expectSaid(header + geminiUserLine("u") + geminiReply("a", "One."), {});
    expectSaid(rewindTo("u"), {});
    expectSaidAfterQuiet({});
    expectSaid(geminiUserLine("v") + geminiReply("b", "Two."), {});
    expectSaidAfterQuiet({"Two."});
}

TEST_F(GeminiLines, ASetOfMessagesReplacesTheReplyThatWaits) {
    expectSaid(header + geminiReply("a", "One."), {});
    expectSaid(R"({"$set":{"messages":[{"id":"z","type":"gemini","content":"Old."},)"
               R"({"id":"a","type":"gemini","content":"Better."}]}})"
               "\n",
               {});
    expectSaidAfterQuiet({"Better."});
    expectSaid(geminiReply("b", "Two."), {});
    expectSaid(R"({"$set":{"messages":[]}})"
               "\n",
               {});
    expectSaidAfterQuiet({});
}

TEST_F(GeminiLines, AReplyWithoutAnIdCanNotChangeAndIsFinalAtOnce) {
    expectSaid(header + R"({"type":"gemini","content":"One."})" + "\n", {"One."});
}

TEST_F(GeminiLines, LinesThatAreNoMessagesEndNothing) {
    expectSaid(header + geminiReply("a", "One."), {});
    expectSaid("nonsense\n7\n[]\n{}\n{\"$other\":1}\n" + touched, {});
    expectSaidAfterQuiet({"One."});
}

TEST_F(GeminiLines, TheSameIsSaidHoweverTheFileGrows) {
    const std::string all = header + geminiUserLine("u") + geminiReply("a", "") + touched +
                            geminiReply("a", "One.") + touched + geminiReply("b", "Two.") +
                            geminiReply("c", "Gone.") + rewindTo("c") + geminiReply("d", "Four.") +
                            geminiUserLine("w");
    std::vector<std::string> said;
    for (std::size_t at = 0; at < all.size(); at += 7) {
        test::appendFile(path, all.substr(at, 7));
        now = test::writtenAt(path);
        const auto reading = reader.readSince(path, cursor);
        cursor = reading.newOffset;
        for (const auto& record : reading.records)
            if (const auto message = reader.parser().parse(record)) said.push_back(message->text);
    }
    EXPECT_EQ(said, (std::vector<std::string>{"One.", "Two.", "Four."}));
}

TEST_F(GeminiLines, AreRecognisedByTheHeaderOrAChange) {
    EXPECT_TRUE(recognises(header));
    EXPECT_TRUE(recognises(geminiReply("a", "One.") + touched));
    EXPECT_TRUE(recognises(geminiReply("a", "One.") + rewindTo("a")));
    EXPECT_FALSE(recognises(geminiReply("a", "One.") + geminiUserLine("u")));
    EXPECT_FALSE(recognises(""));
    EXPECT_FALSE(recognises(header.substr(0, 40)));
    EXPECT_FALSE(recognises("nonsense\n"));
    EXPECT_FALSE(reader.recognises(dir / "missing.jsonl"));
}

TEST_F(GeminiLines, ADocumentIsNotAFileOfLines) {
    test::writeFile(dir / "session.json", header);
    EXPECT_FALSE(reader.recognises(dir / "session.json"));
}

}  // namespace
}  // namespace sonra
