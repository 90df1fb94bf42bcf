#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <span>

#include "PulseFixture.h"
#include "support/LogWatch.h"

namespace sonra {
namespace {

using test::Recording;

/// Memory of this process that is in use now, in bytes.
std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    statm >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

struct FormatCase {
    const char* name;
    int format;
    int rate;
    int channels;
};

void PrintTo(const FormatCase& row, std::ostream* out) {
    *out << row.name;
}

class PulseFormatsTest : public PulseFixture, public testing::WithParamInterface<FormatCase> {};

/// A tone in any format comes out as long and as loud as it went in.
TEST_P(PulseFormatsTest, IsHeard) {
    const auto& row = GetParam();
    SF_INFO info{};
    info.format = row.format;
    info.samplerate = row.rate;
    info.channels = row.channels;
    SNDFILE* file = sf_open((dir / "a").c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    for (const float sample : test::tone(150, 0.4, 0.5F, row.rate)) {
        const std::vector<float> frame(static_cast<std::size_t>(row.channels), sample);
        sf_writef_float(file, frame.data(), 1);
    }
    sf_close(file);
    const auto player = open(dir / "a");
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{true});
    const auto recording = heard();
    double seconds = 0;
    double power = 0;
    for (const auto& part : recording.utterances(5ms)) {  // a busy server may have had a gap
        seconds += part.seconds();
        power += part.seconds() * std::pow(recording.rms(part.begin, part.end), 2);
    }
    EXPECT_NEAR(seconds, 0.4, 0.02);
    EXPECT_NEAR(std::sqrt(power / seconds), 0.5 / std::sqrt(2), 0.05);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PulseFormatsTest,
    testing::Values(FormatCase{"8 bit", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 8'000, 1},
                    FormatCase{"16 bit stereo", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44'100, 2},
                    FormatCase{"24 bit", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 22'050, 1},
                    FormatCase{"float", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 24'000, 1},
                    FormatCase{"slowest", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1'000, 1},
                    FormatCase{"fastest", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 384'000, 1}));

class PulseFilesTest : public PulseFixture {};

TEST_F(PulseFilesTest, UnreadableFilesDoNotOpen) {
    test::writeFile(dir / "garbage.wav", std::string(10'000, 'x'));
    EXPECT_EQ(tryOpen(dir / "garbage.wav").player, nullptr);
    EXPECT_EQ(tryOpen(dir / "missing.wav").error, "No such file or directory");
    EXPECT_EQ(server.playbackStreams(), 0U);
}

TEST_F(PulseFilesTest, ThirtyTwoChannelsAreHeard) {
    const auto player = open(wav(marked(0.2), {.sampleRate = 48'000, .channels = 32}));
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{true});
    EXPECT_FALSE(heard().utterances().empty());
}

TEST_F(PulseFilesTest, FileThatBreaksInTheMiddleIsHeardUpToThereAndFailed) {
    test::LogWatch log;
    log.expect("sound broke off");
    const auto samples = marked(3.0);
    const auto path = wav(samples);
    const auto player = open(path);
    ASSERT_TRUE(player->play());
    std::filesystem::resize_file(path, 44 + 2 * Recording::rate * 3 / 2);
    ASSERT_TRUE(untilFinished());
    EXPECT_EQ(finished, std::vector<bool>{false});
    const auto recording = heard();
    const auto half = std::span(samples).first(Recording::rate * 3 / 2);
    EXPECT_TRUE(recording.find(half));
    EXPECT_EQ(recording.sound().size(), half.size());
}

/// Ten hours of silence take no memory; the mark at their end is found by a seek.
TEST_F(PulseFilesTest, LongFileIsReadAsItIsHeard) {
    const auto mark = marked(0.3);
    const auto path = dir / "long.wav";
    SF_INFO info{};
    info.format = SF_FORMAT_RF64 | SF_FORMAT_FLOAT;
    info.samplerate = Recording::rate;
    info.channels = 1;
    SNDFILE* file = sf_open(path.c_str(), SFM_RDWR, &info);
    ASSERT_NE(file, nullptr);
    constexpr auto silence = static_cast<sf_count_t>(10) * 3600 * Recording::rate;
    ASSERT_EQ(sf_seek(file, silence, SEEK_SET), silence);
    sf_write_float(file, mark.data(), static_cast<sf_count_t>(mark.size()));
    sf_close(file);
    const auto before = residentBytes();
    const auto player = open(path);
    EXPECT_NEAR(player->duration(), 36'000.3, 0.01);
    ASSERT_TRUE(player->play());
    ASSERT_TRUE(untilPosition(*player, 0.3));
    player->setCurrentTime(35'999.9);
    ASSERT_TRUE(untilFinished());
    EXPECT_TRUE(heard().find(mark));
    EXPECT_LT(residentBytes(), before + 32'000'000U);
}

}  // namespace
}  // namespace sonra
