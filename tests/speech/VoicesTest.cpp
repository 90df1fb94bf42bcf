#include <gtest/gtest.h>

#include <memory>
#include <unordered_set>

#include "frame/ScriptResolver.h"
#include "frame/WorkerPool.h"
#include "speech/EngineRegistry.h"
#include "speech/MacSynthesizer.h"
#include "speech/SpeechConfig.h"
#include "speech/VoiceCatalog.h"

namespace sonra {
namespace {

using Namespace = VoiceID::Namespace;

std::string missingScript() {
    throw ScriptResolverError("tts_kokoro.py", {"/nowhere"});
}

MacSynthesizer synthesizer(WorkerPool& pool, bool kokoroReady, bool hasKey) {
    KokoroProcessEngine::Options kokoro;
    kokoro.scriptLocator = missingScript;
    if (kokoroReady) kokoro.scriptOverride = "/scripts/tts_kokoro.py";
    GeminiEngine::Options gemini;
    gemini.nodeResolver = [] { return "/usr/bin/node"; };
    gemini.scriptResolver = [] { return "/scripts/tts.js"; };
    gemini.keyResolver = [hasKey] {
        return hasKey ? std::optional<std::string>("key") : std::nullopt;
    };
    return {KokoroProcessEngine::make(pool, kokoro), GeminiEngine::make(pool, gemini)};
}

/// Counts how often it is asked.
class FakeEngine : public SpeechEngine {
  public:
    FakeEngine(Namespace ns, Readiness readiness)
        : descriptor_{"fake", ns, false, false}, ready_(std::move(readiness)) {}
    const EngineDescriptor& descriptor() const override { return descriptor_; }
    Readiness readiness() const override {
        ++asked;
        return ready_;
    }
    void synthesize(std::string, SpeechConfig, SynthesisSink, Chunking, ChunkCallback,
                    DoneCallback) override {}

    mutable int asked = 0;

  private:
    EngineDescriptor descriptor_;
    Readiness ready_;
};

TEST(MacSynthesizer, ChoosesTheReadyEngineOfTheVoicesNamespace) {
    WorkerPool pool;
    const auto mac = synthesizer(pool, true, true);
    EXPECT_EQ(mac.engine({Namespace::kokoro, "af_heart"}), mac.kokoro());
    EXPECT_EQ(mac.engine({Namespace::gemini, "Puck"}), mac.gemini());
    EXPECT_EQ(mac.engines(),
              (std::vector<std::shared_ptr<SpeechEngine>>{mac.kokoro(), mac.gemini()}));
}

TEST(MacSynthesizer, YieldsNothingForGeminiWithoutAKey) {
    WorkerPool pool;
    EXPECT_EQ(synthesizer(pool, true, false).engine({Namespace::gemini, "Puck"}), nullptr);
}

TEST(MacSynthesizer, YieldsNothingForKokoroWithoutItsScript) {
    WorkerPool pool;
    EXPECT_EQ(synthesizer(pool, false, true).engine({Namespace::kokoro, "af_heart"}), nullptr);
}

TEST(MacSynthesizer, ResolvesNothingForASystemVoice) {
    WorkerPool pool;
    EXPECT_EQ(synthesizer(pool, true, true).engine({Namespace::system, "Alex"}), nullptr);
}

TEST(MacSynthesizer, MakesAFreshEngineForEveryNamespace) {
    WorkerPool pool;
    const auto kokoro = MacSynthesizer::freshEngine({Namespace::kokoro, "x"}, pool);
    EXPECT_NE(dynamic_cast<KokoroProcessEngine*>(kokoro.get()), nullptr);
    EXPECT_NE(MacSynthesizer::freshEngine({Namespace::kokoro, "x"}, pool), kokoro);
    const auto system = MacSynthesizer::freshEngine({Namespace::system, "x"}, pool);
    EXPECT_NE(dynamic_cast<KokoroProcessEngine*>(system.get()), nullptr);
    const auto gemini = MacSynthesizer::freshEngine({Namespace::gemini, "x"}, pool);
    EXPECT_NE(dynamic_cast<GeminiEngine*>(gemini.get()), nullptr);
}

TEST(MacSynthesizer, DescribesItsEngines) {
    WorkerPool pool;
    const auto mac = synthesizer(pool, true, true);
    EXPECT_EQ(mac.kokoro()->descriptor(),
              (EngineDescriptor{"kokoro", Namespace::kokoro, true, false}));
    EXPECT_EQ(mac.gemini()->descriptor(),
              (EngineDescriptor{"gemini", Namespace::gemini, false, false}));
}

TEST(EngineRegistry, PassesOverACandidateThatIsNotReady) {
    const auto unready =
        std::make_shared<FakeEngine>(Namespace::kokoro, Readiness::unavailable("broken"));
    const auto first = std::make_shared<FakeEngine>(Namespace::kokoro, Readiness::ready());
    const auto second = std::make_shared<FakeEngine>(Namespace::kokoro, Readiness::ready());
    EXPECT_EQ(EngineRegistry::resolve({Namespace::kokoro, "x"}, {unready, first, second}), first);
    EXPECT_EQ(second->asked, 0);
}

TEST(EngineRegistry, DoesNotAskCandidatesOfAnotherNamespace) {
    const auto other = std::make_shared<FakeEngine>(Namespace::gemini, Readiness::ready());
    EXPECT_EQ(EngineRegistry::resolve({Namespace::kokoro, "x"}, {other}), nullptr);
    EXPECT_EQ(other->asked, 0);
}

TEST(VoiceID, ReadsItsNamespaceExactly) {
    EXPECT_EQ(VoiceID::namespaceFrom("kokoro"), Namespace::kokoro);
    EXPECT_EQ(VoiceID::namespaceFrom("gemini"), Namespace::gemini);
    EXPECT_EQ(VoiceID::namespaceFrom("system"), Namespace::system);
    EXPECT_EQ(VoiceID::namespaceFrom("Kokoro"), std::nullopt);
    EXPECT_EQ(VoiceID::namespaceFrom(""), std::nullopt);
    EXPECT_EQ(VoiceID::rawValue(Namespace::system), "system");
}

TEST(VoiceID, ComparesAndHashesBothFields) {
    const std::unordered_set<VoiceID> voices{{Namespace::kokoro, "a"},
                                             {Namespace::gemini, "a"},
                                             {Namespace::kokoro, "b"},
                                             {Namespace::kokoro, "a"}};
    EXPECT_EQ(voices.size(), 3U);
    EXPECT_NE(std::hash<VoiceID>()({Namespace::kokoro, "a"}),
              std::hash<VoiceID>()({Namespace::gemini, "a"}));
    EXPECT_NE(std::hash<VoiceID>()({Namespace::kokoro, "a"}),
              std::hash<VoiceID>()({Namespace::kokoro, "b"}));
}

TEST(SpeechConfig, IsEqualWhenAllFieldsAre) {
    const SpeechConfig config{.voice = {Namespace::kokoro, "af_heart"}, .speed = 1.5, .volume = 80};
    EXPECT_EQ(config, (SpeechConfig{{Namespace::kokoro, "af_heart"}, 1.5, 80}));
    EXPECT_NE(config, (SpeechConfig{{Namespace::kokoro, "af_bella"}, 1.5, 80}));
    EXPECT_NE(config, (SpeechConfig{{Namespace::gemini, "af_heart"}, 1.5, 80}));
    EXPECT_NE(config, (SpeechConfig{{Namespace::kokoro, "af_heart"}, 1.0, 80}));
    EXPECT_NE(config, (SpeechConfig{{Namespace::kokoro, "af_heart"}, 1.5, 81}));
}

TEST(VoiceCatalog, FindsAVoiceByItsExactId) {
    ASSERT_TRUE(VoiceCatalog::entry("af_heart"));
    EXPECT_EQ(VoiceCatalog::entry("af_heart")->name, "Heart");
    EXPECT_EQ(VoiceCatalog::entry("bf_emma")->descriptor, "expressive British female");
    EXPECT_EQ(VoiceCatalog::entry("AF_HEART"), std::nullopt);
    EXPECT_EQ(VoiceCatalog::entry("nobody"), std::nullopt);
}

TEST(VoiceCatalog, ListsEveryVoiceInMenuOrder) {
    const std::vector<VoiceCatalog::Entry> expected{
        {"af_heart", "Heart", "warm American female"},
        {"af_bella", "Bella", "conversational American female"},
        {"af_nicole", "Nicole", "American female"},
        {"af_sarah", "Sarah", "American female"},
        {"af_jessica", "Jessica", "American female"},
        {"af_sky", "Sky", "American female"},
        {"am_adam", "Adam", "American male"},
        {"am_michael", "Michael", "American male"},
        {"am_puck", "Puck", "American male"},
        {"am_eric", "Eric", "American male"},
        {"am_onyx", "Onyx", "American male"},
        {"bf_emma", "Emma", "expressive British female"},
        {"bf_isabella", "Isabella", "British female"},
        {"bf_alice", "Alice", "British female"},
        {"bf_lily", "Lily", "British female"},
        {"bm_george", "George", "British male"},
        {"bm_lewis", "Lewis", "British male"},
        {"bm_daniel", "Daniel", "British male"},
        {"bm_fable", "Fable", "British male"},
    };
    ASSERT_EQ(VoiceCatalog::all().size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(VoiceCatalog::all()[i], expected[i]) << expected[i].id;
}

TEST(VoiceCatalog, OffersFourVoicesOnTheFirstDay) {
    std::vector<std::string_view> ids;
    for (const auto& entry : VoiceCatalog::onboarding()) ids.push_back(entry.id);
    EXPECT_EQ(ids, (std::vector<std::string_view>{"af_heart", "bf_emma", "am_adam", "af_bella"}));
}

TEST(SynthError, DescribesEachKind) {
    EXPECT_STREQ(SynthError::noEngine(Namespace::gemini).what(),
                 "No speech engine for voice namespace gemini.");
    EXPECT_STREQ(SynthError::unavailable("no key").what(), "Speech engine unavailable: no key");
    EXPECT_STREQ(SynthError::synthesisFailed("exit code 2").what(),
                 "Synthesis failed: exit code 2");
    EXPECT_EQ(SynthError::unavailable("x").kind(), SynthError::Kind::unavailable);
}

TEST(Readiness, IsEqualByCaseAndReason) {
    EXPECT_TRUE(Readiness::ready().isReady());
    EXPECT_FALSE(Readiness::unavailable("").isReady());
    EXPECT_EQ(Readiness::unavailable("a"), Readiness::unavailable("a"));
    EXPECT_NE(Readiness::unavailable("a"), Readiness::unavailable("b"));
    EXPECT_NE(Readiness::unavailable(""), Readiness::ready());
}

}  // namespace
}  // namespace sonra
