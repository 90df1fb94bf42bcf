#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "frame/UniqueFd.h"

struct sf_private_tag;

namespace sonra {

/// Decodes one audio file into interleaved samples between -1 and 1, at the file's own rate and
/// channels.
///
/// Reads what libsndfile reads, from disk as it is asked for: a long file is never held whole. Not
/// thread-safe; the owner passes it from thread to thread. Files that no sound server would take
/// (too many channels, absurd rates) don't open.
class SoundFileReader {
  public:
    struct Opened {
        std::shared_ptr<SoundFileReader> reader;  ///< null on failure
        std::string error;                        ///< a text for a person, when reader is null
    };
    [[nodiscard]] static Opened open(const std::string& path);

    [[nodiscard]] int rate() const { return rate_; }
    [[nodiscard]] int channels() const { return channels_; }
    [[nodiscard]] std::int64_t frames() const { return frames_; }

    /// The next read starts at `frame`, within 0 and frames().
    void seek(std::int64_t frame);
    /// The frame that comes next.
    [[nodiscard]] std::int64_t position() const { return position_; }
    /// Fills `samples`, whose size is a multiple of channels(); returns the frames read, fewer only
    /// at the end or where the file can't be decoded any further.
    std::int64_t read(std::span<float> samples);
    /// Every frame that the header promised has been read since the last seek.
    [[nodiscard]] bool atEnd() const { return position_ >= frames_; }

  private:
    struct Close {
        void operator()(sf_private_tag* file) const;
    };
    using File = std::unique_ptr<sf_private_tag, Close>;

    SoundFileReader(UniqueFd descriptor, File file, int rate, int channels, std::int64_t frames);

    const UniqueFd descriptor_;
    const File file_;
    const int rate_;
    const int channels_;
    const std::int64_t frames_;
    std::int64_t position_ = 0;
    bool seekFailed_ = false;
};

}  // namespace sonra
