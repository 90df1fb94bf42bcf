#include "control/KokoroSynth.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "frame/ScriptResolver.h"
#include "frame/TemporaryDirectory.h"
#include "support/LogWatch.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

/// An engine that writes the text to the file, or fails where the text says so.
class FakeEngine : public SpeechEngine {
  public:
    const EngineDescriptor& descriptor() const override { return descriptor_; }
    Readiness readiness() const override { return Readiness::ready(); }
    void synthesize(std::string text, SpeechConfig config, SynthesisSink sink, Chunking,
                    ChunkCallback onChunk, DoneCallback onDone) override {
        configs.push_back(config);
        std::thread([=] {
            if (text.find("fail") != std::string::npos)
                return onDone(SynthError::synthesisFailed("told to"));
            if (text.find("vanish") == std::string::npos) test::writeFile(*sink.fileUrl(), text);
            onChunk({sink.fileUrl(), text, 0});
            onDone(std::nullopt);
        }).detach();
    }
    std::vector<SpeechConfig> configs;

  private:
    EngineDescriptor descriptor_{"kokoro", VoiceID::Namespace::kokoro, true, false};
};

class KokoroSynth : public testing::Test {
  protected:
    KokoroSynth() {
        KokoroWorkerEngine::Options options;
        options.scriptLocator = []() -> std::string {
            throw ScriptResolverError("tts_kokoro.py", {});
        };
        worker = std::make_shared<KokoroWorkerEngine>(options);
        log.expect("tts_kokoro.py not found; worker disabled (per-spawn fallback)");
    }
    void speak(const std::string& text, const std::string& session = "s1") {
        NativeNarration::makeKokoroSynth(engine, worker, [this] {
            ++configReads;
            return SpeechConfig{{VoiceID::Namespace::kokoro, "af_sky"}, 1.25, 80};
        })(text, session, "m1", [this](const std::string& chunk, const std::string& wav) {
            texts.push_back(chunk);
            files.push_back(wav);
        });
    }

    std::shared_ptr<FakeEngine> engine = std::make_shared<FakeEngine>();
    std::shared_ptr<KokoroWorkerEngine> worker;
    test::LogWatch log;
    int configReads = 0;
    std::vector<std::string> texts;
    std::vector<std::string> files;
};

TEST_F(KokoroSynth, SpeaksEachChunkInOrderWithOneReadingOfTheSettings) {
    speak("First line.\nSecond line.\nThird line.");
    EXPECT_EQ(texts, (std::vector<std::string>{"First line.", "Second line.", "Third line."}));
    EXPECT_EQ(configReads, 1);
    ASSERT_EQ(engine->configs.size(), 3U);
    EXPECT_EQ(engine->configs[2], (SpeechConfig{{VoiceID::Namespace::kokoro, "af_sky"}, 1.25, 80}));
}

TEST_F(KokoroSynth, FilesAreNamedAfterProcessSessionAndChunk) {
    speak("First line.\nSecond line.", "0b6f7f1d");
    const auto start =
        temporaryDirectory() + "/sonra-narr-" + std::to_string(getpid()) + "-0b6f7f1d-";
    ASSERT_EQ(files.size(), 2U);
    EXPECT_TRUE(files[0].starts_with(start + "0-")) << files[0];
    EXPECT_TRUE(files[1].starts_with(start + "1-")) << files[1];
    EXPECT_EQ(files[0].size(), start.size() + std::string("0-12345678.wav").size());
    EXPECT_EQ(test::readFile(files[1]), "Second line.");
}

TEST_F(KokoroSynth, SessionIdThatIsAPathStaysInTheDirectory) {
    speak("Only one line.", "../../etc/passwd");
    EXPECT_EQ(std::filesystem::path(files.at(0)).parent_path(), temporaryDirectory());
}

TEST_F(KokoroSynth, ChunkForWhichBothFailIsDroppedWithAWarningAndTheOthersCome) {
    log.expect("chunk synth produced no audio; dropping");
    speak("First line.\nThis will fail now.\nThird line.");
    EXPECT_EQ(texts, (std::vector<std::string>{"First line.", "Third line."}));
    const auto record = log.records("chunk synth produced no audio; dropping").at(0);
    EXPECT_EQ(record["input"], (Json{{"chunkIndex", 1}, {"totalChunks", 3}}));
    EXPECT_EQ(record["cause"]["message"], "Synthesis failed: told to");
}

TEST_F(KokoroSynth, ReportOfAFileThatIsNotThereCountsAsFailure) {
    log.expect("chunk synth produced no audio; dropping");
    speak("These words vanish.");
    EXPECT_TRUE(texts.empty());
}

TEST_F(KokoroSynth, TextWithoutWordsAsksNobody) {
    speak(" \n\n ");
    EXPECT_EQ(configReads, 0);
    worker->startAndWaitReady();
}

}  // namespace
}  // namespace sonra
