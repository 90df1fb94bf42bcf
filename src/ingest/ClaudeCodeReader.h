#pragma once

#include "ingest/ClaudeCodeParser.h"
#include "ingest/LineTailReader.h"

namespace sonra {

/// Follows a transcript of Claude Code: a JSON object on each line. For the rest as LineTailReader.
class ClaudeCodeReader : public LineTailReader<ClaudeCodeParser> {};

}  // namespace sonra
