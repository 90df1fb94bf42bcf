#include "linux/SoundFileReader.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace sonra {
namespace {

constexpr int maxChannels = 32;   // libpulse's own limit
constexpr int minRate = 1'000;    // below it, a server's resampler is asked for absurd ratios
constexpr int maxRate = 384'000;  // libpulse's own limit
constexpr std::int64_t maxHours = 1'000;

/// Null words mean that the format can be played.
std::string unplayable(const SF_INFO& info) {
    if (info.channels < 1 || info.channels > maxChannels)
        return "can't play " + std::to_string(info.channels) + " channels";
    if (info.samplerate < minRate || info.samplerate > maxRate)
        return "can't play " + std::to_string(info.samplerate) + " samples a second";
    if (info.frames < 0 || info.frames / info.samplerate > maxHours * 3600)
        return "the file's length is unknown";
    return {};
}

/// Opens without waiting, so that a pipe put in a file's place can't hold the program.
UniqueFd openFile(const std::string& path, std::string& error) {
    UniqueFd descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0) {
        error = std::strerror(errno);
        return {};
    }
    if (!S_ISREG(status.st_mode)) {
        error = "not a regular file";
        return {};
    }
    return descriptor;
}

/// Within full scale, whatever a float file holds: neither a server nor an ear should meet more.
float tamed(float sample) {
    return std::isfinite(sample) ? std::clamp(sample, -1.0F, 1.0F) : 0.0F;
}

}  // namespace

void SoundFileReader::Close::operator()(sf_private_tag* file) const {
    sf_close(file);
}

SoundFileReader::SoundFileReader(UniqueFd descriptor, File file, int rate, int channels,
                                 std::int64_t frames)
    : descriptor_(std::move(descriptor)),
      file_(std::move(file)),
      rate_(rate),
      channels_(channels),
      frames_(frames) {}

SoundFileReader::Opened SoundFileReader::open(const std::string& path) {
    Opened opened;
    auto descriptor = openFile(path, opened.error);
    if (!descriptor) return opened;
    SF_INFO info{};
    File file(sf_open_fd(descriptor.get(), SFM_READ, &info, SF_FALSE));
    opened.error = file ? unplayable(info) : sf_strerror(nullptr);
    if (!opened.error.empty()) return opened;
    opened.reader.reset(new SoundFileReader(std::move(descriptor), std::move(file), info.samplerate,
                                            info.channels, info.frames));
    return opened;
}

void SoundFileReader::seek(std::int64_t frame) {
    position_ = frame;
    seekFailed_ = sf_seek(file_.get(), frame, SEEK_SET) != frame;
}

std::int64_t SoundFileReader::read(std::span<float> samples) {
    if (seekFailed_) return 0;
    const auto wanted = static_cast<sf_count_t>(samples.size()) / channels_;
    const auto got = std::max<sf_count_t>(sf_readf_float(file_.get(), samples.data(), wanted), 0);
    const auto decoded = samples.first(static_cast<std::size_t>(got * channels_));
    std::transform(decoded.begin(), decoded.end(), decoded.begin(), tamed);
    position_ += got;
    return got;
}

}  // namespace sonra
