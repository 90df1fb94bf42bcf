#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace sonra {

/// Cuts a stream of bytes into lines, wherever the reads happen to fall. An unfinished line that
/// grows beyond the limit is dropped, with all of it that is still to come. Used by one thread at a
/// time.
class WorkerLineReader {
  public:
    using LineCallback = std::function<void(std::string_view line)>;

    static constexpr std::size_t defaultMaxLine = 1U << 20U;

    explicit WorkerLineReader(std::size_t maxLine = defaultMaxLine) : maxLine_(maxLine) {}

    /// Runs `onLine` for each line that is complete now, without its line feed.
    void append(std::string_view bytes, const LineCallback& onLine);
    /// Forgets the unfinished line.
    void reset();
    /// Bytes of the unfinished line.
    [[nodiscard]] std::size_t pending() const { return buf_.size(); }

  private:
    void keep(std::string_view part);

    const std::size_t maxLine_;
    std::string buf_;
    bool skipping_ = false;
};

}  // namespace sonra
