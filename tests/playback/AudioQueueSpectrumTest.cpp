#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "playback/AudioQueueFixture.h"
#include "support/SoundFile.h"

namespace sonra::test {
namespace {

class AudioQueueSpectrumTest : public AudioQueueFixture {
  protected:
    ~AudioQueueSpectrumTest() override { releasePool(); }

    AudioChunk sounding(const std::string& name, const std::vector<float>& samples) {
        writeWav(path(name), samples);
        return chunk(name);
    }
    void analyze() {
        pool_.drain();
        loop_.runPosted();
    }
    /// Keeps the pool's only thread busy, so that analyses queue up behind.
    void holdPool() {
        pool_.post([this] { release_.get_future().wait(); });
        held_ = true;
    }
    void releasePool() {
        if (std::exchange(held_, false)) release_.set_value();
    }
    float height() const { return levels_.empty() ? -1 : std::ranges::max(levels_.back()); }

  private:
    std::promise<void> release_;
    bool held_ = false;
};

TEST_F(AudioQueueSpectrumTest, BarsRiseWithTheSound) {
    queue_.enqueue(sounding("a", tone(1000, 2)));
    analyze();
    loop_.advance(80ms);
    EXPECT_NEAR(height(), 0.7, 0.02);  // one tick of attack
    loop_.advance(240ms);
    EXPECT_GT(height(), 0.95F);
    EXPECT_GE(std::ranges::max(peaks_), height());
}

TEST_F(AudioQueueSpectrumTest, BarsRestUntilTheAnalysisIsIn) {
    holdPool();
    queue_.enqueue(sounding("a", tone(1000, 2)));
    loop_.advance(160ms);
    EXPECT_EQ(height(), 0);
    releasePool();
    analyze();
    loop_.advance(80ms);
    EXPECT_GT(height(), 0.5F);
}

TEST_F(AudioQueueSpectrumTest, BarsFollowTheTimeInTheFile) {
    auto samples = silence(1);
    const auto sound = tone(1000, 1);
    samples.insert(samples.end(), sound.begin(), sound.end());
    queue_.enqueue(sounding("a", samples));
    analyze();
    loop_.advance(880ms);
    EXPECT_EQ(height(), 0);
    loop_.advance(400ms);
    EXPECT_GT(height(), 0.9F);
    queue_.seek(0.2);
    loop_.advance(320ms);
    EXPECT_LT(height(), 0.4F);
}

TEST_F(AudioQueueSpectrumTest, BarsFallToRestDuringAPause) {
    queue_.enqueue(sounding("a", tone(1000, 2)));
    analyze();
    loop_.advance(320ms);
    EXPECT_GT(height(), 0.9F);
    queue_.setPaused(true);
    loop_.advance(3s);
    EXPECT_EQ(height(), 0);
    EXPECT_EQ(std::ranges::max(peaks_), 0);
    queue_.setPaused(false);
    loop_.advance(240ms);
    EXPECT_GT(height(), 0.9F);
}

// The next file has no analysis of its own, which would hide a wrong one.
TEST_F(AudioQueueSpectrumTest, ResultForAChunkThatIsNoLongerCurrentIsDropped) {
    holdPool();
    queue_.enqueue(sounding("loud", tone(1000, 2)));
    queue_.enqueue(chunk("missing"));
    queue_.skip();
    releasePool();
    analyze();
    loop_.advance(400ms);
    EXPECT_EQ(loaded(), "missing");
    EXPECT_EQ(height(), 0);
}

TEST_F(AudioQueueSpectrumTest, ResultThatWasUnderWayAtTheSkipIsDropped) {
    queue_.enqueue(sounding("loud", tone(1000, 2)));
    pool_.drain();  // analysed, and on its way home
    queue_.enqueue(chunk("missing"));
    queue_.skip();
    analyze();
    loop_.advance(400ms);
    EXPECT_EQ(height(), 0);
}

TEST_F(AudioQueueSpectrumTest, NextChunkStartsWithBarsAtRest) {
    queue_.enqueue(sounding("loud", tone(1000, 2)));
    analyze();
    loop_.advance(320ms);
    queue_.enqueue(sounding("silent", silence(2)));
    queue_.skip();
    loop_.advance(80ms);
    EXPECT_EQ(height(), 0);
    EXPECT_EQ(std::ranges::max(peaks_), 0);
}

TEST_F(AudioQueueSpectrumTest, FileThatCantBeAnalysedStillPlays) {
    queue_.enqueue(chunk("missing"));
    analyze();
    loop_.advance(400ms);
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(height(), 0);
}

TEST_F(AudioQueueSpectrumTest, ResultAfterTheQueuesEndIsDropped) {
    float highest = 0;
    holdPool();
    {
        AudioQueue brief(loop_, players_, pool_, nullptr, writer_);
        AudioQueue::Callbacks callbacks;
        callbacks.onSpectrum = [&](const AudioQueue::Bands& levels, const AudioQueue::Bands&) {
            highest = std::max(highest, std::ranges::max(levels));
        };
        brief.setCallbacks(std::move(callbacks));
        brief.enqueue(sounding("a", tone(1000, 0.5)));
    }
    releasePool();
    analyze();
    loop_.advance(1s);
    EXPECT_EQ(highest, 0);
}

}  // namespace
}  // namespace sonra::test
