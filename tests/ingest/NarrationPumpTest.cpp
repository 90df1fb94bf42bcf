#include "ingest/NarrationPump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "frame/Text.h"
#include "ingest/TextCleaner.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

/// A pump whose synthesis cuts at full stops and makes up file names; everything that happens is
/// written down.
class NarrationPumpTest : public testing::Test {
  protected:
    std::unique_ptr<NarrationPump> make(NarrationPump::Settings asked) {
        auto made = std::make_unique<NarrationPump>(
            [this](const std::string& text, const std::string& session, const std::string& message,
                   const NarrationPump::OnChunk& onChunk) {
                synthesised.push_back(session + "/" + message + ": " + text);
                std::string rest = text;
                for (int i = 0; !rest.empty(); ++i) {
                    const auto end = std::min(rest.find(". "), rest.size() - 1) + 1;
                    log.push_back("synth " + std::to_string(i));
                    if (i != skippedChunk)
                        onChunk(rest.substr(0, end), "/tmp/" + std::to_string(i) + ".wav");
                    rest = rest.substr(std::min(end + 1, rest.size()));
                }
            },
            [this](const AudioChunk& chunk) {
                log.push_back("record " + chunk.url);
                recorded.push_back(chunk);
            },
            [this](const AudioChunk& chunk) {
                log.push_back("enqueue " + chunk.url);
                enqueued.push_back(chunk);
            },
            std::move(asked));
        made->setOnSynthesisStart([this](const std::string& session, const std::string& message) {
            log.push_back("start " + session + "/" + message);
        });
        return made;
    }

    using Strings = std::vector<std::string>;

    NarrationPump::NarrationSettings settings;
    int skippedChunk = -1;
    Strings log;
    Strings synthesised;
    std::vector<AudioChunk> recorded;
    std::vector<AudioChunk> enqueued;
    std::unique_ptr<NarrationPump> pump = make([this] { return settings; });
};

TEST_F(NarrationPumpTest, AMessageInTwoChunksIsRecordedAndEnqueuedAlternately) {
    pump->ingest("s", "m", "The first sentence. The second sentence.");
    EXPECT_EQ(log, (Strings{"start s/m", "synth 0", "record /tmp/0.wav", "enqueue /tmp/0.wav",
                            "synth 1", "record /tmp/1.wav", "enqueue /tmp/1.wav"}));
    EXPECT_EQ(synthesised.size(), 1U);
}

TEST_F(NarrationPumpTest, AChunkCarriesItsOwnTextAndTheMessagesSnippet) {
    pump->ingest("s", "m", "The **first** sentence. The second sentence.");
    const AudioChunk expected{.url = "/tmp/1.wav",
                              .text = "The second sentence.",
                              .title = "Claude",
                              .artist = "TTS",
                              .albumLine = "The first sentence. The second sentence.",
                              .sessionId = "s",
                              .messageId = "m",
                              .ephemeral = true};
    ASSERT_EQ(enqueued.size(), 2U);
    EXPECT_EQ(enqueued[1], expected);
    EXPECT_EQ(recorded, enqueued);
}

TEST_F(NarrationPumpTest, TheSnippetIsTheFirst240CharactersOfTheCleanedText) {
    std::string words;
    for (int i = 0; i < 60; ++i) words += "größer ";
    pump->ingest("s", "m", words);
    const auto cleaned = TextCleaner::cleanForSpeech(words);
    ASSERT_EQ(enqueued.size(), 1U);
    EXPECT_EQ(enqueued[0].albumLine, text::prefix(cleaned, 240));
    EXPECT_EQ(text::characterCount(enqueued[0].albumLine), 240U);
    EXPECT_EQ(enqueued[0].text, cleaned);
}

TEST_F(NarrationPumpTest, Chunk0IsEnqueuedBeforeChunk1IsSynthesised) {
    pump->ingest("s", "m", "The first sentence. The second sentence.");
    const auto at = [&](const char* entry) { return std::find(log.begin(), log.end(), entry); };
    ASSERT_NE(at("synth 1"), log.end());
    EXPECT_LT(at("enqueue /tmp/0.wav"), at("synth 1"));
}

TEST_F(NarrationPumpTest, AnIdThatWasSentBeforeIsNotSpokenAgain) {
    pump->ingest("s", "m", "A message of some length");
    pump->ingest("s", "m", "A message of some length");
    EXPECT_EQ(enqueued.size(), 1U);
    EXPECT_EQ(synthesised.size(), 1U);
}

TEST_F(NarrationPumpTest, ATextThatCleansToLessThanTenCharactersStaysDropped) {
    pump->ingest("s", "m", "Done.\nhttps://example.org/a/long/address");
    EXPECT_TRUE(log.empty());
    pump->ingest("s", "m", "Done, and now with many more words");
    EXPECT_TRUE(log.empty());
}

TEST_F(NarrationPumpTest, TheLengthGateCountsCharactersAsPeopleDo) {
    const struct {
        const char* name;
        const char* text;
        bool passes;
    } rows[] = {
        {"empty", "", false},
        {"9 letters", "abcdefghi", false},
        {"10 letters", "abcdefghij", true},
        {"9 letters and white space", "  abcdefghi\n\n ", false},
        {"9 accented, decomposed",
         "u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308", false},
        {"10 accented, decomposed",
         "u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308u\u0308", true},
        {"9 of three bytes", "日本語日本語日本語", false},
        {"10 of three bytes", "日本語日本語日本語日", true},
    };
    for (const auto& row : rows) {
        enqueued.clear();
        pump->ingest("s", row.name, row.text);
        EXPECT_EQ(enqueued.size(), row.passes ? 1U : 0U) << row.name;
    }
}

TEST_F(NarrationPumpTest, AMutedMessageIsNeverSpoken) {
    settings.muted = true;
    pump->ingest("s", "m", "A message of some length");
    settings.muted = false;
    pump->ingest("s", "m", "A message of some length");
    EXPECT_TRUE(log.empty());
    pump->ingest("s", "m2", "Another message of some length");
    EXPECT_EQ(enqueued.size(), 1U);
}

TEST_F(NarrationPumpTest, APausedMessageIsEnqueued) {
    settings.paused = true;
    pump->ingest("s", "m", "A message of some length");
    EXPECT_EQ(enqueued.size(), 1U);
    EXPECT_EQ(recorded.size(), 1U);
}

TEST_F(NarrationPumpTest, SettingsAreAskedOncePerNewMessage) {
    int asked = 0;
    auto counting = make([&] {
        ++asked;
        return NarrationPump::NarrationSettings{};
    });
    counting->ingest("s", "m", "The first sentence. The second sentence.");
    counting->ingest("s", "m", "The first sentence. The second sentence.");
    EXPECT_EQ(asked, 1);
}

TEST_F(NarrationPumpTest, TheSharedStateDocumentIsTheDefaultForSettings) {
    const test::TempHome home;
    auto reading = make({});
    test::writeFile(home.shared() + "/state.json", R"({"muted": true})");
    reading->ingest("s", "m1", "A message of some length");
    EXPECT_TRUE(enqueued.empty());
    test::writeFile(home.shared() + "/state.json", R"({"muted": false, "paused": true})");
    reading->ingest("s", "m2", "A message of some length");
    EXPECT_EQ(enqueued.size(), 1U);
}

TEST_F(NarrationPumpTest, TheSameIdInTwoSessionsIsTwoNarrations) {
    pump->ingest("s1", "m", "A message of some length");
    pump->ingest("s2", "m", "A message of some length");
    ASSERT_EQ(enqueued.size(), 2U);
    EXPECT_EQ(enqueued[0].sessionId, "s1");
    EXPECT_EQ(enqueued[1].sessionId, "s2");
}

TEST_F(NarrationPumpTest, AChunkWithoutAudioLeavesAGapAndTheOthersAreEnqueued) {
    skippedChunk = 1;
    pump->ingest("s", "m", "The first sentence. The second one. The third one.");
    ASSERT_EQ(enqueued.size(), 2U);
    EXPECT_EQ(enqueued[0].url, "/tmp/0.wav");
    EXPECT_EQ(enqueued[1].url, "/tmp/2.wav");
}

TEST_F(NarrationPumpTest, WorksWithoutASynthesisStartCallback) {
    pump->setOnSynthesisStart(nullptr);
    pump->ingest("s", "m", "A message of some length");
    EXPECT_EQ(enqueued.size(), 1U);
}

/// The memory of 4096 ids, probed at its edges. Too-short texts fill it without being spoken.
class NarrationPumpMemoryTest : public NarrationPumpTest {
  protected:
    void fill(int first, int last) {
        for (int i = first; i <= last; ++i) pump->ingest("s", std::to_string(i), "ok");
    }
    /// Sends an id with a text that would be spoken; true if it was, that is, if the id counted as
    /// new. An id that is remembered leaves the memory as it is, one that counts as new evicts the
    /// oldest.
    bool isNew(int id) {
        const auto before = enqueued.size();
        pump->ingest("s", std::to_string(id), "A message of some length");
        return enqueued.size() > before;
    }
};

TEST_F(NarrationPumpMemoryTest, Holds4096Ids) {
    fill(1, 4096);
    for (const int id : {1, 2, 4095, 4096}) EXPECT_FALSE(isNew(id)) << id;
}

TEST_F(NarrationPumpMemoryTest, The4097thIdEvictsExactlyTheOldest) {
    fill(1, 4097);
    for (const int id : {2, 3, 4096, 4097}) EXPECT_FALSE(isNew(id)) << id;
    EXPECT_TRUE(isNew(1));
}

TEST_F(NarrationPumpMemoryTest, AnEvictedIdThatComesBackIsRememberedAsTheNewest) {
    fill(1, 4097);
    EXPECT_TRUE(isNew(1));
    EXPECT_FALSE(isNew(1));
    EXPECT_TRUE(isNew(2));
    EXPECT_FALSE(isNew(4));
    fill(5000, 5000 + 4093);
    EXPECT_FALSE(isNew(1));
    fill(9999, 9999);
    EXPECT_FALSE(isNew(2));
    EXPECT_TRUE(isNew(1));
}

TEST_F(NarrationPumpMemoryTest, After4096FurtherIdsTheWholeMemoryIsReplaced) {
    fill(1, 2 * 4096);
    EXPECT_FALSE(isNew(4097));
    EXPECT_FALSE(isNew(8192));
    EXPECT_TRUE(isNew(4096));
}

TEST_F(NarrationPumpMemoryTest, ADuplicateDoesNotRefreshItsPlace) {
    fill(1, 4096);
    EXPECT_FALSE(isNew(1));
    fill(4097, 4097);
    EXPECT_TRUE(isNew(1));
}

}  // namespace
}  // namespace sonra
