#include "search/Summarizer.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "frame/Text.h"
#include "search/FileName.h"
#include "search/SummarizerHelpers.h"
#include "search/TranscriptBytes.h"
#include "search/TranscriptLineParser.h"

namespace sonra {
namespace {

constexpr std::size_t maxCharacters = 200;
constexpr std::array<std::string_view, 3> wrapperBeginnings{"<command-", "<system-reminder>",
                                                            "<local-command-stdout>"};

std::string listText(std::string_view text) {
    return std::string(text::prefix(SummarizerHelpers::cleanForList(text), maxCharacters));
}

bool isWrapper(std::string_view text) {
    return std::ranges::any_of(wrapperBeginnings,
                               [&](auto beginning) { return text.starts_with(beginning); });
}

std::string joined(const std::vector<std::string_view>& texts) {
    std::string all;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i > 0) all += ' ';
        all += texts[i];
    }
    return all;
}

/// One transcript being read.
class Summary {
  public:
    Summary(const std::string& path, const TranscriptBytes& file) : file_(file) {
        record_.path = path;
        const auto name = FileName::lastComponent(path);
        record_.id = FileName::escaped(FileName::withoutExtension(name));
        record_.mtime = file.mtime();
        record_.size = file.size();
        record_.source = "claude-code";
    }

    SessionRecord make() {
        readHead();
        readTail();
        if (record_.cwd.empty()) {
            const auto directory = FileName::withoutLastComponent(record_.path);
            record_.cwd =
                FileName::escaped(SummarizerHelpers::decodeCwd(FileName::lastComponent(directory)));
        }
        record_.project = FileName::lastComponent(record_.cwd);
        return std::move(record_);
    }

  private:
    /// Up to `length` bytes from `position` on, in the buffer; nothing if they can't be read.
    std::string_view read(std::int64_t position, std::size_t length);
    void readHead();
    void walkHead(std::string_view head);
    void noteHeadLine(const TranscriptLine& line);
    void notePrompt(const TranscriptLine& line);
    void countMessages(std::string_view head);
    void readTail();
    void noteTailLine(const TranscriptLine& line);

    const TranscriptBytes& file_;
    std::unique_ptr<char[]> buffer_{
        new char[Summarizer::tailBytes + TranscriptLineParser::padding]};
    TranscriptLineParser parser_;
    SessionRecord record_;
};

std::string_view Summary::read(std::int64_t position, std::size_t length) {
    if (!file_.isReadable()) return {};
    const auto got = file_.read(position, buffer_.get(), length).value_or(0);
    // What stands behind the last line is read, though it doesn't count.
    std::fill_n(buffer_.get() + got, TranscriptLineParser::padding, '\0');
    return {buffer_.get(), got};
}

void Summary::readHead() {
    const auto head = read(0, Summarizer::headBytes);
    if (simdjson::validate_utf8(head.data(), head.size())) walkHead(head);
    countMessages(head);
}

void Summary::walkHead(std::string_view head) {
    while (!head.empty()) {
        const auto end = std::min(head.find('\n'), head.size());
        if (const auto* line = end > 0 ? parser_.parse(head.substr(0, end)) : nullptr)
            noteHeadLine(*line);
        if (!record_.cwd.empty() && !record_.gitBranch.empty() && !record_.firstUserPrompt.empty())
            return;
        head.remove_prefix(std::min(end + 1, head.size()));
    }
}

void Summary::noteHeadLine(const TranscriptLine& line) {
    if (record_.cwd.empty()) record_.cwd = line.cwd;
    if (line.isSidechain) return;
    if (record_.gitBranch.empty()) record_.gitBranch = line.gitBranch;
    if (record_.firstUserPrompt.empty() && line.type == "user") notePrompt(line);
}

void Summary::notePrompt(const TranscriptLine& line) {
    const auto text = joined(line.texts);
    const auto typed = text::trimmed(text);
    if (!typed.empty() && !isWrapper(typed)) record_.firstUserPrompt = listText(typed);
}

void Summary::countMessages(std::string_view head) {
    const auto count = SummarizerHelpers::countOccurrences(R"("role":"user")", head) +
                       SummarizerHelpers::countOccurrences(R"("role":"assistant")", head);
    const double ratio =
        head.empty()
            ? 1.0
            : std::max(1.0, static_cast<double>(record_.size) / static_cast<double>(head.size()));
    record_.msgCount = std::llround(static_cast<double>(count) * ratio);
}

void Summary::readTail() {
    const auto size = std::max<std::int64_t>(file_.size(), 0);
    const auto length = std::min(static_cast<std::size_t>(size), Summarizer::tailBytes);
    auto tail = read(size - static_cast<std::int64_t>(length), length);
    if (!simdjson::validate_utf8(tail.data(), tail.size())) return;
    while (!tail.empty() && record_.lastSnippet.empty()) {
        const auto feed = tail.rfind('\n');
        const auto start = feed == std::string_view::npos ? 0 : feed + 1;
        if (const auto* line = start < tail.size() ? parser_.parse(tail.substr(start)) : nullptr)
            noteTailLine(*line);
        tail = tail.substr(0, start == 0 ? 0 : start - 1);
    }
}

void Summary::noteTailLine(const TranscriptLine& line) {
    if (line.type != "assistant" || line.isSidechain ||
        line.content != TranscriptLine::Content::list)
        return;
    for (const auto block : line.texts) {
        const auto text = text::trimmed(block);
        if (text.empty()) continue;
        record_.lastSnippet = listText(text);
        return;
    }
}

}  // namespace

std::optional<SessionRecord> Summarizer::summarize(const std::string& jsonlPath) {
    const auto file = TranscriptBytes::open(jsonlPath);
    if (!file) return std::nullopt;
    return Summary(jsonlPath, *file).make();
}

}  // namespace sonra
