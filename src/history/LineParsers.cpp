#include "history/LineParsers.h"

#include "history/ReplyMarks.h"
#include "ingest/ClaudeCodeParser.h"

namespace sonra {
namespace {

/// Doesn't decode lines that can't be replies: most of a transcript is what tools have printed.
class QuickClaudeCodeParser final : public ClaudeCodeParser {
  public:
    std::optional<HistoryMessage> parse(const TranscriptRecord& record) const override {
        const std::string* line = record.asJsonl();
        if (line != nullptr && !ReplyMarks::mayBeReply(*line)) return std::nullopt;
        return ClaudeCodeParser::parse(record);
    }
};

}  // namespace

const HarnessParser* lineParser(HistorySource source) {
    static const QuickClaudeCodeParser claudeCode;
    switch (source) {
        case HistorySource::claudeCode:
            return &claudeCode;
        // These agents' parsers come with their adapters; until then their transcripts have no
        // history.
        case HistorySource::codex:
        case HistorySource::gemini:
        case HistorySource::aider:
        case HistorySource::pi:
        // These have no lines to read backward.
        case HistorySource::opencode:
        case HistorySource::cline:
            return nullptr;
    }
    return nullptr;
}

}  // namespace sonra
