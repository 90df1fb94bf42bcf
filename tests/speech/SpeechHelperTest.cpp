#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sndfile.h>
#include <sys/ioctl.h>

#include <filesystem>
#include <future>
#include <iterator>

#include "WorkerFixture.h"
#include "frame/ChildProcess.h"
#include "frame/Environment.h"
#include "frame/TemporaryDirectory.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "frame/WorkerPool.h"
#include "speech/KokoroProcessEngine.h"

namespace sonra {
namespace {

constexpr auto scriptPath = SONRA_SOURCE_DIR "/companion/tts_kokoro.py";
constexpr auto launcherPath = SONRA_SOURCE_DIR "/companion/uv";

/// Seconds of sound in a file, 0 if it can't be read.
double seconds(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) return 0;
    sf_close(file);
    return static_cast<double>(info.frames) / info.samplerate;
}

/// The engines with the speech helper that is installed with the program, in a home without models.
class SpeechHelperTest : public test::WorkerTest {
  protected:
    static KokoroWorkerEngine::Options helper() {
        KokoroWorkerEngine::Options result;
        result.scriptOverride = scriptPath;
        result.uvResolver = [] { return launcherPath; };
        return result;
    }
    bool say(const std::string& text, const std::string& voice, const std::string& file) {
        return engine->synthCombinedToFile(text, voice, 1.0, directory / file);
    }
    /// One that stops before the helper has begun.
    std::string stoppedLauncher() const {
        auto path = directory / "uv";
        test::writeFile(
            path, "#!/bin/sh\nkill -STOP $$\nexec " + std::string(launcherPath) + " \"$@\"\n");
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }
    static bool isStopped(pid_t pid) {
        return test::readFile("/proc/" + std::to_string(pid) + "/status").find("State:\tT") !=
               std::string::npos;
    }
    /// Bytes in the pipe to a process that it hasn't read yet.
    static int waitingInput(pid_t pid) {
        const auto path = "/proc/" + std::to_string(pid) + "/fd/0";
        const UniqueFd pipe(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        int bytes = 0;
        EXPECT_EQ(::ioctl(pipe.get(), FIONREAD, &bytes), 0);
        return bytes;
    }
    test::TempHome home;
};

TEST_F(SpeechHelperTest, ServesThreeRequestsFromOneWorker) {
    make(helper());
    ASSERT_TRUE(say("The first sentence.", "af_heart", "1.wav"));
    const auto pid = engine->currentPid();
    EXPECT_TRUE(say("The second sentence.", "bm_george", "2.wav"));
    EXPECT_TRUE(say("The third sentence.", "af_heart", "3.wav"));
    for (const auto* name : {"1.wav", "2.wav", "3.wav"}) {
        EXPECT_GT(seconds(directory / name), 0.5) << name;
        EXPECT_LT(seconds(directory / name), 5.0) << name;
    }
    EXPECT_EQ(engine->currentPid(), pid);
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
    EXPECT_NE(inputOf("kokoro worker ready").at("backend"), "");
}

TEST_F(SpeechHelperTest, RefusesAnUnknownVoiceAndServesTheNext) {
    make(helper());
    EXPECT_FALSE(say("Nobody says this.", "xx_nobody", "1.wav"));
    EXPECT_TRUE(say("Somebody says this.", "af_sky", "2.wav"));
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
}

TEST_F(SpeechHelperTest, ServesTwoThreadsOneAfterTheOther) {
    make(helper());
    auto first =
        std::async(std::launch::async, [&] { return say("One of two.", "af_heart", "1.wav"); });
    auto second =
        std::async(std::launch::async, [&] { return say("Two of two.", "am_adam", "2.wav"); });
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
}

TEST_F(SpeechHelperTest, FailsAtOnceWhenTheWorkerIsKilledAtWork) {
    log.expect("kokoro worker exited");
    make(helper());
    ASSERT_TRUE(engine->startAndWaitReady());
    const auto pid = *engine->currentPid();
    // Stopped, it can't answer before it is killed.
    ::kill(pid, SIGSTOP);
    auto request =
        std::async(std::launch::async, [&] { return say("Never said.", "af_heart", "1.wav"); });
    EXPECT_EQ(request.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    ::kill(pid, SIGKILL);
    ASSERT_EQ(request.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_FALSE(request.get());
    EXPECT_TRUE(say("Said by another.", "af_heart", "2.wav"));
}

TEST_F(SpeechHelperTest, IsGivenUpForGoodWhenItDoesNotGetReady) {
    log.expect("worker ready timeout; disabling (per-spawn fallback)");
    auto with = helper();
    with.uvResolver = [this] { return stoppedLauncher(); };
    with.limits.ready = std::chrono::milliseconds(300);
    with.limits.ending = std::chrono::milliseconds(100);
    make(with);
    EXPECT_FALSE(say("Never said.", "af_heart", "1.wav"));
    EXPECT_FALSE(engine->readyNow());
    EXPECT_EQ(engine->currentPid(), std::nullopt);
    const auto pid = inputOf("kokoro worker spawned").at("pid").get<pid_t>();
    EXPECT_TRUE(test::comesTrue([&] { return ::kill(pid, 0) != 0; }));
    EXPECT_FALSE(say("Not said either.", "af_heart", "1.wav"));
    EXPECT_FALSE(engine->startAndWaitReady());
    EXPECT_EQ(log.count("kokoro worker spawned"), 1U);
    EXPECT_TRUE(logged("kokoro worker exited"));
}

TEST_F(SpeechHelperTest, DropsAReplyAfterTheTimeout) {
    log.expect("worker synth timed out; falling back");
    auto with = helper();
    with.limits.synthesis = std::chrono::seconds(4);
    make(with);
    ASSERT_TRUE(engine->startAndWaitReady());
    const auto pid = *engine->currentPid();
    ::kill(pid, SIGSTOP);
    ASSERT_TRUE(test::comesTrue([&] { return isStopped(pid); }));
    EXPECT_FALSE(say("Refused, but late.", "xx_nobody", "1.wav"));
    const auto unread = waitingInput(pid);
    auto second =
        std::async(std::launch::async, [&] { return say("In time.", "af_heart", "2.wav"); });
    ASSERT_TRUE(test::comesTrue([&] { return waitingInput(pid) > unread; }));
    // It answers the first one now, while the second one waits for its own answer.
    ::kill(pid, SIGCONT);
    EXPECT_TRUE(second.get());
    EXPECT_GT(seconds(directory / "2.wav"), 0.2);
    EXPECT_EQ(engine->currentPid(), pid);
    EXPECT_EQ(log.count("worker synth timed out; falling back"), 1U);
}

TEST_F(SpeechHelperTest, StopsAndRespawns) {
    make(helper());
    ASSERT_TRUE(engine->startAndWaitReady());
    const auto before = *engine->currentPid();
    engine->stop();
    EXPECT_TRUE(test::comesTrue([&] { return ::kill(before, 0) != 0; }));
    EXPECT_TRUE(say("Back again.", "af_heart", "1.wav"));
    EXPECT_NE(engine->currentPid(), before);
}

TEST_F(SpeechHelperTest, SpeechThatNobodyPlayedIsSweptUp) {
    const test::TempDir temporary;
    const test::ScopedEnv inTemporary("TMPDIR", temporary.path());
    const UniqueFd listener(bindUnixSocket(directory / "s"));
    test::writeFile(directory / "text", "First. Second.");
    auto environment = ownEnvironment();
    environment["TTS_PLAYER"] = "nowplaying";
    environment["TTS_SERVICE_SOCK"] = directory / "s";
    const auto process =
        ChildProcess::spawn({.executable = launcherPath,
                             .arguments = {"run", "--script", scriptPath, directory / "text",
                                           directory / "out.wav", "--play"},
                             .environment = environment})
            .process;
    ASSERT_NE(process, nullptr);
    EXPECT_EQ(process->waitForExit(std::chrono::seconds(20)), 0);
    // The synthesizer's library may leave something of its own beside it.
    std::string speech;
    for (const auto& entry : std::filesystem::directory_iterator(temporary.path()))
        if (entry.path().filename().string().starts_with("sonra-")) speech = entry.path();
    ASSERT_NE(speech, "");
    const std::filesystem::directory_iterator files(speech);
    EXPECT_EQ(std::distance(begin(files), end(files)), 2);
    sweepTemporaryDirectories();
    EXPECT_FALSE(std::filesystem::exists(speech));
}

TEST_F(SpeechHelperTest, SpeaksOnceThroughTheProcessEngine) {
    WorkerPool pool;
    KokoroProcessEngine::Options options;
    options.scriptOverride = scriptPath;
    options.uvResolver = [] { return launcherPath; };
    const auto process = KokoroProcessEngine::make(pool, options);
    const auto speak = [&](const std::string& voice) {
        const auto done = std::make_shared<std::promise<std::string>>();
        process->synthesize(
            "One sentence.", {.voice = {VoiceID::Namespace::kokoro, voice}},
            SynthesisSink::file(directory / (voice + ".wav")), Chunking::combined,
            [](const SynthChunk&) {},
            [done](const auto& error) { done->set_value(error ? error->what() : ""); });
        return done->get_future().get();
    };
    EXPECT_EQ(speak("bf_emma"), "");
    EXPECT_GT(seconds(directory / "bf_emma.wav"), 0.5);
    EXPECT_TRUE(speak("xx_nobody").starts_with("Synthesis failed: exit 1: "));
    pool.drain();
}

}  // namespace
}  // namespace sonra
