#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "frame/LineBatcher.h"

namespace sonra {

/// The log file and its rotation: `path`, `path.1` the one before, up to `path.<keepCount>`.
///
/// `write` may be called from any thread and returns at once; the file is touched only on the
/// sink's own queue, and lines from one thread stay in order. Every file failure is swallowed: a
/// full disk must not harm the program. While the disk is stuck, a bounded number of lines waits; a
/// record of the sink's own tells how many were dropped.
class FileSink {
  public:
    /// `service` names the writer in the sink's own records.
    FileSink(std::string filePath, std::int64_t maxBytes, int keepCount,
             std::string service = "sonra-mac");

    /// The program's own file below the user's home, 10 MiB and 5 old ones; null if its directory
    /// can't be had.
    static std::shared_ptr<FileSink> defaultMacSink();

    /// `line` without its newline.
    void write(std::string_view line);
    /// Returns when all earlier lines have been written, or when a stuck disk has taken longer than
    /// flushLimit.
    void flush();

    static constexpr auto flushLimit = std::chrono::seconds(5);

  private:
    class File;
    LineBatcher batcher_;
};

}  // namespace sonra
