#include "playback/MonoReader.h"

#include "frame/UniqueFd.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <span>

namespace sonra {
namespace {

/// Values in a block, over all channels.
constexpr int blockValues = 65'536;

/// Files of floating-point samples may hold anything; what lies beyond this would overflow a
/// squared transform.
constexpr float loudestSample = 1e9F;

float usable(float sample) {
    return std::isfinite(sample) ? std::clamp(sample, -loudestSample, loudestSample) : 0;
}

float mixed(std::span<const float> channels) {
    float sum = 0;
    for (const float sample : channels) sum += usable(sample);
    return sum / static_cast<float>(channels.size());
}

/// Opens without waiting, so that a named pipe can't hold the thread.
UniqueFd openRegularFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (fd && fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode)) return fd;
    return {};
}

}  // namespace

struct MonoReader::File {
    SF_INFO info{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> sound{nullptr, sf_close};
};

MonoReader::MonoReader(std::unique_ptr<File> file) : file_(std::move(file)) {
    const int channels = file_->info.channels;
    interleaved_.resize(static_cast<std::size_t>(std::max(blockValues / channels, 1)) *
                        static_cast<std::size_t>(channels));
}

MonoReader::~MonoReader() = default;

std::unique_ptr<MonoReader> MonoReader::open(const std::string& path) {
    UniqueFd fd = openRegularFile(path);
    if (!fd) return nullptr;
    auto file = std::make_unique<File>();
    file->sound.reset(sf_open_fd(fd.release(), SFM_READ, &file->info, SF_TRUE));
    if (!file->sound || file->info.channels < 1 || file->info.samplerate < 1) return nullptr;
    return std::unique_ptr<MonoReader>(new MonoReader(std::move(file)));
}

int MonoReader::sampleRate() const {
    return file_->info.samplerate;
}

bool MonoReader::readBlock(std::vector<float>& samples) {
    const auto channels = static_cast<std::size_t>(file_->info.channels);
    const auto wanted = static_cast<sf_count_t>(interleaved_.size() / channels);
    const sf_count_t got = sf_readf_float(file_->sound.get(), interleaved_.data(), wanted);
    if (got <= 0) return false;
    const std::span<const float> values(interleaved_);
    for (std::size_t i = 0; i < static_cast<std::size_t>(got); ++i)
        samples.push_back(mixed(values.subspan(i * channels, channels)));
    return true;
}

}  // namespace sonra
