#include "control/Fixture.h"

namespace sonra {
namespace {

using Phase = NarrationStatus::Phase;

class Captions : public test::CoordinatorTest {
  protected:
    void send(const Json& message) { coordinator->handleIPC(message); }
};

TEST_F(Captions, AChunkShowsItsWordsAndItsPlaceInTheTurn) {
    writeDocument({{"captions", true}});
    start();
    playMessage("m1", "first words");
    playMessage("m2", "more");
    EXPECT_EQ(*caption().chunkText, "first words");
    EXPECT_EQ(*caption().status, (NarrationStatus{Phase::playing}));
    EXPECT_TRUE(panel->isVisible());
    send({{"cmd", "skip"}});
    loop.runPosted();
    EXPECT_EQ(*caption().chunkText, "more");
    EXPECT_EQ(*caption().chunkIndex, 2);
    EXPECT_EQ(*caption().chunkTotal, 2);
}

TEST_F(Captions, FollowTheSettingAtEachTick) {
    start();
    EXPECT_FALSE(panel->isVisible());
    writeDocument({{"captions", true}});
    loop.advance(stateTick);
    EXPECT_TRUE(panel->isVisible());
    writeDocument({{"captions", false}});
    loop.advance(stateTick);
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(Captions, ProgressLightsUpTheWords) {
    start();
    playMessage("m1", "the quick brown fox jumps");
    loop.advance(std::chrono::milliseconds(1100));
    ASSERT_TRUE(*caption().activeWordRange);
    EXPECT_EQ(*caption().activeWordRange, (TextRange{10, 15}));
    EXPECT_NEAR(*caption().progress, 0.55, 0.05);
}

TEST_F(Captions, ThePanelsButtonsMoveThroughTheConversation) {
    start();
    playMessage("m1", "one");
    send({{"cmd", "skip"}});
    playMessage("m2", "two");
    caption().onPlayPause();
    EXPECT_TRUE(coordinator->queue().paused());
    EXPECT_TRUE(*caption().isPaused);
    EXPECT_EQ(document()["paused"], true);
    caption().onPlayPause();
    EXPECT_FALSE(coordinator->queue().paused());
    caption().onPrev();
    loop.runPosted();
    EXPECT_EQ(*caption().chunkText, "one");
    EXPECT_EQ(*caption().liveIndicator, (LiveIndicator{LiveIndicator::History{1, 2}}));
    caption().onJumpToLive();
    loop.runPosted();
    EXPECT_EQ(*caption().liveIndicator, (LiveIndicator{LiveIndicator::Live{}}));
    EXPECT_EQ(coordinator->queue().current(), nullptr);
}

TEST_F(Captions, DraggingTheBarSeeksInTheChunk) {
    start();
    playMessage("m1", "one");
    caption().onScrub(0.5);
    EXPECT_NEAR(coordinator->queue().current()->currentTime(), 1.0, 0.01);
}

TEST_F(Captions, ClosingThePanelTurnsTheSettingOff) {
    writeDocument({{"captions", true}});
    start();
    ASSERT_TRUE(panel->isVisible());
    panel->pressClose();
    EXPECT_FALSE(panel->isVisible());
    EXPECT_EQ(document()["captions"], false);
    // That is no wish for all time: the next attach opens it.
    makeTranscript("s1", "/p");
    coordinator->attachSession("s1", "/p");
    EXPECT_TRUE(panel->isVisible());
}

TEST_F(Captions, AnotherProgramsSynthesisIsShownEachTimeItBegins) {
    start();
    writeDocument({{"synthesizing", true}});
    loop.advance(stateTick);
    EXPECT_EQ(*caption().chunkText, "Synthesizing…");
    playMessage("m1", "words");
    EXPECT_EQ(*caption().chunkText, "words");
    EXPECT_EQ(document()["synthesizing"], false);
    writeDocument({{"synthesizing", true}});
    loop.advance(stateTick);
    EXPECT_EQ(*caption().chunkText, "Synthesizing…");
}

TEST_F(Captions, TheColoursAreThoseOfTheFirstAgentThatIsNamed) {
    start();
    writeDocument({{"sessions", {{{"id", "a"}, {"cwd", "/p"}}, {{"id", "b"}, {"source", "codex"}}}},
                   {"discoveredSessions", {{{"sessionId", "c"}, {"source", "gemini"}}}}});
    loop.advance(stateTick);
    EXPECT_EQ(caption().theme->id, "codex");
    writeDocument({{"sessions", {{{"id", "a"}, {"cwd", "/work/app/"}, {"branch", "main"}}}},
                   {"discoveredSessions", {{{"sessionId", "c"}, {"source", "gemini"}}}}});
    loop.advance(stateTick);
    EXPECT_EQ(caption().theme->id, "gemini");
    EXPECT_EQ(*caption().sessionLabel, "app · main");
}

TEST_F(Captions, TheBadgeCountsWhatCameWhileTheListenerWasBack) {
    start();
    playMessage("m1", "one");
    playMessage("m2", "two");
    coordinator->handleIPC({{"cmd", "scrub"}, {"index", 1}});
    playMessage("m3", "three");
    playMessage("m4", "four");
    EXPECT_EQ(*caption().newLiveCount, 2);
    caption().onJumpToLive();
    loop.runPosted();
    EXPECT_EQ(*caption().newLiveCount, 0);
}

TEST_F(Captions, ANewAttachOpensThemUnlessTheUserTurnedThemOff) {
    makeTranscript("s1", "/p");
    makeTranscript("s2", "/p");
    makeTranscript("s3", "/p");
    start();
    coordinator->attachSession("s1", "/p");
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(document()["captions"], true);
    statusItem.row("captions").onClick();
    EXPECT_FALSE(panel->isVisible());
    coordinator->attachSession("s2", "/p");
    EXPECT_FALSE(panel->isVisible());
    EXPECT_EQ(document()["captions"], false);
    coordinator->detachSessionLocal("s2");
    coordinator->attachSession("s3", "/p");
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(document()["captions"], true);
}

TEST_F(Captions, AnErrorIsShownAndClearedFourSecondsAfterItAppeared) {
    start();
    writeDocument({{"lastSpeakError", "no voice"}});
    loop.advance(stateTick);
    EXPECT_EQ(*caption().chunkText, "no voice");
    EXPECT_TRUE(panel->isVisible());
    loop.advance(stateTick);
    loop.advance(stateTick);
    EXPECT_EQ(document()["lastSpeakError"], "no voice");
    loop.advance(stateTick);
    EXPECT_EQ(document()["lastSpeakError"], "");
}

TEST_F(Captions, SpeechThatAnotherProgramMakesIsAnnounced) {
    start();
    writeDocument({{"synthesizing", true}});
    loop.advance(stateTick);
    EXPECT_EQ(*caption().chunkText, "Synthesizing…");
    playMessage("m1", "words");
    EXPECT_EQ(*caption().chunkText, "words");
    EXPECT_EQ(document()["synthesizing"], false);
}

TEST_F(Captions, TheSocketSetsAndShowsThem) {
    start();
    send({{"cmd", "show"}});
    EXPECT_TRUE(panel->isVisible());
    send({{"cmd", "set"}, {"text", "one two"}});
    EXPECT_EQ(*caption().chunkText, "one two");
    send({{"cmd", "set"}, {"text", 7}});
    EXPECT_EQ(*caption().chunkText, "one two");
    send({{"cmd", "highlight"}, {"progress", 0.99}});
    EXPECT_EQ(*caption().activeWordRange, (TextRange{4, 7}));
    send({{"cmd", "highlight"}, {"progress", "0"}});
    EXPECT_EQ(*caption().activeWordRange, (TextRange{4, 7}));
    send({{"cmd", "hide"}});
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(Captions, WearTheColoursOfTheFirstAttachedAgentThenOfTheFirstFound) {
    writeDocument({{"discoveredSessions", {{{"sessionId", "d"}, {"source", "gemini"}}}}});
    start();
    EXPECT_EQ(caption().theme->id, "gemini");
    writeDocument(
        {{"sessions",
          {{{"id", "a"}, {"cwd", "/work/app"}, {"source", "codex"}, {"branch", "main"}}}}});
    loop.advance(stateTick);
    EXPECT_EQ(caption().theme->id, "codex");
    EXPECT_EQ(*caption().sessionLabel, "app · main");
    writeDocument(Json::object());
    loop.advance(stateTick);
    EXPECT_EQ(caption().theme->id, "claude-code");
}

TEST_F(Captions, APauseCountsWhatWaits) {
    start();
    playMessage("m1", "one");
    send({{"cmd", "pause"}});
    EXPECT_EQ(*caption().status, NarrationStatus::paused(0));
    playMessage("m2", "two");
    EXPECT_EQ(*caption().status, NarrationStatus::paused(1));
    send({{"cmd", "resume"}});
    EXPECT_EQ(*caption().status, (NarrationStatus{Phase::playing}));
    send({{"cmd", "stop"}});
    EXPECT_EQ(*caption().status, (NarrationStatus{Phase::idle}));
}

}  // namespace
}  // namespace sonra
