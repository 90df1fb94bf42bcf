#include "playback/NowPlayingPublisher.h"

#include <gtest/gtest.h>

#include "frame/AudioChunk.h"
#include "frame/Text.h"
#include "support/FakeNowPlayingCenter.h"
#include "support/ManualLoop.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

AudioChunk chunk() {
    return {"/a.wav", "words", "Claude", "sonra", "The album line", "s1", "m1", false};
}

TEST(NowPlayingPublisher, PushesOnceASecondUnlessForced) {
    struct Case {
        double now;
        bool force;
        bool pushes;
    };
    for (const auto& [now, force, pushes] :
         {Case{100, true, true}, Case{100.5, true, true}, Case{100.08, false, false},
          Case{100.92, false, false}, Case{101, false, true}, Case{101.5, false, true}})
        EXPECT_EQ(NowPlayingPublisher::shouldPushNowPlaying(now, 100, force), pushes) << now;
}

class NowPlayingPublisherTest : public testing::Test {
  protected:
    test::ManualLoop loop_;
    test::FakeNowPlayingCenter center_;
    NowPlayingPublisher publisher_{loop_, &center_};
};

TEST_F(NowPlayingPublisherTest, BeginReplacesEverything) {
    center_.setInfo(NowPlayingInfo{"old", "old", "old", 9, 8, 0});
    publisher_.begin(chunk(), 3.5);
    const NowPlayingInfo wanted{"Claude", "sonra", "The album line", 3.5, 0, 1.0};
    EXPECT_EQ(center_.info(), wanted);
    EXPECT_EQ(center_.state, PlaybackState::playing);
}

TEST_F(NowPlayingPublisherTest, AlbumTitleIsLeftOutWhereEmptyAndCutAt120Characters) {
    auto shown = chunk();
    shown.albumLine.clear();
    publisher_.begin(shown, 1);
    EXPECT_FALSE(center_.info()->albumTitle);
    for (int i = 0; i < 121; ++i) shown.albumLine += "é";
    publisher_.begin(shown, 1);
    EXPECT_EQ(text::characterCount(*center_.info()->albumTitle), 120U);
}

TEST_F(NowPlayingPublisherTest, RefreshChangesPositionAndRateOnly) {
    publisher_.begin(chunk(), 3.5);
    publisher_.refresh(1.25, false, true);
    EXPECT_EQ(center_.info(), (NowPlayingInfo{"Claude", "sonra", "The album line", 3.5, 1.25, 0}));
    publisher_.refresh(1.5, true, true);
    EXPECT_EQ(center_.info()->rate, 1.0);
}

TEST_F(NowPlayingPublisherTest, RefreshWaitsASecondAfterBegin) {
    loop_.advance(10s);
    publisher_.begin(chunk(), 5);
    loop_.advance(999ms);
    publisher_.refresh(0.999, true, false);
    EXPECT_EQ(center_.info()->elapsed, 0);
    loop_.advance(1ms);
    publisher_.refresh(1, true, false);
    EXPECT_EQ(center_.info()->elapsed, 1);
    publisher_.refresh(1.1, true, false);
    EXPECT_EQ(center_.info()->elapsed, 1);
}

TEST_F(NowPlayingPublisherTest, ClearShowsNothing) {
    publisher_.begin(chunk(), 5);
    publisher_.clear();
    EXPECT_FALSE(center_.info());
    EXPECT_EQ(center_.state, PlaybackState::stopped);
}

TEST_F(NowPlayingPublisherTest, StandsStillWithoutACenter) {
    NowPlayingPublisher none(loop_, nullptr);
    none.begin(chunk(), 5);
    none.setPlaying(true);
    none.refresh(1, true, true);
    none.clear();
    EXPECT_EQ(center_.pushes, 0);
}

}  // namespace
}  // namespace sonra
