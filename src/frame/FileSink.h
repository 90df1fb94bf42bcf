#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace sonra {

/// The log file and its rotation: `path`, `path.1` the one before, up to `path.<keepCount>`.
///
/// `write` may be called from any thread and returns at once; the file is touched only on the sink's own queue,
/// and lines from one thread stay in order. Every file failure is swallowed: a full disk must not harm the program.
class FileSink {
  public:
    FileSink(std::string filePath, std::int64_t maxBytes, int keepCount);
    ~FileSink();
    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    /// The program's own file below the user's home, 10 MiB and 5 old ones; null if its directory can't be had.
    static std::shared_ptr<FileSink> defaultMacSink();

    /// `line` without its newline.
    void write(std::string line);
    /// Returns when all earlier lines have been written.
    void flush();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace sonra
