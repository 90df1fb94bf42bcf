#include "history/ReplyScan.h"

#include <algorithm>
#include <cstring>

#include "history/ReplyMarks.h"

namespace sonra {
namespace {

constexpr std::size_t windowSize = std::size_t{1} << 20;

/// The end of the last line that is whole in `bytes`, 0 without a line feed.
std::size_t endOfLines(std::string_view bytes) {
    if (bytes.empty()) return 0;  // no memory to look at
    const auto* feed = static_cast<const char*>(::memrchr(bytes.data(), '\n', bytes.size()));
    return feed == nullptr ? 0 : static_cast<std::size_t>(feed - bytes.data()) + 1;
}

}  // namespace

ReplyScan::ReplyScan(const std::string& transcript, const std::atomic<bool>& cancelled)
    : cancelled_(cancelled), file_(transcript), window_(file_ ? windowSize : 0) {}

std::optional<std::string_view> ReplyScan::next() {
    longLine_ = {};
    for (;;) {
        if (const auto line = nextInWindow()) return line;
        if (!moveOn()) return std::nullopt;
        if (!longLine_.empty()) return longLine_;
    }
}

std::optional<std::string_view> ReplyScan::nextInWindow() {
    const std::string_view lines(window_.data(), linesEnd_);
    for (;;) {
        const std::size_t mark = ReplyMarks::find(lines, at_);
        if (mark == std::string_view::npos) {
            at_ = linesEnd_;
            return std::nullopt;
        }
        const std::size_t start = at_ + endOfLines(lines.substr(at_, mark - at_));
        const std::size_t end = std::min(lines.find('\n', mark), linesEnd_);
        at_ = std::min(end + 1, linesEnd_);
        const auto line = lines.substr(start, end - start);
        if (ReplyMarks::mayBeReply(line)) return line;
    }
}

/// Brings further whole lines into the window, or one long line into `longLine_`, or skips one;
/// false at the end.
bool ReplyScan::moveOn() {
    keepFrom(linesEnd_);
    if (cancelled_.load(std::memory_order_relaxed)) return false;
    const bool grew = fill();
    linesEnd_ = endOfLines({window_.data(), filled_});
    if (linesEnd_ > 0) return true;
    if (!grew) {
        linesEnd_ = filled_;  // what is left is the last line
    } else if (filled_ == window_.size()) {
        return skipLongLine();
    }
    return linesEnd_ > 0 || grew;
}

/// Fills the window up; false if the file has no more.
bool ReplyScan::fill() {
    const auto wanted = static_cast<std::size_t>(
        std::min<std::uint64_t>(window_.size() - filled_, file_.size() - position_));
    const std::size_t count = file_.readAt(position_, window_.data() + filled_, wanted);
    filled_ += count;
    position_ += count;
    return count > 0;
}

/// The window is full of the start of a line.
bool ReplyScan::skipLongLine() {
    const std::uint64_t lineStart = position_ - filled_;
    ReplyMarks marks;
    std::size_t end = filled_;
    for (bool isOpen = true; isOpen;) {
        marks.add({window_.data(), end});
        keepFrom(filled_ - ReplyMarks::longestMark);
        if (cancelled_.load(std::memory_order_relaxed)) return false;
        isOpen = fill();
        const auto feed = std::string_view(window_.data(), filled_).find('\n');
        end = std::min(feed, filled_);
        if (feed == std::string_view::npos) continue;
        marks.add({window_.data(), end});
        isOpen = false;
    }
    const std::uint64_t lineEnd = position_ - (filled_ - end);
    if (marks.mayBeReply()) {
        longLine_.resize(static_cast<std::size_t>(lineEnd - lineStart));
        longLine_.resize(file_.readAt(lineStart, longLine_.data(), longLine_.size()));
    }
    keepFrom(end);
    return true;
}

/// Drops what stands before `start` in the window; none of the rest is known to be whole lines.
void ReplyScan::keepFrom(std::size_t start) {
    filled_ -= start;
    // An empty window has no memory to point at.
    if (filled_ != 0) std::memmove(window_.data(), window_.data() + start, filled_);
    linesEnd_ = 0;
    at_ = 0;
}

}  // namespace sonra
