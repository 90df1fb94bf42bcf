#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the answers in the sections of an aider chat history that AiderReader has cut.
///
/// A section is an answer if its header says "aider response"; preamble, times and prompts are
/// nothing to speak. Sections carry no id, so that it is made of the turn's time, which the reader
/// puts before the section, and the answer's words. Stateless, any thread, never fails.
class AiderParser : public HarnessParser {
  public:
    /// Stands before a turn's time in the bytes of a record; a line feed and the section follow.
    static constexpr std::string_view tsSentinel = " aider-ts:";

    std::string_view id() const override { return "aider"; }
    std::optional<HistoryMessage> parse(const TranscriptRecord& record) const override;

    /// True of the header of an answer, whatever stands around it.
    static bool isResponseHeader(std::string_view header);
};

}  // namespace sonra
