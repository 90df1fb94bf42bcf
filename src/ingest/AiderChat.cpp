#include "ingest/AiderChat.h"

#include <algorithm>
#include <optional>

#include "frame/Text.h"
#include "ingest/AiderReader.h"
#include "ingest/Md5.h"

namespace sonra::AiderChat {
namespace {

constexpr std::string_view userMark = "#### ";
constexpr std::string_view toolMark = "> ";
constexpr std::string_view sessionMark = "# aider chat started at ";
/// Aider ends each thing that it or the user says with these.
constexpr std::string_view lineBreak = "  ";

enum class Speaker : std::uint8_t { user, tool, assistant };

/// A new session ends what was said before, as the user does.
Speaker speakerOf(std::string_view line) {
    if (line.starts_with(userMark) || line.starts_with(sessionMark)) return Speaker::user;
    const bool isBlankOfTool = line.starts_with('>') && text::trimmed(line.substr(1)).empty();
    return line.starts_with(toolMark) || isBlankOfTool ? Speaker::tool : Speaker::assistant;
}

std::string_view withoutReturn(std::string_view line) {
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

/// Walks through the lines of a stretch.
class Lines {
  public:
    explicit Lines(std::string_view text) : text_(text) {}

    /// Moves to the next line; false at the end.
    bool next() {
        start_ = end_;
        if (start_ >= text_.size()) return false;
        end_ = std::min(text_.find('\n', start_), text_.size() - 1) + 1;
        return true;
    }
    std::size_t start() const { return start_; }
    std::size_t end() const { return end_; }
    /// What needn't be looked at again: the line, if it has an end.
    std::size_t seen() const { return text_[end_ - 1] == '\n' ? end_ : start_; }
    std::string_view line() const {
        const auto whole = text_.substr(start_, end_ - start_);
        return withoutReturn(whole.ends_with('\n') ? whole.substr(0, whole.size() - 1) : whole);
    }

  private:
    std::string_view text_;
    std::size_t start_ = 0;
    std::size_t end_ = 0;
};

/// Collects the lines of replies.
class Collector {
  public:
    Collector(std::string_view text, std::int64_t position) : text_(text), position_(position) {}

    void addLine(std::size_t start, std::size_t end) {
        if (text::trimmed(text_.substr(start, end - start)).empty()) return;
        if (!start_) start_ = start;
        end_ = end;
    }
    void endReply() {
        if (!start_) return;
        const auto raw = text_.substr(*start_, end_ - *start_);
        found_.replies.push_back(
            {position_ + static_cast<std::int64_t>(*start_), std::string(text::trimmed(raw))});
        start_.reset();
    }
    void endTurn(std::size_t end) {
        endReply();
        found_.ended = found_.replies.size();
        found_.turn = end;
    }
    Stretch finish(std::size_t end) {
        endReply();
        found_.end = end;
        return std::move(found_);
    }

  private:
    std::string_view text_;
    std::int64_t position_;
    std::optional<std::size_t> start_;
    std::size_t end_ = 0;
    Stretch found_;
};

/// The report of a failed edit starts like a heading and without the end of other tools' lines.
bool startsReport(std::string_view line) {
    return line.starts_with("> # ") && !line.ends_with(lineBreak);
}

/// `lines` behind the report that starts at its line; as it is if the report has no end.
Lines skipReport(Lines lines) {
    Lines ahead = lines;
    while (ahead.next() && speakerOf(ahead.line()) == Speaker::assistant)
        if (ahead.line().ends_with(lineBreak) && !text::trimmed(ahead.line()).empty()) return ahead;
    return lines;
}

}  // namespace

bool isWrittenSo(std::string_view beginning) {
    bool userSpoke = false;
    // A line that isn't complete may become another.
    Lines lines(beginning.substr(0, beginning.rfind('\n') + 1));
    while (lines.next()) {
        if (!lines.line().starts_with(userMark)) continue;
        const auto heading = text::trimmed(lines.line().substr(userMark.size()));
        if (AiderReader::isAiderTimestampHeader(heading)) return false;
        // The user may well begin with these words, but not say only them, and not first of all.
        const bool isUsers = userSpoke && lines.line().ends_with(lineBreak) &&
                             text::lowered(heading) != "aider response";
        if (AiderParser::isResponseHeader(heading) && !isUsers) return false;
        userSpoke = true;
    }
    return userSpoke;
}

Stretch read(std::string_view text, std::int64_t position, std::string_view lineStart) {
    Collector collector(text, position);
    Lines lines(text);
    std::size_t end = 0;
    while (lines.next()) {
        std::string joined(lines.start() == 0 ? lineStart : std::string_view{});
        joined += lines.line();
        switch (speakerOf(joined)) {
            case Speaker::assistant:
                collector.addLine(lines.start(), lines.end());
                end = lines.end();
                break;
            case Speaker::tool:
                collector.endReply();
                if (startsReport(joined)) lines = skipReport(lines);
                end = lines.seen();
                break;
            case Speaker::user:
                end = lines.seen();
                collector.endTurn(end);
                break;
        }
    }
    return collector.finish(end);
}

std::size_t undecidedTail(std::string_view text) {
    const auto line = text.substr(text.rfind('\n') + 1);
    const bool mayChange =
        userMark.starts_with(line) || toolMark.starts_with(line) || sessionMark.starts_with(line);
    return mayChange ? line.size() : 0;
}

HistoryMessage messageOf(const Reply& reply) {
    const std::string_view words = reply.text;
    const auto firstLine = text::trimmed(words.substr(0, words.find('\n')));
    const auto id = md5Prefix16(std::to_string(reply.position) + ":" + std::string(firstLine));
    return {id, reply.text, {}};
}

}  // namespace sonra::AiderChat
