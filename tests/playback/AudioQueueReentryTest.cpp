#include <gtest/gtest.h>

#include "playback/AudioQueueFixture.h"

namespace sonra::test {
namespace {

/// Callbacks that call the queue again.
class AudioQueueReentryTest : public AudioQueueFixture {
  protected:
    /// Lets `act` run after the recording of one callback.
    template <typename... Arguments>
    static std::function<void(Arguments...)> after(std::function<void(Arguments...)> record,
                                                   std::function<void()> act) {
        return [record = std::move(record), act = std::move(act)](Arguments... arguments) {
            record(arguments...);
            act();
        };
    }
    AudioQueue::Callbacks callbacks_ = recording();
};

TEST_F(AudioQueueReentryTest, EnqueueOnIdlePlaysAfterTheCallback) {
    int left = 3;
    callbacks_.onIdle = after(callbacks_.onIdle, [&] {
        if (left-- > 0) queue_.enqueue(chunk("n" + std::to_string(left)));
    });
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    loop_.advance(20s);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "end", "idle", "start n2 1/1", "end", "idle",
                                   "start n1 1/1", "end", "idle", "start n0 1/1", "end", "idle"}));
}

TEST_F(AudioQueueReentryTest, EnqueueOnTheZeroSpectrumPlaysAfterTheIdle) {
    bool once = true;
    callbacks_.onSpectrum = [&](const auto&, const auto&) {
        if (std::exchange(once, false)) queue_.enqueue(chunk("b"));
    };
    queue_.setCallbacks(callbacks_);
    queue_.clear();
    EXPECT_EQ(takeEvents(), (Calls{"idle", "start b 1/1"}));
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(center_.state, PlaybackState::playing);
}

TEST_F(AudioQueueReentryTest, EnqueueOnTheEndKeepsTheOrder) {
    callbacks_.onChunkEnd = after(callbacks_.onChunkEnd, [&] {
        if (queue_.queuedCount() == 1) queue_.enqueue(chunk("c"));
    });
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    loop_.advance(2s);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "end", "start b 2/3"}));
    EXPECT_EQ(queue_.queuedCount(), 1U);
}

TEST_F(AudioQueueReentryTest, ClearOnTheStartLeavesAnIdleQueue) {
    callbacks_.onChunkStart = [&](const AudioChunk& started, int, int) {
        queue_.clear();
        events_.push_back("cleared " + started.text);
    };
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(takeEvents(), (Calls{"idle", "cleared a"}));
    EXPECT_EQ(loaded(), "");
    EXPECT_EQ(loop_.armedTimers(), 0U);
}

TEST_F(AudioQueueReentryTest, ClearOnTheEndReportsIdleOnce) {
    callbacks_.onChunkEnd = after(callbacks_.onChunkEnd, [&] { queue_.clear(); });
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    loop_.advance(2s);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "end", "idle"}));
}

TEST_F(AudioQueueReentryTest, ReplacingTheQueueOnTheStartPlaysTheReplacement) {
    callbacks_.onChunkStart = after(callbacks_.onChunkStart, [&] {
        if (loaded() != "a") return;
        queue_.clear();
        queue_.enqueueAll(chunks({"x", "y"}), 1);
    });
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "idle", "start y 2/2"}));
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
}

TEST_F(AudioQueueReentryTest, SkippingEveryStartOfTenThousandChunksNeedsNoStack) {
    // Without a directory for its snapshot, so that the test needn't write 30,000 of them.
    AudioQueue queue(loop_, players_, pool_, nullptr,
                     std::make_shared<NowPlayingSnapshotWriter>(dir_ / "none/now-playing.json"));
    int starts = 0;
    callbacks_.onChunkStart = [&](const AudioChunk&, int, int) {
        ++starts;
        queue.skip();
    };
    queue.setCallbacks(callbacks_);
    queue.enqueueAll(std::vector<AudioChunk>(10'000, chunk("a")), 0);
    EXPECT_EQ(starts, 10'000);
    EXPECT_EQ(takeEvents(), Calls{"idle"});
}

TEST_F(AudioQueueReentryTest, PauseOnTheStartHoldsTheChunk) {
    callbacks_.onChunkStart = after(callbacks_.onChunkStart, [&] { queue_.setPaused(true); });
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    EXPECT_FALSE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(loaded(), "a");
    loop_.advance(5s);
    // Once for the pause itself, once since a chunk was added to a queue that is paused by then.
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "paused 0", "paused 0"}));
}

TEST_F(AudioQueueReentryTest, SkipAndPauseOnTheStartHoldsTheNextChunk) {
    callbacks_.onChunkStart = after(callbacks_.onChunkStart, [&] {
        if (loaded() != "a") return;
        queue_.skip();
        queue_.setPaused(true);
    });
    queue_.setCallbacks(callbacks_);
    queue_.enqueueAll(chunks({"a", "b"}), 0);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/2", "paused 1"}));
    EXPECT_EQ(loaded(), "");
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"start b 2/2", "resumed"}));
}

TEST_F(AudioQueueReentryTest, ResumeOnThePauseEndsUpPlaying) {
    callbacks_.onPaused = after(callbacks_.onPaused, [&] { queue_.setPaused(false); });
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    queue_.setPaused(true);
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "paused 0", "resumed"}));
}

TEST_F(AudioQueueReentryTest, ClearOrSkipOnProgressEndsTheTick) {
    int ticks = 0;
    callbacks_.onProgress = [&](double, double) {
        if (++ticks == 1) {
            queue_.skip();
        } else {
            queue_.clear();
        }
    };
    queue_.setCallbacks(callbacks_);
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    loop_.advance(80ms);
    EXPECT_EQ(loaded(), "b");
    EXPECT_TRUE(levels_.empty());
    loop_.advance(80ms);
    EXPECT_EQ(levels_.size(), 1U);  // the zeros of the clear
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "start b 2/2", "idle"}));
}

TEST_F(AudioQueueReentryTest, CallbackMayReplaceTheCallbacks) {
    callbacks_.onIdle = [this, words = std::string(100, 'x')] {
        queue_.setCallbacks({});
        events_.push_back(words.substr(0, 1));
    };
    queue_.setCallbacks(callbacks_);
    queue_.clear();
    queue_.clear();
    EXPECT_EQ(takeEvents(), Calls{"x"});
}

TEST_F(AudioQueueReentryTest, WithoutCallbacksEverythingStillWorks) {
    queue_.setCallbacks({});
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    queue_.setPaused(true);
    queue_.setPaused(false);
    loop_.advance(2s);
    EXPECT_EQ(loaded(), "b");
    queue_.clear();
    EXPECT_EQ(loaded(), "");
}

}  // namespace
}  // namespace sonra::test
