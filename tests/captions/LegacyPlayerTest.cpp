#include "captions/LegacyPlayer.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "captions/CaptionFixture.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "support/FakeNowPlayingCenter.h"
#include "support/FakePlayer.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

class LegacyPlayerTest : public testing::Test {
  protected:
    LegacyPlayerTest() {
        args_.wav = directory_ / "a.wav";
        args_.snippet = "the quick brown fox jumps";
        test::writeFile(args_.wav, "sound");
    }

    /// Runs it and returns what it says on standard error meanwhile.
    std::string run() {
        testing::internal::CaptureStderr();
        player_.run(args_);
        return testing::internal::GetCapturedStderr();
    }
    std::string advance(MainLoop::Duration by) {
        testing::internal::CaptureStderr();
        loop_.advance(by);
        return testing::internal::GetCapturedStderr();
    }

    /// What the first that connected has sent so far.
    static std::string receivedBy(const UniqueFd& listener) {
        const UniqueFd accepted(accept(listener.get(), nullptr, nullptr));
        std::array<char, 4096> bytes{};
        const auto got = recv(accepted.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
    }

    test::TempDir directory_;
    test::ManualLoop loop_;
    test::FakePlayerFactory players_{loop_};
    test::FakeNowPlayingCenter center_;
    test::CaptionDesktop desktop_{loop_};
    PlayerArgs args_;
    std::vector<int> statuses_;
    LegacyPlayer player_{loop_, players_, &center_, [this] { return desktop_.makeWindow(); },
                         [this](int status) { statuses_.push_back(status); }};
};

TEST_F(LegacyPlayerTest, AMissingFileEndsWithStatusOneAndSaysSo) {
    args_.wav = directory_ / "missing.wav";
    EXPECT_EQ("File not found: " + args_.wav + "\n", run());
    EXPECT_EQ((std::vector{1}), statuses_);
    EXPECT_TRUE(players_.calls().empty());
}

TEST_F(LegacyPlayerTest, AFileThatIsNoSoundEndsWithStatusOneAndTheReason) {
    players_.failToOpen(args_.wav, "no such format");
    EXPECT_EQ("Failed to play: no such format\n", run());
    EXPECT_EQ((std::vector{1}), statuses_);
    EXPECT_EQ(std::nullopt, center_.info());
}

TEST_F(LegacyPlayerTest, ASoundThatCanNotStartEndsWithStatusOne) {
    players_.failToPlay(true);
    EXPECT_EQ("Failed to play: the sound could not be started\n", run());
    EXPECT_EQ((std::vector{1}), statuses_);
}

TEST_F(LegacyPlayerTest, PlaysAtItsVolumeAndShowsWhatIsPlaying) {
    args_.volume = 0.25F;
    args_.title = "Claude narration";
    args_.artist = "TTS";
    EXPECT_EQ("", run());
    EXPECT_EQ((Calls{"open a.wav", "volume a.wav", "play a.wav"}), players_.calls());
    EXPECT_EQ(0.25F, players_.sound()->volume);
    EXPECT_EQ((NowPlayingInfo{"Claude narration", "TTS", std::nullopt, 2, 0, 1.0}), center_.info());
    EXPECT_EQ(PlaybackState::playing, center_.state);
    EXPECT_EQ(nullptr, desktop_.panel);
    EXPECT_TRUE(statuses_.empty());
}

TEST_F(LegacyPlayerTest, ASoundHeardToItsEndEndsWithStatusZero) {
    run();
    loop_.advance(1900ms);
    EXPECT_TRUE(statuses_.empty());
    loop_.advance(200ms);
    EXPECT_EQ((std::vector{0}), statuses_);
    EXPECT_EQ(PlaybackState::stopped, center_.state);
    loop_.advance(1s);
    EXPECT_EQ(1U, statuses_.size());
}

TEST_F(LegacyPlayerTest, ASoundThatBreaksOffEndsWithStatusOne) {
    run();
    loop_.advance(500ms);
    players_.breakOff();
    EXPECT_EQ("Failed to play: the sound broke off\n", advance(100ms));
    EXPECT_EQ((std::vector{1}), statuses_);
    EXPECT_EQ(PlaybackState::stopped, center_.state);
}

TEST_F(LegacyPlayerTest, CaptionsOfItsOwnFollowTheSound) {
    args_.captions = true;
    run();
    EXPECT_TRUE(desktop_.panel->isVisible());
    EXPECT_EQ(args_.snippet, desktop_.text());
    EXPECT_EQ(NarrationStatus::Phase::playing, desktop_.model->status->phase);
    loop_.advance(1s);
    EXPECT_DOUBLE_EQ(0.5, *desktop_.model->progress);
    EXPECT_EQ("brown", desktop_.activeWord());
    EXPECT_DOUBLE_EQ(1, *desktop_.model->elapsed);
    EXPECT_EQ(2, *desktop_.model->duration);
}

TEST_F(LegacyPlayerTest, WithASocketTheServerShowsTheCaptions) {
    args_.captions = true;
    args_.captionsSock = directory_ / "s";
    const UniqueFd listener(bindUnixSocket(*args_.captionsSock));
    run();
    loop_.advance(200ms);
    EXPECT_EQ(
        "{\"cmd\":\"set\",\"text\":\"the quick brown fox jumps\"}\n"
        "{\"cmd\":\"highlight\",\"progress\":0.05}\n"
        "{\"cmd\":\"highlight\",\"progress\":0.1}\n",
        receivedBy(listener));
    EXPECT_EQ(nullptr, desktop_.panel);
}

TEST_F(LegacyPlayerTest, WithoutTheServerItPlaysOn) {
    args_.captions = true;
    args_.captionsSock = directory_ / "nobody";
    EXPECT_EQ("", run());
    loop_.advance(2100ms);
    EXPECT_EQ((std::vector{0}), statuses_);
    EXPECT_EQ(nullptr, desktop_.panel);
}

TEST_F(LegacyPlayerTest, ASocketAloneAsksForNoCaptions) {
    args_.captionsSock = directory_ / "s";
    const UniqueFd listener(bindUnixSocket(*args_.captionsSock));
    run();
    loop_.advance(200ms);
    pollfd waiting{listener.get(), POLLIN, 0};
    EXPECT_EQ(0, poll(&waiting, 1, 0));
}

TEST_F(LegacyPlayerTest, AFileOfNoLengthEndsAtOnceWithStatusZero) {
    players_.setDuration(0);
    run();
    loop_.advance(0ms);
    EXPECT_EQ((std::vector{0}), statuses_);
}

/// As while a player doesn't know the length of its file, or not any more.
TEST_F(LegacyPlayerTest, WhilePlayingWithoutALengthTheProgressIsZero) {
    args_.captions = true;
    run();
    loop_.advance(1s);
    ASSERT_DOUBLE_EQ(0.5, *desktop_.model->progress);
    players_.sound()->duration = 0;
    loop_.advance(100ms);
    ASSERT_TRUE(players_.sound()->playing);
    EXPECT_EQ(0, *desktop_.model->duration);
    EXPECT_EQ(0, *desktop_.model->progress);
    EXPECT_EQ("", desktop_.activeWord());
}

TEST_F(LegacyPlayerTest, WithoutALengthTheServerIsToldAProgressOfZero) {
    args_.captions = true;
    args_.captionsSock = directory_ / "s";
    const UniqueFd listener(bindUnixSocket(*args_.captionsSock));
    run();
    players_.sound()->duration = 0;
    loop_.advance(100ms);
    ASSERT_TRUE(players_.sound()->playing);
    EXPECT_EQ(
        "{\"cmd\":\"set\",\"text\":\"the quick brown fox jumps\"}\n"
        "{\"cmd\":\"highlight\",\"progress\":0.0}\n",
        receivedBy(listener));
}

}  // namespace
}  // namespace sonra
