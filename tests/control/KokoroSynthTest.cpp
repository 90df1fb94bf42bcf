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
    void synthesize(std::string text, SpeechConfig config, SynthesisSink sink, Chunking chunking,
                    ChunkCallback onChunk, DoneCallback onDone) override {
        configs.push_back(config);
        chunkings.push_back(chunking);
        if (onCall) onCall(text);
        std::thread([=] {
            if (text.find("fail") != std::string::npos)
                return onDone(SynthError::synthesisFailed("told to"));
            if (text.find("vanish") == std::string::npos) test::writeFile(*sink.fileUrl(), text);
            onChunk({text.find("elsewhere") == std::string::npos ? sink.fileUrl() : "/elsewhere",
                     text, 0});
            if (text.find("later") != std::string::npos) onChunk({std::nullopt, text, 1});
            onDone(std::nullopt);
        }).detach();
    }
    std::vector<SpeechConfig> configs;
    std::vector<Chunking> chunkings;
    std::function<void(const std::string&)> onCall;

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
            if (onChunk) onChunk(chunk);
            texts.push_back(chunk);
            files.push_back(wav);
        });
    }

    std::shared_ptr<FakeEngine> engine = std::make_shared<FakeEngine>();
    std::shared_ptr<KokoroWorkerEngine> worker;
    test::LogWatch log;
    std::function<void(const std::string&)> onChunk;
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

TEST_F(KokoroSynth, HandsEachChunkOverBeforeTheNextIsSynthesised) {
    std::vector<std::string> order;
    engine->onCall = [&](const std::string& text) { order.push_back("synthesise " + text); };
    onChunk = [&](const std::string& text) { order.push_back("hand over " + text); };
    speak("One.\nTwo.");
    EXPECT_EQ(order, (std::vector<std::string>{"synthesise One.", "hand over One.",
                                               "synthesise Two.", "hand over Two."}));
    EXPECT_EQ(engine->chunkings, (std::vector<Chunking>{Chunking::combined, Chunking::combined}));
}

TEST_F(KokoroSynth, ReportOfAnotherFileCountsAsFailureAndLeavesNothingBehind) {
    removeTemporaryDirectory();
    log.expect("chunk synth produced no audio; dropping");
    speak("These words are elsewhere.");
    EXPECT_TRUE(texts.empty());
    for (const auto& entry : std::filesystem::directory_iterator(temporaryDirectory()))
        EXPECT_FALSE(entry.path().filename().string().starts_with("sonra-narr-")) << entry.path();
}

TEST_F(KokoroSynth, ReportOfTheFileStandsWhateverComesLater) {
    speak("Something else comes later.");
    EXPECT_EQ(texts.size(), 1U);
}

TEST_F(KokoroSynth, FilesAreNamedAfterProcessSessionAndChunk) {
    speak("First line.\nSecond line.", "0b6f7f1d");
    const auto start =
        temporaryDirectory() + "/sonra-narr-" + std::to_string(getpid()) + "-0b6f7f1d-";
    ASSERT_EQ(files.size(), 2U);
    EXPECT_TRUE(files[0].starts_with(start + "0-")) << files[0];
    EXPECT_TRUE(files[1].starts_with(start + "1-")) << files[1];
    EXPECT_EQ(files[0].size(), start.size() + std::string("0-12345678.wav").size());
    EXPECT_EQ(files[0].substr(start.size() + 2, 8).find_first_not_of("0123456789ABCDEF"),
              std::string::npos);
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

/// With a worker that notes its requests and refuses texts that ask for it.
class KokoroSynthWithWorker : public testing::Test {
  protected:
    KokoroSynthWithWorker() {
        test::writeFile(home / "worker", R"(#!/usr/bin/python3
import json, sys
print(json.dumps({"type": "ready"}), flush=True)
for line in sys.stdin:
    request = json.loads(line)
    if request["type"] == "quit":
        break
    with open(sys.argv[0] + ".requests", "a") as notes:
        notes.write(line)
    ok = "refuse" not in request["text"]
    if ok:
        open(request["outWav"], "w").write("worker")
    print(json.dumps({"type": "result", "id": request["id"], "ok": ok}), flush=True)
)");
        std::filesystem::permissions(home / "worker", std::filesystem::perms::owner_all);
        KokoroWorkerEngine::Options options;
        options.scriptOverride = home / "worker";
        options.uvResolver = [path = home / "worker"] { return std::optional<std::string>(path); };
        worker = std::make_shared<KokoroWorkerEngine>(options);
    }
    test::TempHome home;
    std::shared_ptr<FakeEngine> engine = std::make_shared<FakeEngine>();
    std::shared_ptr<KokoroWorkerEngine> worker;
};

TEST_F(KokoroSynthWithWorker, AsksTheWorkerAndTheEngineOnlyWhereItRefuses) {
    std::vector<std::string> contents;
    std::vector<std::string> files;
    NativeNarration::makeKokoroSynth(
        engine, worker,
        [] {
            return SpeechConfig{{VoiceID::Namespace::kokoro, "bf_lily"}, 1.25, 80};
        })("First words.\nPlease refuse this.\nLast words.", "s1", "m1",
           [&](const std::string&, const std::string& wav) {
               files.push_back(wav);
               contents.push_back(test::readFile(wav));
           });
    EXPECT_EQ(contents, (std::vector<std::string>{"worker", "Please refuse this.", "worker"}));
    EXPECT_EQ(engine->configs.size(), 1U);
    const auto notes = test::readFile(home / "worker.requests");
    const auto first = *json::parse(notes.substr(0, notes.find('\n')));
    EXPECT_EQ(first["text"], "First words.");
    EXPECT_EQ(first["voice"], "bf_lily");
    EXPECT_EQ(first["speed"], "1.25");
    EXPECT_EQ(first["outWav"], files.at(0));
}

}  // namespace
}  // namespace sonra
