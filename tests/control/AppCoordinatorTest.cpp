#include "control/Fixture.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

class Coordinator : public test::CoordinatorTest {
  protected:
    void send(const Json& message) { coordinator->handleIPC(message); }
    void play(const std::string& name) {
        test::writeFile(home / name, "sound");
        send({{"cmd", "play"}, {"wav", home / name}, {"text", "words of " + name}});
    }
    Json snapshot() const {
        return json::parse(test::readFile(home.shared() + "/now-playing.json")).value_or(Json());
    }
};

TEST_F(Coordinator, TickFollowsVolumeMuteAndPause) {
    start();
    writeDocument({{"volume", 40}, {"muted", true}, {"paused", true}});
    loop.advance(stateTick);
    EXPECT_FLOAT_EQ(coordinator->queue().volume(), 0.4F);
    EXPECT_TRUE(coordinator->queue().muted());
    EXPECT_TRUE(coordinator->queue().paused());
    writeDocument({});
    loop.advance(stateTick);
    EXPECT_FLOAT_EQ(coordinator->queue().volume(), 1.0F);
    EXPECT_FALSE(coordinator->queue().muted());
    EXPECT_FALSE(coordinator->queue().paused());
}

TEST_F(Coordinator, StartTakesTheDocumentIntoAccountAtOnce) {
    writeDocument({{"volume", 10}, {"paused", true}});
    start();
    EXPECT_FLOAT_EQ(coordinator->queue().volume(), 0.1F);
    EXPECT_TRUE(coordinator->queue().paused());
}

TEST_F(Coordinator, UnreadableDocumentGivesTheDefaults) {
    writeDocument({{"volume", 20}, {"paused", true}});
    start();
    EXPECT_FLOAT_EQ(coordinator->queue().volume(), 0.2F);
    test::writeFile(ServiceState::path(), "{ not json");
    loop.advance(stateTick);
    EXPECT_FLOAT_EQ(coordinator->queue().volume(), 1.0F);
    EXPECT_FALSE(coordinator->queue().paused());
}

TEST_F(Coordinator, PlayWithoutAFileAddsNothing) {
    start();
    send({{"cmd", "play"}});
    send({{"cmd", "play"}, {"wav", 7}, {"messageId", "m"}});
    EXPECT_TRUE(players.calls().empty());
    EXPECT_TRUE(coordinator->history().live().ids().empty());
    EXPECT_EQ(coordinator->history().state(), MessageHistoryQueueState());
}

TEST_F(Coordinator, PlayedChunkIsEphemeralWhateverTheSenderSays) {
    start();
    test::writeFile(home / "a.wav", "sound");
    send({{"cmd", "play"}, {"wav", home / "a.wav"}, {"ephemeral", false}});
    ASSERT_TRUE(coordinator->queue().currentChunk());
    EXPECT_EQ(*coordinator->queue().currentChunk(),
              (AudioChunk{home / "a.wav", "", "Claude", "TTS", "", "", "", true}));
    send({{"cmd", "skip"}});
    EXPECT_FALSE(std::filesystem::exists(home / "a.wav"));
}

TEST_F(Coordinator, PlayTakesItsWordsFromTheMessage) {
    log.expect("ring copy failed; message will be cold on replay");
    start();
    send({{"cmd", "play"},
          {"wav", "/x.wav"},
          {"text", "T"},
          {"title", "A"},
          {"artist", "B"},
          {"snippet", "S"},
          {"sessionId", "s"},
          {"messageId", "m"}});
    EXPECT_EQ(*coordinator->queue().currentChunk(),
              (AudioChunk{"/x.wav", "T", "A", "B", "S", "s", "m", true}));
}

TEST_F(Coordinator, PauseResumeAndToggleActAtOnceAndAreWritten) {
    start();
    play("a.wav");
    send({{"cmd", "pause"}});
    EXPECT_FALSE(coordinator->queue().isCurrentlyPlaying());
    EXPECT_EQ(document()["paused"], true);
    send({{"cmd", "resume"}});
    EXPECT_TRUE(coordinator->queue().isCurrentlyPlaying());
    EXPECT_EQ(document()["paused"], false);
    send({{"cmd", "toggle"}});
    EXPECT_EQ(document()["paused"], true);
    send({{"cmd", "toggle"}});
    EXPECT_EQ(document()["paused"], false);
}

TEST_F(Coordinator, PauseOfAPausedQueueWritesNothing) {
    start();
    send({{"cmd", "pause"}});
    std::filesystem::remove(ServiceState::path());
    send({{"cmd", "pause"}});
    EXPECT_FALSE(std::filesystem::exists(ServiceState::path()));
}

TEST_F(Coordinator, SkipGoesOnAndRestartGoesBack) {
    start();
    play("a.wav");
    play("b.wav");
    send({{"cmd", "skip"}});
    EXPECT_EQ(coordinator->queue().currentChunk()->url, home / "b.wav");
    loop.advance(std::chrono::seconds(1));
    EXPECT_GT(coordinator->queue().current()->currentTime(), 0.9);
    send({{"cmd", "restart"}});
    EXPECT_LT(coordinator->queue().current()->currentTime(), 0.1);
}

TEST_F(Coordinator, ClearAndStopEmptyTheQueue) {
    start();
    for (const auto* command : {"clear", "stop"}) {
        play("a.wav");
        play("b.wav");
        send({{"cmd", command}});
        EXPECT_FALSE(coordinator->queue().currentChunk());
        EXPECT_EQ(coordinator->queue().queuedCount(), 0U);
        EXPECT_FALSE(std::filesystem::exists(home / "b.wav"));
    }
}

TEST_F(Coordinator, VolumeIsHeldWithinItsRangeAndWritten) {
    start();
    for (const auto& [value, percent] :
         {std::pair{Json(30), 30}, {Json(-5), 0}, {Json(150), 100}, {Json(70.0), 70}}) {
        send({{"cmd", "volume"}, {"value", value}});
        EXPECT_EQ(document()["volume"], percent);
        EXPECT_FLOAT_EQ(coordinator->queue().volume(), static_cast<float>(percent) / 100);
    }
    for (const auto& wrong : {Json("20"), Json(true), Json(20.5), Json()})
        send({{"cmd", "volume"}, {"value", wrong}});
    EXPECT_EQ(document()["volume"], 70);
}

TEST_F(Coordinator, UnknownAndNamelessCommandsAreIgnored) {
    start();
    for (const auto& message :
         {Json{{"cmd", "dance"}}, Json{{"cmd", 7}}, Json{{"cmd", "PAUSE"}}, Json::object(),
          Json{{"cmd", "search"}}, Json{{"cmd", "inject"}, {"text", "x"}}})
        send(message);
    EXPECT_EQ(document(), Json::object());
    EXPECT_TRUE(players.calls().empty());
}

TEST_F(Coordinator, QuitEndsTheProcessWithZero) {
    start();
    send({{"cmd", "quit"}});
    EXPECT_EQ(exits, std::vector<int>{0});
}

TEST_F(Coordinator, ChunkStartEndsAReadAloudSynthesisAndFillsTheSnippet) {
    writeDocument({{"synthesizing", true}, {"other", 1}});
    start();
    play("a.wav");
    EXPECT_EQ(document(), (Json{{"synthesizing", false}, {"other", 1}}));
    loop.advance(std::chrono::seconds(1));
    EXPECT_EQ(snapshot()["snippet"], "words of a.wav");
}

TEST_F(Coordinator, SnippetOfAWordlessChunkIsItsAlbumLine) {
    log.expect("ring copy failed; message will be cold on replay");
    start();
    send({{"cmd", "play"}, {"wav", "/x.wav"}, {"snippet", "an album line"}});
    loop.advance(std::chrono::seconds(1));
    EXPECT_EQ(snapshot()["snippet"], "an album line");
}

TEST_F(Coordinator, SnapshotTellsThatSpeechIsBeingMade) {
    const auto transcript = makeTranscript("s1", "/p");
    const auto gate = home / "gate";
    test::writeFile(voiceLauncher, "#!/bin/sh\n[ -z \"$5\" ] && exit\nwhile [ ! -e " + gate +
                                       " ]; do sleep 0.01; done\ncp \"$4\" \"$5\"\n");
    start();
    coordinator->attachSession("s1", "/p");
    reply(transcript, "m1", "A reply that takes its time");
    const auto tells = [&](bool synthesizing) {
        return loop.runUntil([&] {
            loop.advance(std::chrono::milliseconds(1));
            return snapshot()["synthesizing"] == synthesizing;
        });
    };
    EXPECT_TRUE(tells(true));
    test::writeFile(gate, "");
    EXPECT_TRUE(waitForPlays(1));
    EXPECT_TRUE(tells(false));
}

TEST_F(Coordinator, WithoutTheControlToolNothingIsWarmedAhead) {
    useResidentWorker();
    start();
    makeTranscript("s1", "/p");
    coordinator->attachSession("s1", "/p");
    pool.drain();
    EXPECT_FALSE(worker->currentPid());
}

TEST_F(Coordinator, VoiceIsWarmedAheadAtTheStart) {
    const test::ScopedEnv enabled("TTS_DISABLE_CTL", "0");
    useResidentWorker();
    start();
    pool.drain();
    EXPECT_TRUE(worker->readyNow());
}

TEST_F(Coordinator, VoiceIsWarmedAheadAtANewAttach) {
    const test::ScopedEnv enabled("TTS_DISABLE_CTL", "0");
    useResidentWorker();
    start();
    pool.drain();
    worker->stop();
    makeTranscript("s1", "/p");
    coordinator->attachSession("s1", "/p");
    pool.drain();
    EXPECT_TRUE(worker->readyNow());
}

TEST_F(Coordinator, LastDetachStopsTheWorkerAndLetsTheQueuePlayOut) {
    const test::ScopedEnv enabled("TTS_DISABLE_CTL", "0");
    useResidentWorker();
    start();
    for (const auto* id : {"s1", "s2"}) {
        makeTranscript(id, "/p");
        coordinator->attachSession(id, "/p");
    }
    pool.drain();
    play("a.wav");
    play("b.wav");
    coordinator->detachSessionLocal("s1");
    pool.drain();
    EXPECT_TRUE(worker->currentPid());
    coordinator->detachSessionLocal("s2");
    pool.drain();
    EXPECT_FALSE(worker->currentPid());
    EXPECT_TRUE(coordinator->queue().isCurrentlyPlaying());
    EXPECT_EQ(coordinator->queue().queuedCount(), 1U);
}

TEST_F(Coordinator, LastRowRemovedByAnotherStopsTheWorkerToo) {
    const test::ScopedEnv enabled("TTS_DISABLE_CTL", "0");
    useResidentWorker();
    start();
    makeTranscript("s1", "/p");
    coordinator->attachSession("s1", "/p");
    pool.drain();
    writeDocument({{"sessions", Json::array()}});
    loop.advance(stateTick);
    pool.drain();
    EXPECT_FALSE(worker->currentPid());
}

TEST_F(Coordinator, SocketThatCannotBeHadIsReported) {
    start();
    log.expect("ipc bind/listen failed");
    auto other = std::make_shared<AppCoordinator>(
        home / "missing/service.sock", platform(),
        AppCoordinator::Speech{std::make_shared<MacSynthesizer>(pool),
                               std::make_shared<KokoroWorkerEngine>(),
                               KokoroProcessEngine::make(pool)});
    EXPECT_FALSE(other->start());
}

TEST_F(Coordinator, ShutDownTakesTheSocketAlong) {
    start();
    EXPECT_TRUE(std::filesystem::exists(home.shared() + "/service.sock"));
    coordinator->shutDown();
    EXPECT_FALSE(std::filesystem::exists(home.shared() + "/service.sock"));
}

TEST_F(Coordinator, AMessageThatIsStillOnItsWayWhenItGoesIsNotHeard) {
    const auto transcript = makeTranscript("s1", "/p");
    start();
    coordinator->attachSession("s1", "/p");
    reply(transcript, "m1", "A reply that nobody waits for");
    coordinator.reset();
    EXPECT_FALSE(loop.runUntil([this] { return !players.calls().empty(); }, 100ms));
}

TEST_F(Coordinator, SpeechSettingsAreReadAnewForEachMessage) {
    const auto transcript = makeTranscript("s1", "/p");
    test::writeFile(
        voiceLauncher,
        "#!/bin/sh\n[ -z \"$5\" ] || { cp \"$4\" \"$5\"; echo \"$TTS_VOICE $TTS_SPEED\" >> " +
            (home / "asked") + "; }\n");
    writeDocument({{"voice", "bf_emma"}, {"speed", 2}});
    start();
    coordinator->attachSession("s1", "/p");
    reply(transcript, "m1", "One reply in the first voice");
    EXPECT_TRUE(waitForPlays(1));
    auto changed = document();
    changed["voice"] = "am_adam";
    writeDocument(changed);
    reply(transcript, "m2", "Another in the second voice");
    EXPECT_TRUE(loop.runUntil([&] { return coordinator->queue().queuedCount() == 1; }));
    EXPECT_EQ(test::readFile(home / "asked"), "bf_emma 2.0\nam_adam 2.0\n");
}

}  // namespace
}  // namespace sonra
