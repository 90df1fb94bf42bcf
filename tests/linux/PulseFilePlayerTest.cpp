#include "linux/PulseFilePlayer.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "PulseFixture.h"
#include "support/ManualLoop.h"

namespace sonra {
namespace {

using test::Recording;

class PulseFilePlayerTest : public PulseFixture {};

std::vector<float> soundUntil(const Recording& recording, std::size_t end) {
    const auto last = recording.samples.begin() + static_cast<std::ptrdiff_t>(end);
    return Recording{{recording.samples.begin(), last}, {}}.sound();
}

TEST_F(PulseFilePlayerTest, PlaysTheWholeFile) {
    const auto samples = marked(1.1);
    const auto player = open(wav(samples));
    EXPECT_DOUBLE_EQ(player->duration(), 1.1);
    EXPECT_FALSE(player->isPlaying());
    ASSERT_TRUE(player->play());
    EXPECT_TRUE(player->isPlaying());
    ASSERT_TRUE(untilFinished());
    EXPECT_FALSE(player->isPlaying());
    EXPECT_DOUBLE_EQ(player->currentTime(), 1.1);
    expectWhole(heard(), samples);
}

/// A server that other programs keep busy makes gaps of its own, so a gap must come every time.
TEST_F(PulseFilePlayerTest, PlaysInOnePiece) {
    const auto path = wav(marked(0.6));
    const auto playedInOnePiece = [&] {
        const auto mark = recorder.size();
        finished.clear();
        const auto player = open(path);
        EXPECT_TRUE(player->play());
        EXPECT_TRUE(untilFinished());
        auto samples = heard().samples;
        samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(mark));
        return Recording{std::move(samples), {}}.utterances(1ms).size() == 1;
    };
    EXPECT_TRUE(playedInOnePiece() || playedInOnePiece() || playedInOnePiece());
}

TEST_F(PulseFilePlayerTest, IsSilentUntilPlayed) {
    const auto player = open(wav(marked(0.2)));
    runFor(300ms);
    EXPECT_TRUE(recorder.recording().utterances().empty());
    EXPECT_EQ(player->currentTime(), 0);
    EXPECT_TRUE(finished.empty());
}

TEST_F(PulseFilePlayerTest, PositionStartsAtZeroHoweverLongTheFileStoodReady) {
    const auto player = open(wav(marked(1.0)));
    runFor(400ms);
    const auto before = Recording::Clock::now();
    ASSERT_TRUE(player->play());
    const Reading began{before, 0, Recording::Clock::now()};
    runFor(100ms);
    expectKeepsTime(began, read(*player), 0.15);
}

TEST_F(PulseFilePlayerTest, FinishesOnceAndNotBeforeTheLastSample) {
    const auto player = open(wav(marked(0.6)));
    const auto began = Recording::Clock::now();
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    EXPECT_GE(Recording::Clock::now() - began, 590ms);
    runFor(300ms);
    EXPECT_EQ(finished, std::vector<bool>{true});
}

TEST_F(PulseFilePlayerTest, PauseSilencesAndResumeLosesNothing) {
    const auto samples = marked(1.5);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    for (const double pauseAt : {0.2, 0.5, 0.9, 1.25}) {
        ASSERT_TRUE(untilPosition(*player, pauseAt));
        player->pause();
        EXPECT_FALSE(player->isPlaying());
        const auto paused = recorder.size();
        ASSERT_TRUE(untilSilent(200ms));
        expectQuietSoonAfter(paused);
        ASSERT_TRUE(player->play());
    }
    ASSERT_TRUE(untilFinished());
    const auto recording = heard();
    EXPECT_EQ(recording.utterances(150ms).size(), 5U);
    expectWhole(recording, samples);
}

TEST_F(PulseFilePlayerTest, PositionFollowsTheSoundAndFreezesInAPause) {
    const auto player = open(wav(marked(2.0)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.3));
    const auto first = read(*player);
    runFor(700ms);
    const auto last = read(*player);
    expectKeepsTime(first, last, 0.06);
    player->pause();
    const auto paused = Recording::Clock::now();
    runFor(150ms);
    const double frozen = player->currentTime();
    expectKeepsTime(last, {last.after, frozen, paused}, 0.15);
    runFor(400ms);
    EXPECT_NEAR(player->currentTime(), frozen, 0.001);
}

TEST_F(PulseFilePlayerTest, PositionIsWhatIsHeard) {
    const auto samples = marked(1.5);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.8));
    const auto before = recorder.size();
    const double position = player->currentTime();
    const auto after = recorder.size();
    ASSERT_TRUE(untilFinished());
    const auto start = heard().find(samples);
    ASSERT_TRUE(start);
    EXPECT_GE(position, static_cast<double>(before - *start) / Recording::rate - 0.15);
    EXPECT_LE(position, static_cast<double>(after - *start) / Recording::rate + 0.15);
}

TEST_F(PulseFilePlayerTest, SeeksWhilePlaying) {
    const auto samples = marked(3.0);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.2));
    const auto before = Recording::Clock::now();
    player->setCurrentTime(2.5);
    const Reading sought{before, 2.5, Recording::Clock::now()};
    EXPECT_TRUE(player->isPlaying());
    expectKeepsTime(sought, read(*player), 0.15);
    ASSERT_TRUE(untilFinished());
    const auto sound = heard().sound();
    EXPECT_LT(sound.size(), static_cast<std::size_t>(Recording::rate * 1.2));
    EXPECT_TRUE((Recording{sound, {}}.find(from(samples, 2.5))));
    EXPECT_EQ(finished, std::vector<bool>{true});
}

TEST_F(PulseFilePlayerTest, SeeksBackToTheStart) {
    const auto samples = marked(0.8);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.5));  // all of it is at the server by now
    player->setCurrentTime(0);
    ASSERT_TRUE(untilFinished());
    runFor(200ms);
    EXPECT_EQ(finished, std::vector<bool>{true});
    const auto recording = heard();
    EXPECT_GT(recording.sound().size(), samples.size() + Recording::rate / 4);
    EXPECT_TRUE((Recording{recording.sound(), {}}.find(samples)));
}

TEST_F(PulseFilePlayerTest, SeeksInAPauseWithoutASound) {
    const auto samples = marked(2.0);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.2));
    player->pause();
    ASSERT_TRUE(untilSilent());
    const auto quiet = recorder.size();
    player->setCurrentTime(1.7);
    EXPECT_FALSE(player->isPlaying());
    EXPECT_DOUBLE_EQ(player->currentTime(), 1.7);
    runFor(200ms);
    EXPECT_FALSE(recorder.heardSince(quiet));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    const auto recording = heard();
    const auto rest = from(samples, 1.7);
    EXPECT_EQ(recording.sound().size() - soundUntil(recording, quiet).size(), rest.size());
    EXPECT_TRUE(recording.find(rest, quiet));
}

TEST_F(PulseFilePlayerTest, FinishesAfterASeekToTheEnd) {
    const auto player = open(wav(marked(1.0)));
    ASSERT_TRUE(player->play());
    player->setCurrentTime(player->duration());
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{true});
    EXPECT_DOUBLE_EQ(player->currentTime(), 1.0);
}

TEST_F(PulseFilePlayerTest, VolumeIsSetBeforeTheFirstSample) {
    const auto samples = marked(0.3);
    const auto player = open(wav(samples));
    player->setVolume(0.5F);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    EXPECT_TRUE(heard().find(samples, 0, 0.5F));
}

TEST_F(PulseFilePlayerTest, VolumeChangesAreHeardAtOnce) {
    const auto samples = marked(2.0);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.3));
    player->setVolume(0.25F);
    runFor(500ms);
    player->setVolume(0);
    const auto muted = recorder.size();
    ASSERT_TRUE(untilSilent(200ms));
    expectQuietSoonAfter(muted);
    EXPECT_TRUE(player->isPlaying());
    player->setVolume(1);
    ASSERT_TRUE(untilFinished());
    const auto recording = heard();
    const auto part = [&](double seconds) {
        return std::span(samples).subspan(static_cast<std::size_t>(seconds * Recording::rate),
                                          2000);
    };
    EXPECT_TRUE(recording.find(part(0.1), 0, 1));
    EXPECT_TRUE(recording.find(part(0.6), 0, 0.25F));
    EXPECT_TRUE(recording.find(part(1.9), 0, 1));
    EXPECT_FALSE(recording.find(part(0.6), 0, 1));
}

TEST_F(PulseFilePlayerTest, VolumeChangesLoseNothingAndRepeatNothing) {
    const auto samples = marked(1.2);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    for (int step = 1; step <= 20; ++step) {
        ASSERT_TRUE(untilPosition(*player, 0.05 * step));
        player->setVolume(step % 2 == 0 ? 1.0F : 0.5F);
    }
    ASSERT_TRUE(untilFinished());
    EXPECT_DOUBLE_EQ(player->currentTime(), 1.2);
    const auto sound = heard().sound();
    ASSERT_EQ(sound.size(), samples.size());
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const float ratio = sound[i] / samples[i];
        ASSERT_LT(std::min(std::abs(ratio - 1), std::abs(ratio - 0.5F)), 0.01F) << i;
    }
}

TEST_F(PulseFilePlayerTest, VolumeChangedInAPauseIsHeardFromItsEndOn) {
    const auto samples = marked(1.0);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.3));
    player->pause();
    ASSERT_TRUE(untilSilent());
    const auto quiet = recorder.size();
    player->setVolume(0.5F);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    const auto recording = heard();
    EXPECT_EQ(recording.sound().size(), samples.size());
    const auto before = soundUntil(recording, quiet).size();
    EXPECT_TRUE(recording.find(std::span(samples).subspan(before), quiet, 0.5F));
}

TEST_F(PulseFilePlayerTest, VolumeInTheMixerIsTheUsers) {
    const auto samples = marked(1.0);
    const auto player = open(wav(samples));
    const auto list = server.pactl({"list", "short", "sink-inputs"});
    server.pactl({"set-sink-input-volume", list.substr(0, list.find('\t')), "32768"});
    player->setVolume(0.5F);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    EXPECT_TRUE(
        heard().find(samples, 0, 0.5F / 8));  // half in the mixer is an eighth, by its cubic scale
}

TEST_F(PulseFilePlayerTest, MutedVolumeReachesNeitherTheNextFileNorOtherSpeakingPrograms) {
    server.pactl({"load-module", "module-stream-restore", "restore_device=false"});
    const auto samples = marked(0.4);
    const auto path = wav(samples);
    auto player = open(path);
    ASSERT_TRUE(player->play());
    player->setVolume(0);
    ASSERT_TRUE(untilFinished());
    untilSilent();
    const auto first = recorder.size();
    test::TestProcess({"paplay", "--property=media.role=a11y", path}).readAll();
    EXPECT_TRUE(heard().find(samples, first));
    const auto second = recorder.size();
    player = open(path);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished(2));
    EXPECT_TRUE(heard().find(samples, second));
}

TEST_F(PulseFilePlayerTest, StopSilencesForGood) {
    const auto player = open(wav(marked(1.0)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.3));
    player->stop();
    EXPECT_FALSE(player->isPlaying());
    EXPECT_FALSE(player->play());
    const auto stopped = recorder.size();
    runFor(1000ms);
    expectQuietSoonAfter(stopped);
    EXPECT_TRUE(finished.empty());
}

TEST_F(PulseFilePlayerTest, DestructionSilencesAndCallsNobody) {
    auto player = open(wav(marked(1.0)));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.1));
    const auto gone = recorder.size();
    player.reset();
    runFor(500ms);
    EXPECT_TRUE(finished.empty());
    expectQuietSoonAfter(gone);
    EXPECT_EQ(server.playbackStreams(), 0U);
}

TEST_F(PulseFilePlayerTest, NextFileMayBeStartedFromTheFinishedCallback) {
    const auto first = marked(0.4, 1);
    const auto second = marked(0.5, 2);
    const auto secondPath = wav(second);
    std::unique_ptr<FilePlayer> player;
    player = factory
                 .open(wav(first),
                       [&](bool) {
                           player = open(secondPath);
                           EXPECT_TRUE(player->play());
                       })
                 .player;
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    const auto recording = heard();
    EXPECT_TRUE(recording.find(first));
    EXPECT_TRUE(recording.find(second));
    EXPECT_EQ(recording.sound().size(), first.size() + second.size());
}

TEST_F(PulseFilePlayerTest, TenMillisecondsAreHeardWhole) {
    const auto samples = marked(0.01);
    const auto player = open(wav(samples));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    ASSERT_TRUE(untilHeard());
    expectWhole(heard(), samples);
    EXPECT_EQ(finished, std::vector<bool>{true});
}

TEST_F(PulseFilePlayerTest, EmptyFileFinishesAtOnce) {
    const auto player = open(wav({}));
    EXPECT_EQ(player->duration(), 0);
    ASSERT_TRUE(player->play());
    EXPECT_TRUE(finished.empty());
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{true});
}

TEST_F(PulseFilePlayerTest, LeavesNoStreamBehind) {
    const auto player = open(wav(marked(0.1)));
    EXPECT_EQ(server.playbackStreams(), 1U);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(server.playbackStreams(), 0U);
}

TEST_F(PulseFilePlayerTest, LongPauseGivesTheStreamBackAndPlayGoesOnThere) {
    test::ManualLoop clock;
    PulseFilePlayerFactory players(clock, connection);
    const auto samples = marked(1.0);
    bool done = false;
    const auto player = players.open(wav(samples), [&](bool) { done = true; }).player;
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(clock.runUntil([&] { return player->currentTime() > 0.4; }));
    player->pause();
    ASSERT_TRUE(clock.runUntil([&] { return recorder.silentFor(100ms); }));
    const auto quiet = recorder.size();
    const double position = player->currentTime();
    clock.advance(PulseFilePlayer::streamHeldFor);
    EXPECT_EQ(server.playbackStreams(), 0U);
    EXPECT_NEAR(player->currentTime(), position, 0.001);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(clock.runUntil([&] { return done; }));
    EXPECT_TRUE(heard().find(from(samples, position + 0.01), quiet));
}

}  // namespace
}  // namespace sonra
