#include "linux/MediaSession.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "support/ManualLoop.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// Notes what a desktop would be told.
class NotedSession : public MediaSession {
  public:
    using MediaSession::MediaSession;

    int offers = 0;
    int withdrawals = 0;
    std::vector<MediaView> views;
    std::vector<std::int64_t> jumps;

  private:
    void offer() override { ++offers; }
    void withdraw() override { ++withdrawals; }
    void publish(const MediaView& view, std::optional<std::int64_t> jumpedTo) override {
        views.push_back(view);
        if (jumpedTo) jumps.push_back(*jumpedTo);
    }
};

class MediaSessionTest : public testing::Test {
  protected:
    MediaSessionTest() {
        MediaSession::Handlers handlers;
        handlers.play = handlers.pause = [] { return RemoteCommandStatus::success; };
        handlers.nextTrack = [this] { return note("next"); };
        handlers.previousTrack = [this] { return note("previous"); };
        handlers.seek = [this](double seconds) { seeks.push_back(seconds); };
        handlers.volume = [this](double gain) { gains.push_back(gain); };
        session.setHandlers(std::move(handlers));
    }
    RemoteCommandStatus note(const char* command) {
        commands.emplace_back(command);
        return RemoteCommandStatus::success;
    }
    /// As a chunk's start is told.
    void begin(const std::string& title, double duration = 60) {
        session.setInfo(NowPlayingInfo{title, "TTS", std::nullopt, duration, 0, 1});
        session.setPlaybackState(PlaybackState::playing);
        loop.runPosted();
    }
    void push(double elapsed, double rate = 1) {
        auto info = *session.info();
        info.elapsed = elapsed;
        info.rate = rate;
        session.setInfo(info);
        loop.runPosted();
    }

    test::ManualLoop loop;
    NotedSession session{loop};
    std::vector<std::string> commands;
    std::vector<double> seeks;
    std::vector<double> gains;
};

TEST_F(MediaSessionTest, IsOfferedFromTheFirstSoundUntilItRetires) {
    session.setInfo(std::nullopt);
    session.setPlaybackState(PlaybackState::stopped);
    session.setVolume(0.5);
    session.setCanNavigate(true);
    session.retire();
    loop.runPosted();
    EXPECT_EQ(session.offers + session.withdrawals, 0);
    EXPECT_TRUE(session.views.empty());
    begin("one");
    push(1);
    EXPECT_EQ(session.offers, 1);
    session.setInfo(std::nullopt);
    EXPECT_EQ(session.withdrawals, 0);
    session.retire();
    session.retire();
    EXPECT_EQ(session.withdrawals, 1);
    EXPECT_EQ(session.view().state, PlaybackState::stopped);
    EXPECT_FALSE(session.info());
}

TEST_F(MediaSessionTest, PublishesOnceATurn) {
    begin("one");
    session.setCanNavigate(true);
    session.setVolume(0.3);
    session.setPlaybackState(PlaybackState::paused);
    EXPECT_EQ(session.views.size(), 1U);
    loop.runPosted();
    ASSERT_EQ(session.views.size(), 2U);
    EXPECT_EQ(session.views[1].state, PlaybackState::paused);
    EXPECT_TRUE(session.views[1].canNavigate);
    EXPECT_EQ(session.views[1].volume, 0.3);
}

TEST_F(MediaSessionTest, PublishesNothingAfterItRetired) {
    begin("one");
    session.setVolume(0.3);
    session.retire();
    loop.runPosted();
    EXPECT_EQ(session.views.size(), 1U);
    begin("two");
    EXPECT_EQ(session.views.size(), 2U);
}

TEST_F(MediaSessionTest, PositionGoesOnOnlyWhileSoundRuns) {
    begin("one");
    loop.advance(1500ms);
    EXPECT_EQ(session.positionUs(), 1'500'000);
    session.setPlaybackState(PlaybackState::paused);
    loop.advance(10s);
    EXPECT_EQ(session.positionUs(), 1'500'000);
    session.setPlaybackState(PlaybackState::playing);
    loop.advance(1s);
    EXPECT_EQ(session.positionUs(), 2'500'000);
    push(2.5, 0);  // the player stands although nobody paused it
    loop.advance(10s);
    EXPECT_EQ(session.positionUs(), 2'500'000);
    session.setInfo(std::nullopt);
    EXPECT_EQ(session.positionUs(), 0);
}

TEST_F(MediaSessionTest, PositionStaysWithinTheSound) {
    begin("one", 2);
    loop.advance(1h);
    EXPECT_EQ(session.positionUs(), 2'000'000);
    push(-3, 0);
    EXPECT_EQ(session.positionUs(), 0);
    push(std::numeric_limits<double>::quiet_NaN(), 0);
    EXPECT_EQ(session.positionUs(), 0);
    begin("endless", std::numeric_limits<double>::infinity());
    push(std::numeric_limits<double>::infinity());
    EXPECT_GT(session.positionUs(), 0);
    EXPECT_GT(session.view().lengthUs, 0);
}

TEST_F(MediaSessionTest, JumpsAreToldAndTheWaveringOfClocksIsNot) {
    begin("one");
    EXPECT_EQ(session.jumps, std::vector<std::int64_t>{0});
    for (const double late : {0.0, 0.25, -0.25}) {
        loop.advance(1s);
        push(static_cast<double>(session.positionUs()) / 1e6 + late);
    }
    EXPECT_EQ(session.jumps.size(), 1U);
    push(20);
    EXPECT_EQ(session.jumps.back(), 20'000'000);
    push(0);
    EXPECT_EQ(session.jumps.back(), 0);
    EXPECT_EQ(session.jumps.size(), 3U);
}

TEST_F(MediaSessionTest, ANewSoundIsANewTrackFromItsStart) {
    begin("one");
    const auto first = session.view().track;
    push(0.1);
    EXPECT_EQ(session.view().track, first);
    begin("two");
    const auto second = session.view().track;
    EXPECT_NE(second, first);
    EXPECT_EQ(session.jumps, (std::vector<std::int64_t>{0, 0}));
    session.setInfo(std::nullopt);
    EXPECT_EQ(session.view().track, 0U);
    begin("two");
    EXPECT_NE(session.view().track, second);
}

TEST_F(MediaSessionTest, NextAndPreviousNeedSomewhereToGo) {
    begin("one");
    session.next();
    session.previous();
    EXPECT_TRUE(commands.empty());
    session.setCanNavigate(true);
    session.next();
    session.previous();
    EXPECT_EQ(commands, (std::vector<std::string>{"next", "previous"}));
}

TEST_F(MediaSessionTest, SeeksFromWhereTheSoundIs) {
    begin("one");
    loop.advance(10s);
    session.seekBy(-4'000'000);
    session.seekBy(-40'000'000);
    session.seekBy(std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(seeks, (std::vector<double>{6, 0, 0}));
    session.setCanNavigate(true);
    session.seekBy(std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(commands, std::vector<std::string>{"next"});
    EXPECT_EQ(seeks.size(), 3U);
}

TEST_F(MediaSessionTest, MovesOnlyWithinThePresentTrack) {
    begin("one");
    const auto track = session.view().track;
    session.seekTo(track, -1);
    session.seekTo(track, 60'000'001);
    session.seekTo(track + 1, 1);
    EXPECT_TRUE(seeks.empty());
    session.seekTo(track, 60'000'000);
    EXPECT_EQ(seeks, std::vector<double>{60});
    session.setInfo(std::nullopt);
    session.seekTo(0, 0);
    session.seekBy(0);
    EXPECT_EQ(seeks.size(), 1U);
}

TEST_F(MediaSessionTest, VolumesAreHeldWithinTheirRange) {
    for (const double gain : {0.5, 3.0, -1.0}) session.changeVolume(gain);
    session.changeVolume(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(gains, (std::vector<double>{0.5, 1, 0}));
    session.setVolume(4);
    EXPECT_EQ(session.view().volume, 1);
}

TEST_F(MediaSessionTest, WithoutHandlersNothingIsOfferedAndNothingHappens) {
    session.setHandlers({});
    begin("one");
    const auto view = session.view();
    EXPECT_FALSE(view.canPlay || view.canPause || view.canSeek);
    session.setCanNavigate(true);
    session.play();
    session.next();
    session.changeVolume(1);
    session.seekBy(1);
    EXPECT_TRUE(commands.empty() && seeks.empty() && gains.empty());
}

TEST_F(MediaSessionTest, MayGoWhileAChangeWaitsToBePublished) {
    auto gone = std::make_unique<NotedSession>(loop);
    gone->setInfo(NowPlayingInfo{"one", "TTS", std::nullopt, 60, 0, 1});
    gone.reset();
    loop.runPosted();
}

}  // namespace
}  // namespace sonra
