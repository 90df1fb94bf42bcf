#include "ingest/OpenCodePartsReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>

#include "ingest/FollowedReplies.h"
#include "ingest/OpenCodeFiles.h"
#include "ingest/OpenCodeReader.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

/// "msg_a" said by the assistant; `more` is further members.
std::string message(const std::string& id, const std::string& role, const std::string& more = "") {
    return R"({"id":")" + id + R"(","role":")" + role + "\"" + more + "}";
}
const std::string complete = R"(,"time":{"created":1,"completed":2})";
const std::string ended = R"(,"time":{"start":1,"end":2})";

std::string part(const std::string& id, const std::string& text, const std::string& more = "") {
    return R"({"id":")" + id + R"(","type":"text","text":")" + text + "\"" + more + "}";
}

class OpenCodeParts : public testing::Test {
  protected:
    void writeMessage(const std::string& id, std::int64_t ms, const std::string& content) const {
        test::writeFileAt(session + "/" + id + ".json", ms, content);
    }
    void writePart(const std::string& messageId, const std::string& id, std::int64_t ms,
                   const std::string& content) const {
        test::writeFileAt(dir / ("storage/part/" + messageId + "/" + id + ".json"), ms, content);
    }
    /// A complete message of one part.
    void writeReply(const std::string& id, std::int64_t ms, const std::string& text) const {
        writePart(id, "prt_" + id, ms, part("prt_" + id, text, ended));
        writeMessage(id, ms, message(id, "assistant", complete));
    }
    std::vector<HistoryMessage> follow() { return test::followedMessages(reader, session, cursor); }
    /// "id: text" of what a read speaks.
    std::vector<std::string> followed() { return test::asLines(follow()); }
    using Lines = std::vector<std::string>;

    test::TempDir dir;
    const std::string session = dir / "storage/message/ses_1";
    system_clock::time_point now{milliseconds(1'000'000)};
    const OpenCodePartsReader reader{[this] { return now; }};
    TailOffset cursor = TailOffset::unixMs(0);
};

TEST_F(OpenCodeParts, SpeakTheTextsOfAMessageInOrder) {
    writePart("msg_a", "prt_1", 1000, R"({"type":"step-start"})");
    writePart("msg_a", "prt_3", 1000, part("prt_3", "Second.", ended));
    writePart("msg_a", "prt_2", 1000, part("prt_2", " First.\\n", ended));
    writePart("msg_a", "prt_4", 1000, R"({"type":"reasoning","text":"Hmm.","time":{"end":1}})");
    writeMessage("msg_a", 1100, message("msg_a", "assistant", complete));
    EXPECT_EQ(followed(), (Lines{"msg_a: First.", "prt_3: Second."}));
    EXPECT_EQ(followed(), Lines{});
    EXPECT_EQ(cursor, reader.initialOffset(session));
}

TEST_F(OpenCodeParts, LeaveOutWhatTheAgentAdded) {
    writePart("msg_a", "prt_1", 1000, part("prt_1", "Called a tool.", R"(,"synthetic":true)"));
    writePart("msg_a", "prt_2", 1000, part("prt_2", "Hidden.", R"(,"ignored":true)"));
    writePart("msg_a", "prt_3", 1000, part("prt_3", " \\n"));
    writePart("msg_a", "prt_4", 1000, part("prt_4", "Words."));
    writeMessage("msg_a", 1000, message("msg_a", "assistant", complete));
    EXPECT_EQ(followed(), Lines{"msg_a: Words."});
}

/// As an agent rewrites it in its place.
TEST_F(OpenCodeParts, WaitForAMessageThatIsHalfWritten) {
    const auto whole = message("msg_a", "assistant", complete);
    writePart("msg_a", "prt_a", 1000, part("prt_a", "One.", ended));
    writeReply("msg_b", 1200, "Two.");
    for (const auto& half : {whole.substr(0, whole.size() / 2), std::string()}) {
        writeMessage("msg_a", 1100, half);
        now = system_clock::time_point(milliseconds(1300));
        EXPECT_EQ(followed(), Lines{});
        EXPECT_EQ(cursor, TailOffset::unixMs(0));
    }
    writeMessage("msg_a", 1400, whole);
    now = system_clock::time_point(milliseconds(1500));
    EXPECT_EQ(followed(), (Lines{"msg_a: One.", "msg_b: Two."}));
    EXPECT_EQ(cursor, reader.initialOffset(session));
}

TEST_F(OpenCodeParts, GoOnWithoutAMessageThatStaysHalfWritten) {
    const auto whole = message("msg_a", "assistant", complete);
    writePart("msg_a", "prt_a", 1000, part("prt_a", "One.", ended));
    writeMessage("msg_a", 1100, whole.substr(0, whole.size() / 2));
    now = system_clock::time_point(milliseconds(1100) + OpenCodePartsReader::patience);
    EXPECT_EQ(followed(), Lines{});
    EXPECT_EQ(cursor, TailOffset::unixMs(0)) << "it can be heard yet";
    writeReply("msg_b", 1200, "Two.");
    EXPECT_EQ(followed(), Lines{"msg_b: Two."});
    EXPECT_EQ(followed(), Lines{});
}

TEST_F(OpenCodeParts, SpeakNothingOfUsersAndSummaries) {
    writePart("msg_a", "prt_1", 1000, part("prt_1", "A question.", ended));
    writeMessage("msg_a", 1000, message("msg_a", "user"));
    writePart("msg_b", "prt_2", 1000, part("prt_2", "What was said so far.", ended));
    writeMessage("msg_b", 1000, message("msg_b", "assistant", complete + R"(,"summary":true)"));
    EXPECT_EQ(followed(), Lines{});
}

TEST_F(OpenCodeParts, WaitUntilAPartIsComplete) {
    const std::string begun = R"(,"time":{"start":1})";
    writeMessage("msg_a", 1000, message("msg_a", "assistant", R"(,"time":{"created":1})"));
    writePart("msg_a", "prt_1", 2000, part("prt_1", "Half a sent", begun));
    EXPECT_EQ(followed(), Lines{});
    writePart("msg_a", "prt_1", 3000, part("prt_1", "Half a sentence", begun));
    EXPECT_EQ(followed(), Lines{});
    writePart("msg_a", "prt_1", 4000, part("prt_1", "Half a sentence no more.", ended));
    EXPECT_EQ(followed(), Lines{"msg_a: Half a sentence no more."});
    // The tools of the message have run; nothing is said again.
    writeMessage("msg_a", 5000, message("msg_a", "assistant", complete));
    EXPECT_EQ(followed(), Lines{});
}

TEST_F(OpenCodeParts, AreCompleteWithTheirMessage) {
    writePart("msg_a", "prt_1", 1000, part("prt_1", "Words."));
    writeMessage("msg_a", 1000, message("msg_a", "assistant", R"(,"time":{"created":1})"));
    EXPECT_EQ(followed(), Lines{});
    writeMessage("msg_a", 2000, message("msg_a", "assistant", complete));
    EXPECT_EQ(followed(), Lines{"msg_a: Words."});
}

TEST_F(OpenCodeParts, AreSpokenOnlyIfTheyCameAfterTheAttaching) {
    writeReply("msg_a", 1000, "Old.");
    writeMessage("msg_b", 1500, message("msg_b", "assistant"));
    writePart("msg_b", "prt_1", 2000, part("prt_1", "Seen.", ended));
    cursor = reader.initialOffset(session);
    EXPECT_EQ(cursor, TailOffset::unixMs(2000));
    EXPECT_EQ(followed(), Lines{});
    writePart("msg_b", "prt_2", 2500, part("prt_2", "New.", ended));
    EXPECT_EQ(followed(), Lines{"prt_2: New."});
}

TEST_F(OpenCodeParts, OfManyMessagesAreSpokenInOrder) {
    Lines expected;
    for (int i = 10; i < 30; ++i) {
        const std::string id = "msg_" + std::to_string(i);
        writeReply(id, 1000 + i, "Reply " + std::to_string(i));
        expected.push_back(id + ": Reply " + std::to_string(i));
    }
    EXPECT_EQ(followed(), expected);
}

TEST_F(OpenCodeParts, OfTheSameMomentAreNotLost) {
    const std::int64_t justNow = 1'000'000 - 5;
    writeReply("msg_a", justNow, "One.");
    EXPECT_EQ(followed(), Lines{});
    writeReply("msg_b", justNow, "Two.");
    now += OpenCodePartsReader::moment;
    EXPECT_EQ(followed(), (Lines{"msg_a: One.", "msg_b: Two."}));
}

TEST_F(OpenCodeParts, OfTheFutureAreNotWaitedFor) {
    writeReply("msg_a", 2'000'000, "One.");
    EXPECT_EQ(followed(), Lines{"msg_a: One."});
}

TEST_F(OpenCodeParts, InTheMiddleOfARewriteAreReadLater) {
    writeMessage("msg_a", 1000, message("msg_a", "assistant"));
    writePart("msg_a", "prt_1", 1500, R"({"type":"text","te)");
    EXPECT_EQ(followed(), Lines{});
    writePart("msg_a", "prt_1", 1600, part("prt_1", "Words.", ended));
    EXPECT_EQ(followed(), Lines{"msg_a: Words."});
}

TEST_F(OpenCodeParts, StandBesideMessagesThatHoldTheirText) {
    writeReply("msg_a", 1000, "Of a part.");
    writeMessage("msg_b", 2000, message("msg_b", "assistant", R"(,"content":"Of its own.")"));
    EXPECT_EQ(followed(), (Lines{"msg_a: Of a part.", "msg_b: Of its own."}));
    EXPECT_EQ(followed(), Lines{});
}

TEST_F(OpenCodeParts, AreNamedByTheirFilesWithoutAnId) {
    writePart("msg_a", "prt_1", 1000, R"({"type":"text","text":"One.","time":{"end":1}})");
    writePart("msg_a", "prt_2", 1000, R"({"type":"text","text":"Two.","time":{"end":1}})");
    writeMessage("msg_a", 1000, R"({"role":"assistant"})");
    EXPECT_EQ(followed(), (Lines{"msg_a: One.", "prt_2: Two."}));
}

TEST_F(OpenCodeParts, OfASubAgentAreItsOwnSessions) {
    writeReply("msg_a", 1000, "Mine.");
    writePart("msg_z", "prt_z", 1000, part("prt_z", "The sub-agent's.", ended));
    test::writeFileAt(dir / "storage/message/ses_2/msg_z.json", 1000,
                      message("msg_z", "assistant", complete));
    EXPECT_EQ(followed(), Lines{"msg_a: Mine."});
}

TEST_F(OpenCodeParts, HaveNamesThatAreNotUtf8) {
    writePart("\xFF", "\xFE", 1000, part("prt_1", "Words.", ended));
    writeMessage("\xFF", 1000, message("msg_a", "assistant", complete));
    EXPECT_TRUE(reader.recognises(session));
    EXPECT_EQ(followed(), Lines{"msg_a: Words."});
}

TEST_F(OpenCodeParts, MayVanishMeanwhile) {
    writeReply("msg_a", 1000, "Words.");
    std::filesystem::remove_all(dir / "storage/part/msg_a");
    writePart("msg_b", "prt_b", 1500, "");
    std::filesystem::create_symlink("nowhere", session + "/msg_c.json");
    EXPECT_EQ(followed(), Lines{});
    std::filesystem::remove_all(session);
    const auto before = cursor;
    EXPECT_EQ(followed(), Lines{});
    EXPECT_EQ(cursor, before);
    EXPECT_EQ(reader.initialOffset(session), TailOffset::unixMs(0));
}

TEST_F(OpenCodeParts, MakeTheShapeOfASession) {
    EXPECT_FALSE(reader.recognises(session));
    writeMessage("msg_a", 1000, message("msg_a", "user"));
    EXPECT_FALSE(reader.recognises(session));
    writePart("msg_other", "prt_1", 1000, part("prt_1", "Words."));
    EXPECT_FALSE(reader.recognises(session));
    writePart("msg_a", "prt_2", 1000, part("prt_2", "Words."));
    EXPECT_TRUE(reader.recognises(session));
    EXPECT_TRUE(reader.recognises(session + "/"));
}

TEST_F(OpenCodeParts, AreNoMessagesToTheOriginalParser) {
    writeReply("msg_a", 1000, "Words.");
    for (const auto& record : reader.readSince(session, cursor).records)
        EXPECT_FALSE(OpenCodeParser().parse(record).has_value());
    for (const auto& record : OpenCodeReader().readSince(session, cursor).records)
        EXPECT_FALSE(reader.parser().parse(record).has_value());
}

}  // namespace
}  // namespace sonra
