#include <cmath>
#include <functional>
#include <numbers>
#include <span>

#include "PulseFixture.h"
#include "support/PrivatePipeWire.h"

namespace sonra {
namespace {

using test::Recording;

/// PipeWire's mix of two equal channels into the recording's one is 3 dB louder than either.
constexpr float mixed = std::numbers::sqrt2_v<float>;

/// The same player on PipeWire's server.
class PipeWirePlayerTest : public PlayerFixture<test::PrivatePipeWire> {
  protected:
    void SetUp() override {
        ASSERT_TRUE(test::PrivatePipeWire::installed())
            << "PipeWire isn't installed; script/setup --develop does that";
    }
    /// A server without real-time scheduling skips a quantum of 256 samples every now and then,
    /// whatever it is given to play. What the player loses, it loses each time.
    static bool comesWholeAtLeastOnce(const std::function<bool()>& attempt) {
        constexpr int attempts = 8;
        for (int i = 0; i < attempts; ++i)
            if (attempt() || HasFatalFailure()) return true;
        return false;
    }
    /// What has been heard behind the recording's sample `mark`.
    std::vector<float> heardSince(std::size_t mark) {
        const auto all = heard();
        return Recording{from(all.samples, static_cast<double>(mark) / Recording::rate), {}}
            .sound();
    }
    void playOnce(const std::string& path);
    void playAndSeek(const std::string& path);
    /// False if a pause left the sound going on for a while.
    bool playWithPauses(const std::string& path);
    void playWithAChangeOfVolume(const std::string& path);
};

void PipeWirePlayerTest::playOnce(const std::string& path) {
    finished.clear();
    const auto player = open(path);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
}

TEST_F(PipeWirePlayerTest, PlaysTheWholeFileAndFinishesOnce) {
    const auto samples = marked(1.1);
    const auto path = wav(samples);
    EXPECT_TRUE(comesWholeAtLeastOnce([&] {
        const auto mark = recorder.size();
        playOnce(path);
        return Recording{heardSince(mark), {}}.find(samples, 0, mixed).has_value();
    }));
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

bool PipeWirePlayerTest::playWithPauses(const std::string& path) {
    finished.clear();
    const auto player = open(path);
    bool wentWell = player->play();
    for (const double pauseAt : {0.3, 0.8, 1.25}) {
        wentWell = untilPosition(*player, pauseAt) && wentWell;
        player->pause();
        const auto paused = recorder.size();
        wentWell = untilSilent(300ms) && quietSoonAfter(paused) && wentWell;
        wentWell = player->play() && wentWell;
    }
    return untilFinished() && wentWell;
}

TEST_F(PipeWirePlayerTest, PauseSilencesAndResumeLosesNothing) {
    const auto samples = marked(1.5);
    const auto path = wav(samples);
    EXPECT_TRUE(comesWholeAtLeastOnce([&] {
        const auto mark = recorder.size();
        const bool wentWell = playWithPauses(path);
        const auto sound = heardSince(mark);
        return wentWell && sound.size() == samples.size() &&
               Recording{sound, {}}.find(samples, 0, mixed).has_value();
    }));
}

void PipeWirePlayerTest::playAndSeek(const std::string& path) {
    finished.clear();
    const auto player = open(path);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.3));
    player->setCurrentTime(2.5);
    ASSERT_TRUE(untilFinished());
}

TEST_F(PipeWirePlayerTest, SeeksWhilePlaying) {
    const auto samples = marked(3.0);
    const auto path = wav(samples);
    EXPECT_TRUE(comesWholeAtLeastOnce([&] {
        const auto mark = recorder.size();
        playAndSeek(path);
        const auto sound = heardSince(mark);
        return sound.size() < static_cast<std::size_t>(Recording::rate * 1.5) &&
               Recording{sound, {}}.find(from(samples, 2.5), 0, mixed).has_value();
    }));
}

void PipeWirePlayerTest::playWithAChangeOfVolume(const std::string& path) {
    finished.clear();
    const auto player = open(path);
    player->setVolume(0.5F);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.6));
    player->setVolume(1);
    ASSERT_TRUE(untilFinished());
}

TEST_F(PipeWirePlayerTest, VolumeChangesAreHeardAtOnceAndLoseNothing) {
    const auto samples = marked(2.0);
    const auto path = wav(samples);
    std::vector<float> sound;
    std::size_t changed = 0;
    ASSERT_TRUE(comesWholeAtLeastOnce([&] {
        const auto mark = recorder.size();
        playWithAChangeOfVolume(path);
        sound = heardSince(mark);
        if (sound.size() != samples.size()) return false;
        changed = 0;
        while (changed < sound.size() && std::abs(sound[changed] / samples[changed]) < 1) ++changed;
        return std::abs(static_cast<double>(changed) / Recording::rate - 0.6) < 0.25;
    }));
    ASSERT_EQ(sound.size(), samples.size());
    const Recording parts{sound, {}};
    EXPECT_EQ(parts.find(std::span(samples).first(changed), 0, mixed / 2), 0U);
    EXPECT_EQ(parts.find(std::span(samples).subspan(changed), changed, mixed), changed);
}

TEST_F(PipeWirePlayerTest, MutedVolumeReachesNeitherTheNextFileNorOtherSpeakingPrograms) {
    const auto samples = marked(0.6);
    const auto path = wav(samples);
    const auto player = open(path);
    ASSERT_TRUE(player->play());
    player->setVolume(0);
    ASSERT_TRUE(untilFinished());
    untilSilent();
    runFor(1500ms);  // the session manager stores what it remembers about a second later
    EXPECT_TRUE(comesWholeAtLeastOnce([&] {
        const auto mark = recorder.size();
        test::TestProcess({"paplay", "--property=media.role=a11y", path}).readAll();
        return heard().find(samples, mark, mixed).has_value();
    }));
    EXPECT_TRUE(comesWholeAtLeastOnce([&] {
        const auto mark = recorder.size();
        playOnce(path);
        return heard().find(samples, mark, mixed).has_value();
    }));
}

TEST_F(PipeWirePlayerTest, PositionFollowsTheSound) {
    const auto player = open(wav(marked(2.0)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.4));
    const auto first = read(*player);
    runFor(700ms);
    expectKeepsTime(first, read(*player), 0.1);
    player->pause();
    runFor(200ms);
    const double frozen = player->currentTime();
    runFor(300ms);
    EXPECT_NEAR(player->currentTime(), frozen, 0.02);
}

}  // namespace
}  // namespace sonra
