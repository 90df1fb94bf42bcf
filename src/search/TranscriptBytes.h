#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "frame/UniqueFd.h"

namespace sonra {

/// A transcript whose beginning and end are read. Only of a regular file, which never makes wait,
/// is anything read; of everything else only what its attributes tell. One thread at a time; never
/// throws.
class TranscriptBytes {
  public:
    /// Absent if the file's attributes can't be read.
    static std::optional<TranscriptBytes> open(const std::string& path);

    [[nodiscard]] double mtime() const { return mtime_; }
    [[nodiscard]] std::int64_t size() const { return size_; }
    /// False if there is nothing to read: no right to, or no regular file.
    [[nodiscard]] bool isReadable() const { return static_cast<bool>(fd_); }

    /// Up to `length` bytes from `position` on; absent if they can't be read.
    [[nodiscard]] std::optional<std::size_t> read(std::int64_t position, char* buffer,
                                                  std::size_t length) const;

  private:
    UniqueFd fd_;
    double mtime_ = 0;
    std::int64_t size_ = 0;
};

}  // namespace sonra
