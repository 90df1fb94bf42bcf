#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "WorkerFixture.h"
#include "frame/ChildProcess.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// How the worker's process ends, and what that does to those who use it.
class KokoroWorkerLifeTest : public test::WorkerTest {
  protected:
    bool gone(std::int32_t pid) const {
        return test::comesTrue([&] { return ::kill(pid, 0) != 0; });
    }
};

TEST_F(KokoroWorkerLifeTest, StopsAndRespawnsOnNextUse) {
    make(options());
    ASSERT_TRUE(synth("one"));
    const auto before = engine->currentPid();
    engine->stop();
    EXPECT_EQ(engine->currentPid(), std::nullopt);
    EXPECT_FALSE(engine->readyNow());
    EXPECT_TRUE(gone(*before));
    EXPECT_TRUE(synth("two", "2.wav"));
    EXPECT_NE(engine->currentPid(), before);
    EXPECT_EQ(log.count("kokoro worker spawned"), 2U);
}

TEST_F(KokoroWorkerLifeTest, StopFailsTheRequestInFlightAtOnce) {
    make(options());
    ASSERT_TRUE(engine->startAndWaitReady());
    auto request = std::async(std::launch::async, [&] { return synth("silent"); });
    ASSERT_TRUE(noted("silent"));
    engine->stop();
    ASSERT_EQ(request.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(request.get());
}

TEST_F(KokoroWorkerLifeTest, StopReleasesThoseWhoWaitForReady) {
    make(options("never-ready"));
    auto waiting = std::async(std::launch::async, [&] { return engine->startAndWaitReady(); });
    ASSERT_TRUE(logged("kokoro worker spawned"));
    engine->stop();
    ASSERT_EQ(waiting.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(waiting.get());
}

TEST_F(KokoroWorkerLifeTest, StopTwiceIsHarmless) {
    make(options());
    engine->stop();
    ASSERT_TRUE(engine->startAndWaitReady());
    engine->stop();
    engine->stop();
    EXPECT_TRUE(synth("next"));
}

TEST_F(KokoroWorkerLifeTest, LateExitOfAStoppedWorkerLeavesItsSuccessorAlone) {
    auto with = options("ignore-term");
    with.limits.ending = 300ms;
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    const auto first = *engine->currentPid();
    engine->stop();
    ASSERT_TRUE(engine->startAndWaitReady());
    const auto second = engine->currentPid();
    // The first one outlives its quit line and its signal, and ends by force while the second is at
    // work.
    EXPECT_TRUE(gone(first));
    ASSERT_TRUE(logged("kokoro worker exited"));
    EXPECT_EQ(inputOf("kokoro worker exited").at("status"), 128 + SIGKILL);
    EXPECT_TRUE(engine->readyNow());
    EXPECT_EQ(engine->currentPid(), second);
    EXPECT_TRUE(synth("next"));
}

TEST_F(KokoroWorkerLifeTest, SendsTheQuitLineOnStop) {
    auto with = options("ignore-term");
    with.limits.ending = 1s;
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    engine->stop();
    EXPECT_TRUE(noted("line 16"));
    EXPECT_TRUE(noted("ignoring"));
    EXPECT_TRUE(logged("kokoro worker exited"));
}

TEST_F(KokoroWorkerLifeTest, DestructionEndsTheWorker) {
    make(options());
    ASSERT_TRUE(engine->startAndWaitReady());
    const auto pid = *engine->currentPid();
    engine.reset();
    EXPECT_TRUE(gone(pid));
}

TEST_F(KokoroWorkerLifeTest, DestructionEndsAWorkerThatIgnoresTermination) {
    auto with = options("ignore-term");
    with.limits.ending = 100ms;
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    const auto pid = *engine->currentPid();
    engine.reset();
    EXPECT_TRUE(gone(pid));
}

TEST_F(KokoroWorkerLifeTest, DestructionReleasesTheRequestInFlight) {
    make(options());
    ASSERT_TRUE(engine->startAndWaitReady());
    auto request =
        std::async(std::launch::async, [raw = engine.get(), out = directory / "out.wav"] {
            return raw->synthCombinedToFile("silent", "af_heart", 1.0, out);
        });
    ASSERT_TRUE(noted("silent"));
    engine.reset();
    ASSERT_EQ(request.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(request.get());
}

TEST_F(KokoroWorkerLifeTest, NeverSignalsAPidThatIsNotItsOwn) {
    const auto stranger =
        ChildProcess::spawn({.executable = "/bin/sleep", .arguments = {"60"}}).process;
    ASSERT_NE(stranger, nullptr);
    auto with = options("wild-pid");
    with.extraEnv["FAKE_PID"] = std::to_string(stranger->pid());
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_EQ(inputOf("kokoro worker ready").at("pid"), stranger->pid());
    engine->stop();
    EXPECT_TRUE(logged("kokoro worker exited"));
    EXPECT_TRUE(stranger->isRunning());
    stranger->kill();
}

/// A worker that isn't the process that was started, nor in its group, and that doesn't end by
/// itself.
class KokoroWorkerOfItsOwn : public KokoroWorkerLifeTest {
  protected:
    KokoroWorkerOfItsOwn() { make(options("own-group")); }

    void getReady() {
        ASSERT_TRUE(engine->startAndWaitReady());
        launched = *engine->currentPid();
        worker = inputOf("kokoro worker ready").at("pid").get<pid_t>();
        ASSERT_NE(worker, launched);
        ASSERT_EQ(::getpgid(worker), worker);
        ASSERT_EQ(::getsid(worker), launched);
    }
    /// Whoever inherits an orphan may be slow to reap it.
    static bool ended(pid_t pid) {
        return test::comesTrue([&] {
            const auto status = test::readFile("/proc/" + std::to_string(pid) + "/status");
            return status.empty() || status.find("State:\tZ") != std::string::npos;
        });
    }
    pid_t launched = 0;
    pid_t worker = 0;
};

TEST_F(KokoroWorkerOfItsOwn, IsGoneAfterStop) {
    getReady();
    engine->stop();
    EXPECT_TRUE(ended(launched));
    EXPECT_TRUE(ended(worker));
}

TEST_F(KokoroWorkerOfItsOwn, IsGoneAfterDestruction) {
    getReady();
    engine.reset();
    EXPECT_TRUE(ended(launched));
    EXPECT_TRUE(ended(worker));
}

TEST_F(KokoroWorkerLifeTest, GetsReadyWithoutAPid) {
    make(options("no-pid"));
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_EQ(inputOf("kokoro worker ready").at("pid"), -1);
    EXPECT_TRUE(synth("one"));
}

TEST_F(KokoroWorkerLifeTest, IgnoresAPidThatDoesNotFit) {
    make(options("big-pid"));
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_EQ(inputOf("kokoro worker ready").at("pid"), -1);
}

TEST_F(KokoroWorkerLifeTest, GetsReadyOnce) {
    make(options("twice"));
    ASSERT_TRUE(synth("one"));
    EXPECT_EQ(log.count("kokoro worker ready"), 1U);
}

TEST_F(KokoroWorkerLifeTest, FailsARequestThatCannotBeWritten) {
    log.expect("worker stdin write failed; falling back");
    make(options());
    ASSERT_TRUE(synth("close-input"));
    ASSERT_TRUE(noted("closed"));
    const auto before = engine->currentPid();
    EXPECT_FALSE(synth("one", "1.wav"));
    EXPECT_EQ(
        log.records("worker stdin write failed; falling back").at(0).at("cause").at("message"),
        "Broken pipe");
    // What is left of it is of no use, so the next request gets another worker.
    EXPECT_TRUE(synth("two", "2.wav"));
    EXPECT_NE(engine->currentPid(), before);
}

TEST_F(KokoroWorkerLifeTest, DoesNotWaitForAWorkerThatDoesNotRead) {
    log.expect("worker synth timed out; falling back");
    log.expect("worker stdin write failed; falling back");
    auto with = options();
    with.limits.synthesis = 1s;
    with.limits.write = 1s;
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    EXPECT_FALSE(synth("deaf"));
    EXPECT_FALSE(synth(std::string(1U << 20U, 'x')));
    EXPECT_TRUE(synth("next"));
}

TEST_F(KokoroWorkerLifeTest, SurvivesBeingKilledWhileIdle) {
    log.expect("kokoro worker exited");
    make(options());
    ASSERT_TRUE(engine->startAndWaitReady());
    ::kill(*engine->currentPid(), SIGKILL);
    ASSERT_TRUE(logged("kokoro worker exited"));
    EXPECT_EQ(inputOf("kokoro worker exited"), (Json{{"status", 137}, {"wasReady", true}}));
    EXPECT_TRUE(synth("next"));
}

}  // namespace
}  // namespace sonra
