#include "linux/SoundFileReader.h"

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <vector>

#include "support/SoundFile.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

std::vector<float> readAll(SoundFileReader& reader) {
    std::vector<float> all(static_cast<std::size_t>((reader.frames() + 10) * reader.channels()));
    const auto got = reader.read(all);
    all.resize(static_cast<std::size_t>(got * reader.channels()));
    return all;
}

/// Writes `samples`, already interleaved, in one of libsndfile's formats.
void writeAs(const std::string& path, int format, int rate, int channels,
             const std::vector<float>& samples) {
    SF_INFO info{};
    info.format = format;
    info.samplerate = rate;
    info.channels = channels;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

struct DecodedFormat {
    const char* name;
    int format;
    int rate;
    int channels;
    float tolerance;
};

void PrintTo(const DecodedFormat& row, std::ostream* out) {
    *out << row.name;
}

class SoundFileFormats : public testing::TestWithParam<DecodedFormat> {};

TEST_P(SoundFileFormats, IsDecoded) {
    const auto& row = GetParam();
    const test::TempDir dir;
    const std::vector<float> samples{0.5F, -0.25F, 0.125F, 0.75F, -0.5F, 0.25F, 0.0F, -0.75F};
    writeAs(dir / "a", row.format, row.rate, row.channels, samples);
    const auto opened = SoundFileReader::open(dir / "a");
    ASSERT_NE(opened.reader, nullptr) << opened.error;
    EXPECT_EQ(opened.reader->rate(), row.rate);
    EXPECT_EQ(opened.reader->channels(), row.channels);
    const auto decoded = readAll(*opened.reader);
    ASSERT_EQ(decoded.size(), samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        EXPECT_NEAR(decoded[i], samples[i], row.tolerance);
    EXPECT_TRUE(opened.reader->atEnd());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SoundFileFormats,
    testing::Values(
        DecodedFormat{"8 bit", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 8'000, 1, 0.02F},
        DecodedFormat{"16 bit", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 22'050, 1, 0.0001F},
        DecodedFormat{"16 bit stereo", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44'100, 2, 0.0001F},
        DecodedFormat{"24 bit", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48'000, 1, 0.0001F},
        DecodedFormat{"32 bit four channels", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 96'000, 4, 0.0001F},
        DecodedFormat{"float", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 24'000, 1, 0},
        DecodedFormat{"double stereo", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 24'000, 2, 0},
        DecodedFormat{"mu-law", SF_FORMAT_WAV | SF_FORMAT_ULAW, 8'000, 1, 0.03F},
        DecodedFormat{"extensible", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, 48'000, 2, 0.0001F},
        DecodedFormat{"AIFF", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 44'100, 1, 0.0001F},
        DecodedFormat{"FLAC", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44'100, 1, 0.0001F},
        DecodedFormat{"fastest", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 384'000, 1, 0.0001F},
        DecodedFormat{"slowest", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1'000, 1, 0.0001F}));

TEST(SoundFileReader, SeeksAndReadsOn) {
    const test::TempDir dir;
    test::writeWav(dir / "a.wav", {0.1F, 0.2F, 0.3F, 0.4F}, {.floatingPoint = true});
    const auto reader = SoundFileReader::open(dir / "a.wav").reader;
    ASSERT_NE(reader, nullptr);
    readAll(*reader);
    reader->seek(2);
    EXPECT_FALSE(reader->atEnd());
    EXPECT_EQ(readAll(*reader), (std::vector<float>{0.3F, 0.4F}));
    EXPECT_TRUE(reader->atEnd());
}

TEST(SoundFileReader, TamesWhatNoEarShouldMeet) {
    const test::TempDir dir;
    constexpr float infinity = std::numeric_limits<float>::infinity();
    test::writeWav(dir / "a.wav", {std::nanf(""), infinity, -infinity, 1e30F, -2, 0.5F},
                   {.floatingPoint = true});
    const auto reader = SoundFileReader::open(dir / "a.wav").reader;
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(readAll(*reader), (std::vector<float>{0, 0, 0, 1, -1, 0.5F}));
}

TEST(SoundFileReader, NoticesAFileThatShrinks) {
    const test::TempDir dir;
    test::writeWav(dir / "a.wav", std::vector<float>(100'000, 0.5F));
    const auto reader = SoundFileReader::open(dir / "a.wav").reader;
    ASSERT_NE(reader, nullptr);
    std::filesystem::resize_file(dir / "a.wav", 20'000);
    EXPECT_LT(readAll(*reader).size(), 100'000U);
    EXPECT_FALSE(reader->atEnd());
}

TEST(SoundFileReader, PlaysAsMuchAsIsThereOfAFileThatPromisesMore) {
    const test::TempDir dir;
    test::writeWav(dir / "a.wav", std::vector<float>(1'000, 0.5F));
    std::filesystem::resize_file(dir / "a.wav", 44 + 2 * 600);
    const auto reader = SoundFileReader::open(dir / "a.wav").reader;
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->frames(), 600);
    EXPECT_EQ(readAll(*reader).size(), 600U);
    EXPECT_TRUE(reader->atEnd());
}

TEST(SoundFileReader, SaysWhyAFileDoesNotOpen) {
    const test::TempDir dir;
    test::writeFile(dir / "garbage.wav", std::string(5'000, 'x'));
    test::writeFile(dir / "empty.wav", "");
    test::writeFile(dir / "header.wav", "RIFF\x24\x00\x00\x00WAVEfmt ");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    const std::vector<float> frame(40, 0.1F);
    writeAs(dir / "wide.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44'100, 40, frame);
    writeAs(dir / "fast.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 400'000, 1, frame);
    writeAs(dir / "slow.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 1, frame);
    const auto error = [&](const char* name) {
        const auto opened = SoundFileReader::open(dir / name);
        EXPECT_EQ(opened.reader, nullptr) << name;
        return opened.error;
    };
    EXPECT_EQ(error("missing.wav"), "No such file or directory");
    EXPECT_EQ(error("pipe"), "not a regular file");
    EXPECT_EQ(error("."), "not a regular file");
    EXPECT_EQ(error("wide.wav"), "can't play 40 channels");
    EXPECT_EQ(error("fast.wav"), "can't play 400000 samples a second");
    EXPECT_EQ(error("slow.wav"), "can't play 1 samples a second");
    for (const auto* name : {"garbage.wav", "empty.wav", "header.wav"})
        EXPECT_FALSE(error(name).empty()) << name;
}

}  // namespace
}  // namespace sonra
