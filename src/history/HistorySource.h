#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace sonra {

/// The agents whose transcripts a history may come from, in the order in which they are listed.
/// A value, any thread.
enum class HistorySource : std::uint8_t { claudeCode, codex, gemini, opencode, aider, cline, pi };

/// The source id, as sessions carry it ("claude-code").
std::string_view rawValue(HistorySource source);

/// The source with this id; absent for any other string.
std::optional<HistorySource> historySource(std::string_view rawValue);

/// True if transcripts of this agent can be read from their end towards their start.
bool hasBackwardReader(HistorySource source);

}  // namespace sonra
