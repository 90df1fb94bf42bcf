#include <cmath>
#include <numbers>
#include <span>

#include "PulseFixture.h"
#include "support/PrivatePipeWire.h"

namespace sonra {
namespace {

using test::Recording;

/// PipeWire's mix of two equal channels into the recording's one is 3 dB louder than either.
constexpr float mixed = std::numbers::sqrt2_v<float>;

/// The same player on PipeWire's server, where that is installed.
class PipeWirePlayerTest : public PlayerFixture<test::PrivatePipeWire> {
  protected:
    void SetUp() override {
        if (!test::PrivatePipeWire::installed()) GTEST_SKIP() << "PipeWire isn't installed";
    }
};

TEST_F(PipeWirePlayerTest, PlaysTheWholeFileAndFinishesOnce) {
    const auto samples = marked(1.1);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    EXPECT_TRUE(heard().find(samples, 0, mixed));
    EXPECT_EQ(finished, std::vector<bool>{true});
}

TEST_F(PipeWirePlayerTest, TenMillisecondsAreHeardWhole) {
    const auto samples = marked(0.01);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    ASSERT_TRUE(untilHeard());
    EXPECT_TRUE(heard().find(samples, 0, mixed));
}

TEST_F(PipeWirePlayerTest, IsSilentUntilPlayed) {
    const auto player = open(wav(marked(0.2)));
    runFor(400ms);
    EXPECT_TRUE(recorder.recording().utterances().empty());
    EXPECT_TRUE(finished.empty());
}

TEST_F(PipeWirePlayerTest, PauseSilencesAndResumeLosesNothing) {
    const auto samples = marked(1.5);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    for (const double pauseAt : {0.3, 0.8, 1.4}) {
        ASSERT_TRUE(untilPosition(*player, pauseAt));
        player->pause();
        const auto paused = recorder.size();
        ASSERT_TRUE(untilSilent(300ms));
        expectQuietSoonAfter(paused);
        ASSERT_TRUE(player->play());
    }
    ASSERT_TRUE(untilFinished());
    const auto sound = heard().sound();
    EXPECT_EQ(sound.size(), samples.size());
    EXPECT_TRUE((Recording{sound, {}}.find(samples, 0, mixed)));
}

TEST_F(PipeWirePlayerTest, SeeksWhilePlaying) {
    const auto samples = marked(3.0);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.3));
    player->setCurrentTime(2.5);
    ASSERT_TRUE(untilFinished());
    const auto sound = heard().sound();
    EXPECT_LT(sound.size(), static_cast<std::size_t>(Recording::rate * 1.5));
    EXPECT_TRUE((Recording{sound, {}}.find(from(samples, 2.5), 0, mixed)));
}

TEST_F(PipeWirePlayerTest, VolumeChangesAreHeardAtOnceAndLoseNothing) {
    const auto samples = marked(2.0);
    const auto player = open(wav(samples));
    player->setVolume(0.5F);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.6));
    player->setVolume(1);
    ASSERT_TRUE(untilFinished());
    const auto sound = heard().sound();
    ASSERT_EQ(sound.size(), samples.size());
    std::size_t changed = 0;
    while (changed < sound.size() && std::abs(sound[changed] / samples[changed]) < 1) ++changed;
    EXPECT_NEAR(static_cast<double>(changed) / Recording::rate, 0.6, 0.25);
    const Recording parts{sound, {}};
    EXPECT_EQ(parts.find(std::span(samples).first(changed), 0, mixed / 2), 0U);
    EXPECT_EQ(parts.find(std::span(samples).subspan(changed), changed, mixed), changed);
}

TEST_F(PipeWirePlayerTest, MutedVolumeReachesNeitherTheNextFileNorOtherSpeakingPrograms) {
    const auto samples = marked(0.6);
    const auto path = wav(samples);
    auto player = open(path);
    ASSERT_TRUE(player->play());
    player->setVolume(0);
    ASSERT_TRUE(untilFinished());
    untilSilent();
    runFor(1500ms);  // the session manager stores what it remembers about a second later
    const auto first = recorder.size();
    test::TestProcess({"paplay", "--property=media.role=a11y", path}).readAll();
    EXPECT_TRUE(heard().find(samples, first, mixed));
    const auto second = recorder.size();
    player = open(path);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished(2));
    EXPECT_TRUE(heard().find(samples, second, mixed));
}

TEST_F(PipeWirePlayerTest, PositionFollowsTheSound) {
    const auto player = open(wav(marked(2.0)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.4));
    const auto t0 = Recording::Clock::now();
    const double p0 = player->currentTime();
    runFor(700ms);
    const std::chrono::duration<double> passed = Recording::Clock::now() - t0;
    EXPECT_NEAR(player->currentTime() - p0, passed.count(), 0.1);
    player->pause();
    runFor(200ms);
    const double frozen = player->currentTime();
    runFor(300ms);
    EXPECT_NEAR(player->currentTime(), frozen, 0.02);
}

}  // namespace
}  // namespace sonra
