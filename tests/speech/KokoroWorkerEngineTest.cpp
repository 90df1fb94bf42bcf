#include "speech/KokoroWorkerEngine.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string_view>

#include "WorkerFixture.h"
#include "frame/ScriptResolver.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

class KokoroWorkerEngineTest : public test::WorkerTest {};

TEST_F(KokoroWorkerEngineTest, StartsNothingUntilItIsUsed) {
    make(options());
    EXPECT_FALSE(engine->readyNow());
    EXPECT_EQ(engine->currentPid(), std::nullopt);
    EXPECT_EQ(notes(), "");
}

TEST_F(KokoroWorkerEngineTest, WaitsTwoMinutesUnlessToldOtherwise) {
    EXPECT_EQ(KokoroWorkerEngine::readyTimeout, 120s);
    const KokoroWorkerEngine::Limits limits;
    EXPECT_EQ(limits.ready, 120s);
    EXPECT_EQ(limits.readySlack, 5s);
    EXPECT_EQ(limits.synthesis, 120s);
}

TEST_F(KokoroWorkerEngineTest, ServesThreeRequestsFromOneWorker) {
    make(options());
    ASSERT_TRUE(synth("one", "1.wav"));
    const auto pid = engine->currentPid();
    ASSERT_TRUE(pid);
    EXPECT_TRUE(synth("two", "2.wav"));
    EXPECT_TRUE(synth("three", "3.wav"));
    for (const auto* name : {"1.wav", "2.wav", "3.wav"})
        EXPECT_TRUE(test::isWav(directory / name)) << name;
    EXPECT_EQ(engine->currentPid(), pid);
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
    EXPECT_EQ(inputOf("kokoro worker spawned").at("pid"), *pid);
    EXPECT_EQ(log.records("kokoro worker ready").at(0).at("class"), "KokoroWorkerEngine");
}

TEST_F(KokoroWorkerEngineTest, RunsTheScriptAsAWorker) {
    make(options());
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_TRUE(engine->readyNow());
    EXPECT_EQ(notes(), "start --worker 1 none\n");
    EXPECT_EQ(inputOf("kokoro worker ready").at("pid"), *engine->currentPid());
}

TEST_F(KokoroWorkerEngineTest, LooksUpUvWhereItsPlaceIsNotKnown) {
    std::filesystem::create_directory(directory / "bin");
    test::writeFile(directory / "bin/uv",
                    "#!/bin/sh\necho \"uv $*\" >> \"$FAKE_LOG\"\nexec " SONRA_SOURCE_DIR
                    "/tests/speech/fake_uv \"$@\"\n");
    std::filesystem::permissions(directory / "bin/uv", std::filesystem::perms::owner_all);
    const test::ScopedEnv path("PATH", directory / "bin:/usr/bin:/bin");
    auto with = options();
    with.uvResolver = [] { return std::nullopt; };
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_EQ(notes(),
              "uv run --script " + *with.scriptOverride + " --worker\nstart --worker 1 none\n");
}

TEST_F(KokoroWorkerEngineTest, PlaysNothingWhateverItInherits) {
    const test::ScopedEnv player("TTS_PLAYER", "inherited");
    const test::ScopedEnv worker("TTS_KOKORO_WORKER", "inherited");
    make(options());
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_EQ(notes(), "start --worker 1 none\n");
}

TEST_F(KokoroWorkerEngineTest, LetsExtraEnvironmentOverrideAllElse) {
    auto with = options();
    with.extraEnv["TTS_PLAYER"] = "loud";
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_EQ(notes(), "start --worker 1 loud\n");
}

TEST_F(KokoroWorkerEngineTest, SendsARequestAsTheProtocolSays) {
    make(options());
    ASSERT_TRUE(engine->synthCombinedToFile("echo", "bf_emma", 1.25, directory / "out.wav"));
    const auto first = notes().find('{');
    const auto request = json::parse(notes().substr(first, notes().find('\n', first) - first));
    EXPECT_EQ(request, (Json{{"type", "synth_file"},
                             {"id", 1},
                             {"text", "echo"},
                             {"voice", "bf_emma"},
                             {"speed", "1.25"},
                             {"outWav", directory / "out.wav"}}));
}

TEST_F(KokoroWorkerEngineTest, AppliesTheLexicon) {
    const test::TempHome home;
    test::writeFile(home.shared() + "/profile.json",
                    R"({"version":1,"lexicon":[{"match":"nginx","say":"echo"}]})");
    make(options());
    ASSERT_TRUE(synth("nginx"));
    EXPECT_NE(notes().find(R"("text": "echo")"), std::string::npos) << notes();
}

TEST_F(KokoroWorkerEngineTest, GivesUpAWorkerThatNeverSaysReady) {
    log.expect("worker ready timeout; disabling (per-spawn fallback)");
    auto with = options("never-ready");
    with.limits.ready = 200ms;
    make(with);
    EXPECT_FALSE(synth("one"));
    EXPECT_FALSE(engine->readyNow());
    EXPECT_EQ(engine->currentPid(), std::nullopt);
    EXPECT_FALSE(synth("two"));
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
    EXPECT_TRUE(logged("kokoro worker exited"));
}

TEST_F(KokoroWorkerEngineTest, ReturnsFalseForARefusedTextAndServesTheNext) {
    make(options());
    EXPECT_FALSE(synth("fail"));
    EXPECT_TRUE(synth("next"));
}

TEST_F(KokoroWorkerEngineTest, ServesTwoThreadsOneAtATime) {
    make(options());
    auto first = std::async(std::launch::async, [&] { return synth("slow", "1.wav"); });
    auto second = std::async(std::launch::async, [&] { return synth("slow", "2.wav"); });
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
    EXPECT_EQ(notes().find("overlap"), std::string::npos) << notes();
    EXPECT_TRUE(test::isWav(directory / "1.wav") && test::isWav(directory / "2.wav"));
}

TEST_F(KokoroWorkerEngineTest, LetsASecondCallerWaitForTheSameStart) {
    make(options("slow"));
    auto first = std::async(std::launch::async, [&] { return engine->startAndWaitReady(); });
    auto second = std::async(std::launch::async, [&] { return engine->startAndWaitReady(); });
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
}

TEST_F(KokoroWorkerEngineTest, FailsAtOnceWhenTheWorkerExitsAndRespawns) {
    log.expect("kokoro worker exited");
    make(options());
    ASSERT_TRUE(synth("one"));
    const auto before = engine->currentPid();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(synth("die"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    ASSERT_TRUE(logged("kokoro worker exited"));
    EXPECT_EQ(inputOf("kokoro worker exited"), (Json{{"status", 7}, {"wasReady", true}}));
    EXPECT_TRUE(synth("next"));
    EXPECT_NE(engine->currentPid(), before);
}

TEST_F(KokoroWorkerEngineTest, FailsAtOnceWhenTheWorkerExitsBeforeItIsReady) {
    log.expect("kokoro worker exited");
    make(options("exit"));
    EXPECT_FALSE(engine->startAndWaitReady());
    EXPECT_EQ(inputOf("kokoro worker exited"), (Json{{"status", 5}, {"wasReady", false}}));
    // An exit doesn't give the worker up.
    EXPECT_FALSE(engine->startAndWaitReady());
    EXPECT_EQ(log.count("kokoro worker spawned"), 2U);
}

TEST_F(KokoroWorkerEngineTest, DropsAReplyAfterTheTimeout) {
    log.expect("worker synth timed out; falling back");
    auto with = options();
    with.limits.synthesis = 3s;
    make(with);
    for (const auto* late : {"late-success", "late-failure"}) {
        EXPECT_FALSE(synth("hold", "held.wav"));
        const auto pid = engine->currentPid();
        // The worker has this one when it answers the other, and must not be taken to answer this.
        EXPECT_EQ(synth(late, "1.wav"), late == std::string_view("late-failure")) << late;
        EXPECT_TRUE(synth("next", "2.wav"));
        EXPECT_EQ(engine->currentPid(), pid);
        EXPECT_FALSE(std::filesystem::exists(directory / "held.wav")) << "nobody knows of it";
    }
    EXPECT_EQ(inputOf("worker synth timed out; falling back").at("id"), 1);
    EXPECT_EQ(log.count("worker synth timed out; falling back"), 2U);
}

TEST_F(KokoroWorkerEngineTest, DropsAResultWithAnotherId) {
    log.expect("worker synth timed out; falling back");
    auto with = options();
    with.limits.synthesis = 1s;
    make(with);
    EXPECT_FALSE(synth("wrong-id"));
    EXPECT_TRUE(synth("next"));
}

TEST_F(KokoroWorkerEngineTest, AcceptsAResultWithoutAnIntegerId) {
    make(options());
    EXPECT_TRUE(synth("no-id", "1.wav"));
    EXPECT_TRUE(synth("text-id", "2.wav"));
}

TEST_F(KokoroWorkerEngineTest, TakesNoWordForAFileThatIsNotThere) {
    make(options());
    EXPECT_FALSE(synth("no-file"));
    EXPECT_FALSE(synth("ok-text"));
    EXPECT_TRUE(synth("next"));
}

TEST_F(KokoroWorkerEngineTest, ReadsALineInPiecesAndTwoLinesAtOnce) {
    make(options());
    EXPECT_TRUE(synth("pieces", "1.wav"));
    EXPECT_TRUE(synth("two-lines", "2.wav"));
    EXPECT_TRUE(synth("twice", "3.wav"));
    EXPECT_TRUE(synth("next", "4.wav"));
}

TEST_F(KokoroWorkerEngineTest, ReadsPastJunkAndEndlessLines) {
    make(options());
    EXPECT_TRUE(synth("junk"));
    EXPECT_TRUE(synth("next", "2.wav"));
}

TEST_F(KokoroWorkerEngineTest, StaysDisabledAfterAFailedLaunch) {
    log.expect("worker spawn failed; disabled (per-spawn fallback)");
    int asked = 0;
    auto with = options();
    with.uvResolver = [&asked] {
        ++asked;
        return "/nonexistent/uv";
    };
    make(with);
    EXPECT_FALSE(engine->startAndWaitReady());
    EXPECT_FALSE(synth("one"));
    EXPECT_EQ(asked, 1);
    const auto record = log.records("worker spawn failed; disabled (per-spawn fallback)").at(0);
    EXPECT_EQ(record.at("cause").at("message"), "No such file or directory");
    EXPECT_EQ(engine->currentPid(), std::nullopt);
}

TEST_F(KokoroWorkerEngineTest, StaysDisabledWithoutItsScript) {
    log.expect("tts_kokoro.py not found; worker disabled (per-spawn fallback)");
    auto with = options();
    with.scriptOverride.reset();
    with.scriptLocator = []() -> std::string {
        throw ScriptResolverError("tts_kokoro.py", {"/nowhere"});
    };
    make(with);
    EXPECT_FALSE(engine->startAndWaitReady());
    EXPECT_FALSE(engine->startAndWaitReady());
    EXPECT_EQ(log.count("tts_kokoro.py not found; worker disabled (per-spawn fallback)"), 1U);
}

}  // namespace
}  // namespace sonra
