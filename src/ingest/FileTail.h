#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace sonra {

/// The bytes of a file from a position to its end, as they were when it was read.
///
/// Only regular files count: a directory, a pipe or a device at the path is as if nothing were
/// there, and none of them is waited for. The file may grow or shrink meanwhile; growth is left for
/// the next read. Any thread, never throws.
class FileTail {
  public:
    /// Size of the file, 0 if there is none.
    static std::int64_t sizeOf(const std::string& path);

    /// At most `limit` bytes. Absent if the file can't be read, or holds nothing behind `start`.
    static std::optional<FileTail> read(const std::string& path, std::int64_t start,
                                        std::size_t limit = SIZE_MAX);

    std::string_view bytes() const { return {buffer_.get(), size_}; }

  private:
    FileTail(std::unique_ptr<char[]> buffer, std::size_t size)
        : buffer_(std::move(buffer)), size_(size) {}

    std::unique_ptr<char[]> buffer_;
    std::size_t size_;
};

}  // namespace sonra
