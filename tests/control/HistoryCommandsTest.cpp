#include "control/Fixture.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

using State = MessageHistoryQueueState;

class HistoryCommands : public test::CoordinatorTest {
  protected:
    void send(const Json& message) {
        coordinator->handleIPC(message);
        loop.runPosted();
    }
    /// Five messages m1 to m5, each in a turn of its own.
    void hearFive() {
        for (int i = 1; i <= 5; ++i) {
            playMessage("m" + std::to_string(i), "words");
            send({{"cmd", "skip"}});
        }
    }
    /// A move waits only a moment for messages that are still being read.
    void untilRead(const std::string& oldest, int total) {
        auto& history = coordinator->history();
        ASSERT_TRUE(loop.runUntil([&] { return history.stableTotalKnown() == total; }));
        ASSERT_TRUE(loop.runUntil([&] { return history.historyText(oldest).has_value(); }));
    }
    [[nodiscard]] int index() const {
        const auto* history = std::get_if<State::History>(&coordinator->history().state().cursor);
        return history == nullptr ? 0 : history->messageIndex;
    }
    [[nodiscard]] std::string heardMessage() const {
        const auto& chunk = coordinator->queue().currentChunk();
        return chunk ? chunk->messageId : "";
    }
    [[nodiscard]] Json snapshot() const {
        return json::parse(test::readFile(home.shared() + "/now-playing.json")).value_or(Json());
    }
};

TEST_F(HistoryCommands, AScrubLandsWhereItWasToldHoweverLongAgoTheLastWas) {
    start();
    hearFive();
    send({{"cmd", "scrub"}, {"index", 3}});
    EXPECT_EQ(index(), 3);
    EXPECT_EQ(heardMessage(), "m2");
    loop.advance(std::chrono::milliseconds(1700));
    send({{"cmd", "scrub"}, {"index", 1}});
    EXPECT_EQ(index(), 1);
    EXPECT_EQ(heardMessage(), "m4");
    send({{"cmd", "scrub"}, {"index", 0}});
    EXPECT_TRUE(std::holds_alternative<State::Live>(coordinator->history().state().cursor));
    EXPECT_EQ(heardMessage(), "");
    send({{"cmd", "scrub"}, {"index", 10'000}});
    EXPECT_EQ(index(), 4);
    EXPECT_EQ(heardMessage(), "m1");
    send({{"cmd", "scrub"}});
    EXPECT_EQ(index(), 0);
}

TEST_F(HistoryCommands, AScrubWithoutHistoryDoesNothing) {
    start();
    send({{"cmd", "scrub"}, {"index", 3}});
    send({{"cmd", "scrub"}, {"index", "3"}});
    EXPECT_TRUE(std::holds_alternative<State::Idle>(coordinator->history().state().cursor));
    EXPECT_TRUE(players.calls().empty());
}

TEST_F(HistoryCommands, AScrubStaysWithinTheSessionInFocus) {
    start();
    playMessage("a1", "words", "sA");
    playMessage("b1", "words", "sB");
    playMessage("a2", "words", "sA");
    for (int i = 0; i < 3; ++i) send({{"cmd", "skip"}});
    send({{"cmd", "scrub"}, {"index", 1}});
    EXPECT_EQ(heardMessage(), "a1");
    send({{"cmd", "scrub"}, {"index", 5}});
    EXPECT_EQ(index(), 1);
}

TEST_F(HistoryCommands, PreviousAndNextMoveByMessages) {
    start();
    hearFive();
    send({{"cmd", "previous"}});
    EXPECT_EQ(heardMessage(), "m4");
    send({{"cmd", "previous"}});
    EXPECT_EQ(heardMessage(), "m3");
    send({{"cmd", "next"}});
    EXPECT_EQ(heardMessage(), "m4");
    send({{"cmd", "next"}});
    EXPECT_EQ(heardMessage(), "m5");
    EXPECT_TRUE(std::holds_alternative<State::Live>(coordinator->history().state().cursor));
}

TEST_F(HistoryCommands, TheSnapshotTellsWhereTheListenerStands) {
    start();
    hearFive();
    send({{"cmd", "scrub"}, {"index", 2}});
    EXPECT_EQ(snapshot()["cursor"], (Json{{"kind", "history"},
                                          {"messageIndex", 2},
                                          {"totalKnown", 5},
                                          {"chunkIndex", 0},
                                          {"totalChunks", 1}}));
    EXPECT_EQ(snapshot()["sessionId"], "s1");
}

TEST_F(HistoryCommands, ClearForgetsTheHistoryToo) {
    start();
    hearFive();
    send({{"cmd", "clear"}});
    EXPECT_TRUE(std::holds_alternative<State::Idle>(coordinator->history().state().cursor));
    send({{"cmd", "previous"}});
    EXPECT_EQ(heardMessage(), "");
    EXPECT_EQ(remote.retirements, 1);
}

TEST_F(HistoryCommands, AMessageThatNobodyHeardIsSpokenAnew) {
    const auto transcript = makeTranscript("s1", "/p");
    for (int i = 1; i <= 3; ++i)
        test::appendFile(transcript,
                         test::assistantLine("old" + std::to_string(i), "Words of an earlier day"));
    test::appendFile(transcript, test::assistantLine("last", "ok"));
    start();
    coordinator->attachSession("s1", "/p");
    playMessage("new", "fresh words");
    ASSERT_NO_FATAL_FAILURE(untilRead("old1", 5));
    send({{"cmd", "scrub"}, {"index", 3}});
    EXPECT_EQ(index(), 3);
    EXPECT_EQ(*caption().chunkText, "Words of an earlier day");
    EXPECT_TRUE(loop.runUntil([&] { return heardMessage() == "old2"; }));
    send({{"cmd", "scrub"}, {"index", 0}});
    // A second visit finds it kept.
    send({{"cmd", "scrub"}, {"index", 3}});
    EXPECT_EQ(heardMessage(), "old2");
    EXPECT_EQ(log.count("resynth done"), 1U);
}

class VoidedResolve : public HistoryCommands, public testing::WithParamInterface<const char*> {};

TEST_P(VoidedResolve, ANewerMoveVoidsASpeakingThatIsUnderWay) {
    // A voice that begins and never ends by itself.
    test::writeFile(voiceLauncher, "#!/bin/sh\n[ -z \"$5\" ] || { touch '" + (home / "begun") +
                                       "'; exec sleep 1000; }\n");
    const auto transcript = makeTranscript("s1", "/p");
    test::appendFile(transcript, test::assistantLine("old", "Words of an earlier day"));
    test::appendFile(transcript, test::assistantLine("last", "ok"));
    start();
    coordinator->attachSession("s1", "/p");
    playMessage("new", "fresh words");
    ASSERT_NO_FATAL_FAILURE(untilRead("old", 3));
    send({{"cmd", "scrub"}, {"index", 2}});
    ASSERT_TRUE(loop.runUntil([&] { return std::filesystem::exists(home / "begun"); }));
    log.expect("resynth produced no audio");
    send(Json::parse(GetParam()));
    // The voice is ended, not waited for.
    ASSERT_TRUE(loop.runUntil([&] { return log.count("resynth produced no audio") == 1; }));
    loop.advance(std::chrono::seconds(1));
    EXPECT_NE(heardMessage(), "old");
    EXPECT_EQ(coordinator->queue().queuedCount(), 0U);
}

INSTANTIATE_TEST_SUITE_P(HistoryCommands, VoidedResolve,
                         testing::Values(R"({"cmd":"scrub","index":0})", R"({"cmd":"stop"})",
                                         R"({"cmd":"clear"})"),
                         [](const auto& which) {
                             const auto message = Json::parse(which.param);
                             return message["cmd"].template get<std::string>();
                         });

TEST_F(HistoryCommands, TheMessageBeforeAnAttachIsSpokenOnceAsAProof) {
    const auto transcript = makeTranscript("s1", "/p");
    test::appendFile(transcript, test::assistantLine("before", "What was said just before"));
    start();
    coordinator->attachSession("s1", "/p");
    ASSERT_TRUE(waitForPlays(1));
    EXPECT_EQ(heardMessage(), "before");
    reply(transcript, "before", "What was said just before");
    reply(transcript, "after", "What was said after it");
    ASSERT_TRUE(loop.runUntil([&] { return log.count("chunk enqueued") == 2; }));
    send({{"cmd", "skip"}});
    EXPECT_EQ(heardMessage(), "after");
    loop.advance(std::chrono::seconds(1));
    EXPECT_EQ(log.count("chunk enqueued"), 2U);
}

TEST_F(HistoryCommands, SkippingForAMinuteLeavesTheCursorRight) {
    start();
    hearFive();
    for (int i = 0; i < 3000; ++i) {
        send({{"cmd", i % 7 < 4 ? "previous" : "next"}});
        loop.advance(std::chrono::milliseconds(20));
        ASSERT_LE(index(), 4);
        if (index() > 0) {
            ASSERT_EQ(heardMessage(), "m" + std::to_string(5 - index()));
        }
    }
}

}  // namespace
}  // namespace sonra
