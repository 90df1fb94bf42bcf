#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "history/TranscriptFile.h"

namespace sonra {

/// Goes forward through a transcript of Claude Code and stops at the lines that may be replies.
///
/// It has a window on the file, so that its memory doesn't grow with the file; a longer line is
/// looked at piece by piece, and read whole only if it may be a reply. It goes to the size that the
/// file had at first, and a last line without a line feed counts. Used by one thread at a time; it
/// looks at `cancelled`, which must outlive it, before each window and then ends. Never throws.
class ReplyScan {
  public:
    ReplyScan(const std::string& transcript, const std::atomic<bool>& cancelled);

    /// The next line, valid until the next call; absent at the end.
    std::optional<std::string_view> next();

  private:
    std::optional<std::string_view> nextInWindow();
    bool moveOn();
    bool fill();
    bool skipLongLine();
    void keepFrom(std::size_t start);

    const std::atomic<bool>& cancelled_;
    TranscriptFile file_;
    std::vector<char> window_;
    std::string longLine_;
    std::uint64_t position_ = 0;  ///< in the file, of what follows the window
    std::size_t filled_ = 0;      ///< bytes in the window
    std::size_t linesEnd_ = 0;    ///< of them in whole lines
    std::size_t at_ = 0;          ///< of these looked at
};

}  // namespace sonra
