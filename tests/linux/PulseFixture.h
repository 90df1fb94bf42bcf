#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "linux/PulseConnection.h"
#include "linux/PulseFilePlayerFactory.h"
#include "support/PollLoop.h"
#include "support/PrivatePulse.h"
#include "support/SinkRecorder.h"
#include "support/SoundFile.h"
#include "support/TempDir.h"

namespace sonra {

using namespace std::chrono_literals;

constexpr test::SoundFormat fullRate{.sampleRate = test::Recording::rate};

/// Samples of which none is near silence and no two stretches are alike, so that every one can be
/// found again.
inline std::vector<float> marked(double seconds, std::uint32_t seed = 1) {
    std::vector<float> samples(static_cast<std::size_t>(seconds * test::Recording::rate));
    for (auto& sample : samples) {
        seed = seed * 1'664'525U + 1'013'904'223U;
        const float loud = 0.1F + 0.4F * static_cast<float>(seed >> 9U & 0x3FFFU) / 0x4000;
        sample = (seed >> 31U) != 0 ? loud : -loud;
    }
    return samples;
}

/// What was heard is `samples` and nothing else, however often it was interrupted.
inline void expectWhole(const test::Recording& recording, const std::vector<float>& samples) {
    const auto sound = recording.sound();
    EXPECT_EQ(sound.size(), samples.size());
    EXPECT_TRUE((test::Recording{sound, {}}.find(samples)));
}

inline std::vector<float> from(const std::vector<float>& samples, double seconds) {
    return {samples.begin() + static_cast<std::ptrdiff_t>(seconds * test::Recording::rate),
            samples.end()};
}

/// A player's surroundings: a sound server of the test's own whose loudspeaker is recorded.
template <typename Server>
class PlayerFixture : public testing::Test {
  protected:
    std::string wav(const std::vector<float>& samples, test::SoundFormat format = fullRate) {
        auto path = dir / (std::to_string(++files) + ".wav");
        test::writeWav(path, samples, format);
        return path;
    }
    FilePlayerFactory::Opened tryOpen(const std::string& path) {
        return factory.open(path, [this](bool successfully) { finished.push_back(successfully); });
    }
    std::unique_ptr<FilePlayer> open(const std::string& path) {
        auto opened = tryOpen(path);
        EXPECT_EQ(opened.error, "");
        return std::move(opened.player);
    }
    bool untilFinished(std::size_t count = 1) {
        return loop.runUntil([&] { return finished.size() >= count; });
    }
    bool untilHeard(std::size_t from = 0) {
        return loop.runUntil([&] { return recorder.heardSince(from); });
    }
    bool untilSilent(std::chrono::milliseconds gap = 100ms) {
        return loop.runUntil([&] { return recorder.silentFor(gap); });
    }
    bool untilPosition(const FilePlayer& player, double seconds) {
        return loop.runUntil([&] { return player.currentTime() >= seconds; });
    }
    void runFor(std::chrono::milliseconds time) {
        loop.runUntil([] { return false; }, time);
    }
    /// The recording once everything that was played has come in.
    test::Recording heard() {
        untilSilent();
        return recorder.recording();
    }

    /// What was heard ends soon after the recording's sample `mark`; far less than the 400 ms that
    /// the server holds.
    [[nodiscard]] bool quietSoonAfter(std::size_t mark) const {
        const auto utterances = recorder.recording().utterances();
        return !utterances.empty() && utterances.back().end < mark + test::Recording::rate / 4;
    }
    void expectQuietSoonAfter(std::size_t mark) { EXPECT_TRUE(quietSoonAfter(mark)); }

    /// A position, and the clock on both sides of it: a busy machine may put the thread aside
    /// between the two.
    struct Reading {
        test::Recording::Clock::time_point before;
        double position;
        test::Recording::Clock::time_point after;
    };
    static Reading read(const FilePlayer& player) {
        const auto before = test::Recording::Clock::now();
        const double position = player.currentTime();
        return {before, position, test::Recording::Clock::now()};
    }
    /// Between the two readings the position went forward as the clock did.
    static void expectKeepsTime(const Reading& from, const Reading& to, double tolerance) {
        const std::chrono::duration<double> least = to.before - from.after;
        const std::chrono::duration<double> most = to.after - from.before;
        EXPECT_GE(to.position - from.position, least.count() - tolerance);
        EXPECT_LE(to.position - from.position, most.count() + tolerance);
    }

    Server server;
    test::PollLoop loop;
    std::shared_ptr<PulseConnection> connection = std::make_shared<PulseConnection>();
    PulseFilePlayerFactory factory{loop, connection};
    test::SinkRecorder recorder;
    test::TempDir dir;
    std::vector<bool> finished;
    int files = 0;
};

using PulseFixture = PlayerFixture<test::PrivatePulse>;

}  // namespace sonra
