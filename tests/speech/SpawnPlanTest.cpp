#include <gtest/gtest.h>

#include "frame/ScriptResolver.h"
#include "frame/WorkerPool.h"
#include "speech/GeminiEngine.h"
#include "speech/KokoroProcessEngine.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using Arguments = std::vector<std::string>;

const SpeechConfig config{
    .voice = {VoiceID::Namespace::kokoro, "bf_emma"}, .speed = 1.0, .volume = 80};

/// What the environment says under `name`, or "(unset)".
std::string variable(const KokoroSpawnPlan& plan, const std::string& name) {
    const auto found = plan.environment.find(name);
    return found == plan.environment.end() ? "(unset)" : found->second;
}

/// The directory of a text file's path, less the random part of its name.
std::string directoryKind(const std::string& textFile) {
    const auto directory = std::filesystem::path(textFile).parent_path().filename().string();
    return directory.size() > 8 ? directory.substr(0, directory.size() - 8) : directory;
}

class SpawnPlan : public testing::Test {
  protected:
    std::shared_ptr<KokoroProcessEngine> kokoro(
        const std::optional<std::string>& uv = "/opt/bin/uv") {
        KokoroProcessEngine::Options options;
        options.scriptOverride = "/scripts/tts_kokoro.py";
        options.uvResolver = [uv] { return uv; };
        return KokoroProcessEngine::make(pool, options);
    }
    std::shared_ptr<GeminiEngine> gemini(
        const std::optional<std::string>& node = "/usr/bin/node",
        const std::optional<std::string>& script = "/scripts/tts.js",
        const std::optional<std::string>& key = "secret") {
        GeminiEngine::Options options;
        options.nodeResolver = [node] { return node; };
        options.scriptResolver = [script] { return script; };
        options.keyResolver = [key] { return key; };
        return GeminiEngine::make(pool, options);
    }
    WorkerPool pool;
};

TEST_F(SpawnPlan, RunsKokoroUnderUv) {
    const auto plan = kokoro()->buildPlan("text", config, "/t/out.wav", Chunking::combined);
    EXPECT_EQ(plan.executablePath, "/opt/bin/uv");
    ASSERT_EQ(plan.arguments.size(), 5U);
    EXPECT_EQ(Arguments(plan.arguments.begin(), plan.arguments.begin() + 3),
              (Arguments{"run", "--script", "/scripts/tts_kokoro.py"}));
    EXPECT_EQ(std::filesystem::path(plan.arguments[3]).filename(), "text");
    EXPECT_EQ(directoryKind(plan.arguments[3]), "sonra-kokoro-");
    EXPECT_EQ(plan.arguments.back(), "/t/out.wav");
    EXPECT_EQ(variable(plan, "TTS_VOICE"), "bf_emma");
    EXPECT_EQ(variable(plan, "TTS_SPEED"), "1.0");
    EXPECT_EQ(variable(plan, "TTS_PLAYER"), "none");
    EXPECT_EQ(variable(plan, "TTS_SERVICE_SOCK"), "(unset)");
}

TEST_F(SpawnPlan, LooksUpUvWhereItsPlaceIsNotKnown) {
    const auto plan =
        kokoro(std::nullopt)->buildPlan("text", config, "/t/out.wav", Chunking::combined);
    EXPECT_EQ(plan.executablePath, "/usr/bin/env");
    EXPECT_EQ(Arguments(plan.arguments.begin(), plan.arguments.begin() + 4),
              (Arguments{"uv", "run", "--script", "/scripts/tts_kokoro.py"}));
}

TEST_F(SpawnPlan, StreamsWithTheServicesContext) {
    const auto engine = kokoro();
    engine->setStreamingContext(
        KokoroStreamingContext{"/t/service.sock", "nowplaying", 80, true, std::string(300, 'x')});
    const auto plan = engine->buildPlan("text", config, "/t/out.wav", Chunking::streaming);
    EXPECT_EQ(plan.arguments.back(), "--play");
    EXPECT_EQ(plan.arguments[plan.arguments.size() - 2], "/t/out.wav");
    EXPECT_EQ(variable(plan, "TTS_PLAYER"), "nowplaying");
    EXPECT_EQ(variable(plan, "TTS_VOLUME"), "80");
    EXPECT_EQ(variable(plan, "TTS_CAPTIONS"), "1");
    EXPECT_EQ(variable(plan, "TTS_SERVICE_SOCK"), "/t/service.sock");
    EXPECT_EQ(variable(plan, "TTS_NARRATION_TEXT"), std::string(240, 'x'));
}

TEST_F(SpawnPlan, StreamsWithoutCaptionsWhenTheyAreOff) {
    const test::ScopedEnv captions("TTS_CAPTIONS", "1");
    const auto engine = kokoro();
    engine->setStreamingContext(KokoroStreamingContext{"/t/s", "nowplaying", 80, false, "x"});
    const auto plan = engine->buildPlan("text", config, "/t/out.wav", Chunking::streaming);
    EXPECT_EQ(variable(plan, "TTS_CAPTIONS"), "0");
}

TEST_F(SpawnPlan, StaysSilentWithoutAContextOrWhenCombined) {
    const test::ScopedEnv player("TTS_PLAYER", "inherited");
    const test::ScopedEnv volume("TTS_VOLUME", "inherited");
    const test::ScopedEnv socket("TTS_SERVICE_SOCK", "inherited");
    const auto engine = kokoro();
    const auto streaming = engine->buildPlan("text", config, "/t/out.wav", Chunking::streaming);
    engine->setStreamingContext(
        KokoroStreamingContext{"/t/service.sock", "nowplaying", 80, false, "x"});
    const auto combined = engine->buildPlan("text", config, "/t/out.wav", Chunking::combined);
    for (const auto* plan : {&streaming, &combined}) {
        EXPECT_EQ(variable(*plan, "TTS_PLAYER"), "none");
        for (const auto* name :
             {"TTS_VOLUME", "TTS_NARRATION_TEXT", "TTS_CAPTIONS", "TTS_SERVICE_SOCK"})
            EXPECT_EQ(variable(*plan, name), "(unset)") << name;
    }
}

TEST_F(SpawnPlan, NamesTheReasonWhenTheKokoroScriptIsMissing) {
    KokoroProcessEngine::Options options;
    options.scriptLocator = []() -> std::string {
        throw ScriptResolverError("tts_kokoro.py", {"/a", "/b"});
    };
    const auto engine = KokoroProcessEngine::make(pool, options);
    EXPECT_EQ(engine->readiness(),
              Readiness::unavailable("tts_kokoro.py not found in app bundle or ~/.claude/tts"));
    try {
        static_cast<void>(engine->buildPlan("text", config, "/t/out.wav", Chunking::combined));
        FAIL() << "no error";
    } catch (const SynthError& error) {
        EXPECT_STREQ(error.what(),
                     "Speech engine unavailable: tts_kokoro.py not found: Couldn't find "
                     "tts_kokoro.py. Looked in:\n"
                     "  /a\n  /b");
    }
}

TEST_F(SpawnPlan, IsReadyWithAScriptOfItsOwn) {
    EXPECT_TRUE(kokoro()->readiness().isReady());
}

TEST_F(SpawnPlan, RunsGeminiUnderNode) {
    const test::ScopedEnv speed("TTS_SPEED", "inherited");
    const auto plan = gemini()->buildPlan("text", config, "/t/out.wav", Chunking::combined);
    EXPECT_EQ(plan.executablePath, "/usr/bin/node");
    ASSERT_EQ(plan.arguments.size(), 4U);
    EXPECT_EQ(plan.arguments[0], "/scripts/tts.js");
    EXPECT_EQ(directoryKind(plan.arguments[1]), "sonra-gemini-");
    EXPECT_EQ(plan.arguments[2], "/t/out.wav");
    EXPECT_EQ(plan.arguments[3], "--gemini");
    EXPECT_EQ(variable(plan, "GOOGLE_API_KEY"), "secret");
    EXPECT_EQ(variable(plan, "TTS_VOICE"), "bf_emma");
    EXPECT_EQ(variable(plan, "TTS_SPEED"), "(unset)");
}

TEST_F(SpawnPlan, StreamsGeminiWithPlayLast) {
    const auto plan = gemini()->buildPlan("text", config, "/t/out.wav", Chunking::streaming);
    EXPECT_EQ(plan.arguments[3], "--gemini");
    EXPECT_EQ(plan.arguments.back(), "--play");
}

TEST_F(SpawnPlan, NamesWhatGeminiLacks) {
    struct Row {
        std::shared_ptr<GeminiEngine> engine;
        std::string readiness;
        std::string plan;
    };
    const Row rows[] = {
        {gemini(std::nullopt, std::nullopt, std::nullopt),
         "no Gemini key (set GOOGLE_API_KEY or save one in Settings)", "Node.js not found"},
        {gemini("/usr/bin/node", "/scripts/tts.js", ""),
         "no Gemini key (set GOOGLE_API_KEY or save one in Settings)", "no Gemini key"},
        {gemini(std::nullopt, std::nullopt), "Node.js not found (brew install node)",
         "Node.js not found"},
        {gemini("/usr/bin/node", std::nullopt), "tts.js not found in app bundle or ~/.claude/tts",
         "tts.js not found"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.engine->readiness(), Readiness::unavailable(row.readiness));
        try {
            static_cast<void>(
                row.engine->buildPlan("text", config, "/t/out.wav", Chunking::combined));
            FAIL() << row.plan;
        } catch (const SynthError& error) {
            EXPECT_EQ(error.kind(), SynthError::Kind::unavailable);
            EXPECT_EQ(error.what(), "Speech engine unavailable: " + row.plan);
        }
    }
    EXPECT_TRUE(gemini()->readiness().isReady());
}

TEST(GeminiKey, ComesFromTheEnvironment) {
    const test::ScopedEnv empty("GOOGLE_API_KEY", "");
    EXPECT_EQ(GeminiEngine::defaultKeyResolver(), std::nullopt);
    const test::ScopedEnv set("GOOGLE_API_KEY", "abc");
    EXPECT_EQ(GeminiEngine::defaultKeyResolver(), "abc");
}

}  // namespace
}  // namespace sonra
