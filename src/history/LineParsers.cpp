#include "history/LineParsers.h"

#include "history/ReplyMarks.h"
#include "ingest/ClaudeCodeParser.h"
#include "ingest/CodexParser.h"
#include "ingest/GeminiParser.h"
#include "ingest/PiParser.h"

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
    static const CodexParser codex;
    static const GeminiParser gemini;
    static const PiParser pi;
    switch (source) {
        case HistorySource::claudeCode:
            return &claudeCode;
        case HistorySource::codex:
            return &codex;
        case HistorySource::gemini:
            return &gemini;
        case HistorySource::pi:
            return &pi;
        // These have no lines to read backward.
        case HistorySource::aider:
        case HistorySource::opencode:
        case HistorySource::cline:
            return nullptr;
    }
    return nullptr;
}

}  // namespace sonra
