#include "history/BackwardLines.h"

#include <utility>

#include "history/CodexBackwardLines.h"
#include "history/GeminiBackwardLines.h"
#include "history/LineParsers.h"
#include "ingest/ClaudeCodeAgentReader.h"
#include "ingest/GeminiLinesReader.h"

namespace sonra {
namespace {

/// Lines that speak for themselves.
class PlainLines final : public BackwardLines {
  public:
    explicit PlainLines(const HarnessParser& parser) : parser_(parser) {}

    void take(std::string line, std::deque<HistoryMessage>& messages) override {
        if (auto message = parser_.parse(TranscriptRecord::jsonl(std::move(line))))
            messages.push_back(*std::move(message));
    }

  private:
    const HarnessParser& parser_;
};

}  // namespace

std::unique_ptr<BackwardLines> BackwardLines::of(const std::string& transcript,
                                                 HistorySource source) {
    if (source == HistorySource::codex) return std::make_unique<CodexBackwardLines>();
    if (source == HistorySource::gemini && GeminiLinesReader().recognises(transcript))
        return std::make_unique<GeminiBackwardLines>();
    if (source == HistorySource::claudeCode && ClaudeCodeAgentReader::isAgentFile(transcript))
        return nullptr;
    const auto* parser = lineParser(source);
    return parser == nullptr ? nullptr : std::make_unique<PlainLines>(*parser);
}

}  // namespace sonra
