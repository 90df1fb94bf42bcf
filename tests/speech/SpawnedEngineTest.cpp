#include "speech/SpawnedEngine.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <future>

#include "WorkerFixture.h"
#include "frame/ScriptResolver.h"
#include "frame/Semaphore.h"
#include "frame/TemporaryDirectory.h"
#include "frame/WorkerPool.h"
#include "speech/GeminiEngine.h"
#include "speech/KokoroProcessEngine.h"
#include "speech/SpeechTextFile.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// What came of one request.
struct Outcome {
    std::vector<SynthChunk> chunks;
    std::string error;  ///< empty for success
};

/// Requests to both engines, whose script is a shell script of the test's: it sees $text and $out.
class SpawnedEngineTest : public testing::Test {
  protected:
    ~SpawnedEngineTest() override { pool.drain(); }

    std::string script(const std::string& body) {
        auto path = directory / "script";
        test::writeFile(path, body);
        return path;
    }
    std::shared_ptr<KokoroProcessEngine> kokoro(const std::string& body,
                                                SpawnedEngine::Limits limits = {}) {
        test::writeFile(directory / "uv", "#!/bin/sh\nscript=$3 text=$4 out=$5\n. \"$script\"\n");
        std::filesystem::permissions(directory / "uv", std::filesystem::perms::owner_all);
        KokoroProcessEngine::Options options;
        options.scriptOverride = script(body);
        options.uvResolver = [uv = directory / "uv"] { return uv; };
        options.limits = limits;
        return KokoroProcessEngine::make(pool, options);
    }
    std::shared_ptr<GeminiEngine> gemini(const std::string& body) {
        GeminiEngine::Options options;
        options.nodeResolver = [] { return "/bin/sh"; };
        options.scriptResolver = [path = script("text=$1 out=$2\n" + body)] { return path; };
        options.keyResolver = [] { return "secret"; };
        return GeminiEngine::make(pool, options);
    }
    std::future<Outcome> begin(SpeechEngine& engine, const std::string& text, SynthesisSink sink) {
        const auto promise = std::make_shared<std::promise<Outcome>>();
        const auto outcome = std::make_shared<Outcome>();
        engine.synthesize(
            text, {}, std::move(sink), Chunking::combined,
            [outcome](const SynthChunk& chunk) { outcome->chunks.push_back(chunk); },
            [promise, outcome](const std::optional<SynthError>& error) {
                if (error) outcome->error = error->what();
                promise->set_value(*outcome);
            });
        return promise->get_future();
    }
    Outcome synth(SpeechEngine& engine, const std::string& text = "hello") {
        return begin(engine, text, SynthesisSink::file(out)).get();
    }
    /// Request directories that are left in the temporary directory.
    static std::size_t leftovers() {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(temporaryDirectory()))
            if (entry.path().filename().string().starts_with("sonra-")) ++count;
        return count;
    }
    bool started() const {
        return test::comesTrue([this] { return std::filesystem::exists(directory / "started"); });
    }

    test::TempDir directory;
    std::string out = directory / "out.wav";
    WorkerPool pool;
};

TEST_F(SpawnedEngineTest, WritesTheFileAndReportsOneChunk) {
    const auto outcome = synth(*kokoro("cp \"$text\" \"$out\""), "hello");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.chunks, std::vector{(SynthChunk{out, "hello", 0})});
    EXPECT_EQ(test::readFile(out), "hello");
    EXPECT_EQ(leftovers(), 0U);
}

TEST_F(SpawnedEngineTest, KeepsTheTextFromOthers) {
    synth(*kokoro("stat -c '%a' \"$text\" \"$(dirname \"$text\")\" > \"$out\""));
    EXPECT_EQ(test::readFile(out), "600\n700\n");
}

TEST_F(SpawnedEngineTest, AppliesTheLexiconForKokoroOnly) {
    const test::TempHome home;
    test::writeFile(home.shared() + "/profile.json",
                    R"({"version":1,"lexicon":[{"match":"nginx","say":"engine x"}]})");
    EXPECT_EQ(synth(*kokoro("cp \"$text\" \"$out\""), "nginx").chunks.at(0).text, "nginx");
    EXPECT_EQ(test::readFile(out), "engine x");
    synth(*gemini("cp \"$text\" \"$out\""), "nginx");
    EXPECT_EQ(test::readFile(out), "nginx");
}

TEST_F(SpawnedEngineTest, LeavesNothingBehindAfterGemini) {
    EXPECT_EQ(synth(*gemini("cp \"$text\" \"$out\"")).error, "");
    EXPECT_EQ(leftovers(), 0U);
    EXPECT_EQ(synth(*gemini("echo more > \"$text.more\"; echo no quota >&2; exit 3")).error,
              "Synthesis failed: exit 3: no quota");
    EXPECT_EQ(leftovers(), 0U);
}

TEST_F(SpawnedEngineTest, RefusesALiveSinkAndStartsNothing) {
    const auto body = "touch " + (directory / "started");
    EXPECT_EQ(begin(*kokoro(body), "x", SynthesisSink::live()).get().error,
              "Synthesis failed: KokoroProcessEngine requires a .file sink");
    EXPECT_EQ(begin(*gemini(body), "x", SynthesisSink::live()).get().error,
              "Synthesis failed: GeminiEngine requires a .file sink");
    EXPECT_FALSE(std::filesystem::exists(directory / "started"));
}

TEST_F(SpawnedEngineTest, FailsWhenTheScriptWritesNoFile) {
    const auto outcome = synth(*kokoro("exit 0"));
    EXPECT_EQ(outcome.error, "Synthesis failed: exit code 0");
    EXPECT_TRUE(outcome.chunks.empty());
}

TEST_F(SpawnedEngineTest, ReportsTheOutputOfAFailure) {
    EXPECT_EQ(synth(*kokoro("echo ' out'; echo err >&2; exit 2")).error,
              "Synthesis failed: exit 2: out\nerr");
    EXPECT_EQ(synth(*kokoro("exit 4")).error, "Synthesis failed: exit code 4");
    EXPECT_EQ(synth(*kokoro("printf 'a\\377b'; exit 1")).error,
              "Synthesis failed: exit 1: a\xEF\xBF\xBD"
              "b");
}

TEST_F(SpawnedEngineTest, ReadsMoreThanAPipeHolds) {
    EXPECT_EQ(synth(*kokoro("seq 1 100000; touch \"$out\"")).error, "");
}

TEST_F(SpawnedEngineTest, ReportsAFailedLaunch) {
    KokoroProcessEngine::Options options;
    options.scriptOverride = "/nowhere/script";
    options.uvResolver = [] { return "/nowhere/uv"; };
    EXPECT_EQ(synth(*KokoroProcessEngine::make(pool, options)).error,
              "Synthesis failed: Kokoro spawn failed: No such file or directory");
    GeminiEngine::Options gemini;
    gemini.nodeResolver = [] { return "/nowhere/node"; };
    gemini.scriptResolver = [] { return "/nowhere/script"; };
    gemini.keyResolver = [] { return "secret"; };
    EXPECT_EQ(synth(*GeminiEngine::make(pool, gemini)).error,
              "Synthesis failed: Gemini spawn failed: No such file or directory");
    EXPECT_EQ(leftovers(), 0U);
}

TEST_F(SpawnedEngineTest, ReportsATextThatCannotBeWritten) {
    removeTemporaryDirectory();
    const test::ScopedEnv nowhere("TMPDIR", directory / "absent");
    const auto body = "touch " + (directory / "started");
    EXPECT_EQ(synth(*kokoro(body)).error,
              "Synthesis failed: couldn't write speech text: temporary directory: No such file or "
              "directory");
    EXPECT_TRUE(
        synth(*gemini(body)).error.starts_with("Synthesis failed: couldn't write speech text: "));
    EXPECT_FALSE(std::filesystem::exists(directory / "started"));
}

TEST_F(SpawnedEngineTest, ReportsAFailedPlan) {
    GeminiEngine::Options options;
    options.nodeResolver = [] { return std::nullopt; };
    EXPECT_EQ(synth(*GeminiEngine::make(pool, options)).error,
              "Speech engine unavailable: Node.js not found");
}

TEST_F(SpawnedEngineTest, EndsAProcessThatOutlivesItsLimit) {
    const auto engine = kokoro("echo $$ > \"$out.pid\"; sleep 60", {.combined = 2s});
    EXPECT_EQ(synth(*engine).error, "Synthesis failed: no end after 2 seconds");
    const auto pid = static_cast<pid_t>(std::stol(test::readFile(out + ".pid")));
    EXPECT_TRUE(test::comesTrue([&] { return ::kill(pid, 0) != 0; }));
    EXPECT_EQ(leftovers(), 0U);
}

TEST_F(SpawnedEngineTest, CancelsTheCurrentRequest) {
    const auto engine = kokoro("touch " + (directory / "started") + "; sleep 60");
    engine->cancelCurrent();
    auto request = begin(*engine, "x", SynthesisSink::file(out));
    ASSERT_TRUE(started());
    // The script may be at work before the engine has taken note of its process.
    ASSERT_TRUE(test::comesTrue([&] {
        engine->cancelCurrent();
        return request.wait_for(0s) == std::future_status::ready;
    }));
    EXPECT_EQ(request.get().error, "Synthesis failed: exit code 143");
    engine->cancelCurrent();
}

TEST_F(SpawnedEngineTest, CancelsARequestThatIsStillToStart) {
    WorkerPool one(1);
    Semaphore busy;
    Semaphore freed;
    one.post([&] {
        busy.signal();
        freed.wait();
    });
    busy.wait();
    KokoroProcessEngine::Options options;
    options.scriptOverride = script("touch " + (directory / "started") + "; cp \"$text\" \"$out\"");
    options.uvResolver = [uv = directory / "uv"] { return uv; };
    const auto engine = KokoroProcessEngine::make(one, options);
    auto cancelled = begin(*engine, "x", SynthesisSink::file(out));
    engine->cancelCurrent();
    freed.signal();
    EXPECT_EQ(cancelled.get().error, "Synthesis failed: Kokoro cancelled");
    EXPECT_FALSE(std::filesystem::exists(directory / "started"));
    EXPECT_EQ(leftovers(), 0U);
    one.drain();
}

TEST_F(SpawnedEngineTest, CancelsNobodyElse) {
    const auto body = "touch " + (directory / "started") + "; while [ ! -e " + (directory / "go") +
                      " ]; do sleep 0.01; done; cp \"$text\" \"$out\"";
    const auto engine = kokoro(body);
    auto request = begin(*engine, "x", SynthesisSink::file(out));
    ASSERT_TRUE(started());
    kokoro(body)->cancelCurrent();
    test::writeFile(directory / "go", "");
    EXPECT_EQ(request.get().error, "");
}

TEST_F(SpawnedEngineTest, ServesSeveralCallersAtOnce) {
    // Each waits for the other two, so they only get through together.
    const auto engine =
        kokoro("touch \"$out.here\"; for n in 1 2 3; do while [ ! -e " + directory.path() +
               "/$n.here ]; do sleep 0.01; done; done; cp \"$text\" \"$out\"");
    std::vector<std::future<Outcome>> requests;
    for (const auto* name : {"1", "2", "3"})
        requests.push_back(begin(*engine, name, SynthesisSink::file(directory / name)));
    for (auto& request : requests) EXPECT_EQ(request.get().error, "");
    for (const auto* name : {"1", "2", "3"}) EXPECT_EQ(test::readFile(directory / name), name);
}

TEST_F(SpawnedEngineTest, FinishesARequestWhoseEngineWasLetGo) {
    auto engine = kokoro("while [ ! -e " + (directory / "go") +
                         " ]; do sleep 0.01; done; cp \"$text\" \"$out\"");
    auto request = begin(*engine, "x", SynthesisSink::file(out));
    engine.reset();
    test::writeFile(directory / "go", "");
    EXPECT_EQ(request.get().error, "");
}

TEST_F(SpawnedEngineTest, NeverCallsBackInsideTheCall) {
    const auto caller = std::this_thread::get_id();
    std::atomic<int> done = 0;
    std::atomic<bool> elsewhere = false;
    Semaphore ended;
    kokoro("exit 1")->synthesize(
        "x", {}, SynthesisSink::live(), Chunking::combined, [](const SynthChunk&) {},
        [&](const std::optional<SynthError>&) {
            ++done;
            elsewhere = std::this_thread::get_id() != caller;
            ended.signal();
        });
    ASSERT_TRUE(ended.waitFor(20s));
    pool.drain();
    EXPECT_EQ(done, 1);
    EXPECT_TRUE(elsewhere);
}

TEST_F(SpawnedEngineTest, WarmsUpInTheBackground) {
    const auto engine = kokoro("echo \"$# $TTS_WARMUP\" > " + (directory / "warm.new") + "; mv " +
                               (directory / "warm.new") + " " + (directory / "warm"));
    engine->warmup();
    ASSERT_TRUE(test::comesTrue([&] { return std::filesystem::exists(directory / "warm"); }));
    EXPECT_EQ(test::readFile(directory / "warm"), "3 1\n");
}

TEST_F(SpawnedEngineTest, FailsToWarmUpSilently) {
    KokoroProcessEngine::Options options;
    options.scriptLocator = []() -> std::string { throw ScriptResolverError("tts_kokoro.py", {}); };
    KokoroProcessEngine::make(pool, options)->warmup();
    pool.drain();
}

TEST(SpeechTextFile, IsPrivateAndGoesWithItsDirectory) {
    const auto path = SpeechTextFile::newPath("sonra-test-");
    const auto parent = std::filesystem::path(path).parent_path();
    {
        const SpeechTextFile file(path, "word");
        EXPECT_EQ(test::readFile(path), "word");
        test::writeFile(parent / "other", "x");
    }
    EXPECT_FALSE(std::filesystem::exists(parent));
}

TEST(SpeechTextFile, NeverTakesOverWhatIsThere) {
    const test::TempDir directory;
    std::filesystem::create_directory(directory / "taken");
    EXPECT_THROW(SpeechTextFile(directory / "taken/text", "word"), std::system_error);
    EXPECT_TRUE(std::filesystem::exists(directory / "taken"));
    test::writeFile(directory / "file", "");
    EXPECT_THROW(SpeechTextFile(directory / "file/dir/text", "word"), std::system_error);
}

}  // namespace
}  // namespace sonra
