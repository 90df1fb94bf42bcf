#include "history/ResynthProvider.h"

#include <atomic>
#include <filesystem>

#include "FakePages.h"
#include "HistoryFixture.h"
#include "frame/SerialQueue.h"
#include "history/ChainProvider.h"
#include "history/HistoryPager.h"

namespace sonra::test {
namespace {

namespace fs = std::filesystem;

constexpr auto noAudio = "resynth produced no audio; message stays cold";

class ResynthProviderTest : public HistoryTest {
  protected:
    ResynthProviderTest()
        : ring_(std::make_shared<RingCacheProvider>(
              loop_, RingCacheProvider::Config{.ringDir = ringDir()})),
          pager_(std::make_shared<HistoryPager>(
              loop_, [t = transcript_] { return t->opener()("", HistorySource::claudeCode); }, 16,
              2, [] {})),
          resynth_(std::make_shared<ResynthProvider>(
              loop_, pager_, ring_,
              [this](const auto& text, const auto& path) { return speak(text, path); }, queue_)),
          chain_({ring_, resynth_}) {}
    ~ResynthProviderTest() override {
        transcript_->release();
        settle();
    }

    bool speak(const std::string& text, const std::string& path) {
        ++spoken_;
        text_ = text;
        scratch_ = path;
        if (slow_) {
            started_.signal();
            gate_.wait();
        }
        if (writes_ && fs::exists(fs::path(path).parent_path())) writeFile(path, "speech");
        return works_;
    }
    void resolve(const std::string& id) {
        const int generation = ++generation_;
        chain_.resolveChunks({.ref = {id, "s", MessageRef::History{}},
                              .generation = generation,
                              .isCurrent = [this](int g) { return g == generation_; },
                              .onChunk = [this](const auto& chunk) { emitted_.push_back(chunk); },
                              .onDone = [this] { ++done_; }});
    }
    void resolveToEnd(const std::string& id) {
        const int before = done_;
        resolve(id);
        ASSERT_TRUE(loop_.runUntil([&] { return done_ > before; }));
    }
    /// Until a synthesis that is under way has come home.
    void settle() {
        queue_->sync([] {});
        loop_.runPosted();
        queue_->sync([] {});
        ring_->directory()->drain();
    }

    const std::shared_ptr<FakeTranscript> transcript_ =
        std::make_shared<FakeTranscript>(std::vector<std::string>{"a", "b", "c/d"});
    const std::shared_ptr<SerialQueue> queue_ = std::make_shared<SerialQueue>("sonra.resynth");
    std::atomic<int> spoken_ = 0;
    std::string text_;
    std::string scratch_;
    std::atomic<bool> slow_ = false;
    bool writes_ = true;
    bool works_ = true;
    Semaphore started_;
    Semaphore gate_;
    std::atomic<int> generation_ = 0;
    std::vector<AudioChunk> emitted_;
    int done_ = 0;
    const std::shared_ptr<RingCacheProvider> ring_;
    const std::shared_ptr<HistoryPager> pager_;
    const std::shared_ptr<ResynthProvider> resynth_;
    ChainProvider chain_;
};

TEST_F(ResynthProviderTest, AColdMessageIsSpokenOnceAndIsHotAfterwards) {
    resolveToEnd("b");
    EXPECT_EQ(spoken_, 1);
    EXPECT_EQ(text_, "body of b");
    EXPECT_EQ(scratch_, ringDir() + "/b/resynth.wav");
    ASSERT_EQ(emitted_.size(), 1U);
    const AudioChunk expected{.url = ringDir() + "/b/1.wav",
                              .text = "body of b",
                              .title = "Replay",
                              .artist = "TTS",
                              .albumLine = "body of b",
                              .sessionId = "s",
                              .messageId = "b",
                              .ephemeral = false};
    EXPECT_EQ(emitted_[0], expected);
    EXPECT_EQ(readFile(emitted_[0].url), "speech");
    EXPECT_EQ(ringFiles(), (std::vector<std::string>{expected.url}));
    EXPECT_EQ(ring_->cachedChunks("b"), std::vector{expected});
    resolveToEnd("b");
    EXPECT_EQ(spoken_, 1);
    EXPECT_EQ(emitted_, (std::vector{expected, expected}));
    EXPECT_EQ(done_, 2);
}

TEST_F(ResynthProviderTest, HasNothingAtHandItself) {
    resolveToEnd("b");
    EXPECT_FALSE(resynth_->cachedChunks("b"));
    EXPECT_TRUE(ring_->cachedChunks("b"));
}

TEST_F(ResynthProviderTest, ASlashMapsToOneLevel) {
    resolveToEnd("c/d");
    ASSERT_EQ(emitted_.size(), 1U);
    EXPECT_EQ(emitted_[0].url, ringDir() + "/c_d/1.wav");
    EXPECT_EQ(emitted_[0].messageId, "c/d");
}

TEST_F(ResynthProviderTest, AnUnknownMessageIsDoneWithoutSpeech) {
    resolveToEnd("unknown");
    EXPECT_EQ(spoken_, 0);
    EXPECT_TRUE(emitted_.empty());
    EXPECT_EQ(done_, 1);
}

TEST_F(ResynthProviderTest, FindsWhatWasWrittenSinceTheAttach) {
    resolveToEnd("a");
    transcript_->append("newer");
    resolveToEnd("newer");
    EXPECT_EQ(text_, "body of newer");
    EXPECT_EQ(emitted_.size(), 2U);
}

TEST_F(ResynthProviderTest, SpeechThatFailsLeavesTheMessageCold) {
    LogWatch log;
    log.expect(noAudio);
    works_ = false;
    resolveToEnd("b");
    EXPECT_TRUE(emitted_.empty());
    EXPECT_FALSE(ring_->cachedChunks("b"));
    EXPECT_EQ(log.records(noAudio)[0]["input"]["messageId"], "b");
    settle();
    EXPECT_TRUE(fs::is_empty(ringDir()));
}

TEST_F(ResynthProviderTest, SpeechWithoutAFileLeavesTheMessageCold) {
    LogWatch log;
    log.expect(noAudio);
    writes_ = false;
    resolveToEnd("b");
    EXPECT_TRUE(emitted_.empty());
    EXPECT_EQ(log.count(noAudio), 1U);
}

TEST_F(ResynthProviderTest, ARingThatCannotBeWrittenIsDoneWithoutAChunk) {
    LogWatch log;
    log.expect(noAudio);
    settle();
    fs::remove_all(ringDir());
    writeFile(ringDir(), "a file in the way");
    resolveToEnd("b");
    EXPECT_EQ(spoken_, 0);
    EXPECT_TRUE(emitted_.empty());
}

TEST_F(ResynthProviderTest, ASlowSynthesisThatIsSupersededLeavesNothing) {
    slow_ = true;
    resolve("b");
    ASSERT_TRUE(loop_.runUntil([this] { return spoken_ == 1; }));
    ++generation_;
    ring_->clearAll();
    gate_.signal();
    settle();
    EXPECT_EQ(spoken_, 1);
    EXPECT_TRUE(emitted_.empty());
    EXPECT_EQ(done_, 0);
    EXPECT_FALSE(ring_->cachedChunks("b"));
    EXPECT_TRUE(fs::is_empty(ringDir()));
}

TEST_F(ResynthProviderTest, ASupersededResultGoesEvenWhenTheRingStays) {
    slow_ = true;
    resolve("b");
    ASSERT_TRUE(loop_.runUntil([this] { return spoken_ == 1; }));
    ++generation_;
    gate_.signal();
    settle();
    EXPECT_EQ(done_, 0);
    EXPECT_TRUE(fs::is_empty(ringDir()));
}

TEST_F(ResynthProviderTest, ARingThatIsClearedInMidSynthesisStaysEmpty) {
    slow_ = true;
    resolve("b");
    ASSERT_TRUE(loop_.runUntil([this] { return spoken_ == 1; }));
    ring_->clearAll();
    gate_.signal();
    ASSERT_TRUE(loop_.runUntil([this] { return done_ == 1; }));
    EXPECT_TRUE(emitted_.empty());
    EXPECT_TRUE(ring_->messageIdOrder().empty());
    settle();
    EXPECT_TRUE(fs::is_empty(ringDir()));
}

TEST_F(ResynthProviderTest, ARequestThatIsSupersededWhileItWaitsIsNeverSpoken) {
    slow_ = true;
    resolve("a");
    ASSERT_TRUE(loop_.runUntil([this] { return spoken_ == 1; }));
    resolve("b");
    resolve("c/d");
    loop_.runPosted();
    gate_.signal();
    gate_.signal();
    ASSERT_TRUE(loop_.runUntil([this] { return done_ == 1; }));
    EXPECT_EQ(spoken_, 2);
    EXPECT_EQ(messageIds(emitted_), (std::vector<std::string>{"c/d"}));
    settle();
    EXPECT_EQ(ringFiles().size(), 1U);
}

TEST_F(ResynthProviderTest, GoingAwayAndBackToAMessageKeepsTheLastResult) {
    slow_ = true;
    resolve("b");
    ASSERT_TRUE(loop_.runUntil([this] { return spoken_ == 1; }));
    resolve("b");
    gate_.signal();
    // The first result isn't looked at before the second is under way, with the same scratch file.
    ASSERT_TRUE(started_.waitFor(std::chrono::seconds(20)));
    ASSERT_TRUE(started_.waitFor(std::chrono::seconds(20)));
    loop_.runPosted();
    gate_.signal();
    ASSERT_TRUE(loop_.runUntil([this] { return done_ == 1; }));
    ASSERT_EQ(emitted_.size(), 1U);
    EXPECT_EQ(readFile(emitted_[0].url), "speech");
    settle();
    EXPECT_EQ(ringFiles().size(), 1U);
}

TEST_F(ResynthProviderTest, ATextThatIsReadForLongDoesNotHoldTheCaller) {
    transcript_->hold();
    transcript_->append("late");
    resolve("late");
    EXPECT_EQ(done_, 0);
    transcript_->release();
    ASSERT_TRUE(loop_.runUntil([this] { return done_ == 1; }));
    EXPECT_EQ(emitted_.size(), 1U);
}

class ResynthIds : public ResynthProviderTest, public testing::WithParamInterface<std::string> {};

/// Whatever a message is called: one directory in the ring, nothing touched beside it, and heard
/// from the ring the second time.
TEST_P(ResynthIds, StayInsideTheRing) {
    const auto& id = GetParam();
    writeFile(directory_ / "beside", "somebody's");
    fs::create_directories(directory_ / "_");
    transcript_->append(id);
    resolveToEnd(id);
    ASSERT_EQ(emitted_.size(), 1U);
    const auto heard = emitted_[0];
    EXPECT_EQ(heard.messageId, id);
    EXPECT_EQ(text_, "body of " + id);
    EXPECT_EQ(readFile(heard.url), "speech");
    EXPECT_EQ(fs::canonical(heard.url).parent_path().parent_path(), fs::canonical(ringDir()));
    EXPECT_EQ(fs::path(scratch_).parent_path(), fs::path(heard.url).parent_path());
    resolveToEnd(id);
    EXPECT_EQ(spoken_, 1);
    EXPECT_EQ(emitted_, (std::vector{heard, heard}));
    settle();
    EXPECT_EQ(ringFiles(), std::vector{heard.url});
    ring_->clearAll();
    settle();
    EXPECT_TRUE(fs::is_empty(ringDir()));
    EXPECT_EQ(readFile(directory_ / "beside"), "somebody's");
    EXPECT_TRUE(fs::is_directory(directory_ / "_"));
}

INSTANTIATE_TEST_SUITE_P(ResynthProvider, ResynthIds,
                         testing::Values(".", "..", "a/b", "/", "../beside", "../../beside",
                                         "with some spaces", " ", std::string(300, 'x'),
                                         "\x01\x02\x1F\x7F\t\r\n", "🙂👩‍👩‍👧🇨🇿",
                                         "resynth.wav", ".discarded-1-1", "-rf"));

}  // namespace
}  // namespace sonra::test
