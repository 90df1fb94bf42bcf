#pragma once

#include "ingest/CodexParser.h"
#include "ingest/LineTailReader.h"

namespace sonra {

/// Follows a transcript of Codex: a JSON object on each line. For the rest as LineTailReader.
class CodexReader : public LineTailReader<CodexParser> {};

}  // namespace sonra
