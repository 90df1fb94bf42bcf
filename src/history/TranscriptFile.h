#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/UniqueFd.h"

namespace sonra {

/// A transcript open for reading, at any place in it.
///
/// Only a regular file counts; anything else is as if it weren't there, and is never waited for.
/// Its size is that of the moment it was opened; the file may grow or shrink meanwhile. Used by one
/// thread at a time, never throws.
class TranscriptFile {
  public:
    explicit TranscriptFile(const std::string& path);

    explicit operator bool() const { return static_cast<bool>(fd_); }
    /// 0 if the file can't be read.
    [[nodiscard]] std::uint64_t size() const { return size_; }
    /// Fills `buffer` from `position` on; less than `length` where the file ends or can't be read.
    std::size_t readAt(std::uint64_t position, char* buffer, std::size_t length) const;

  private:
    UniqueFd fd_;
    std::uint64_t size_ = 0;
};

}  // namespace sonra
