#pragma once

#include "history/HistorySource.h"
#include "ingest/HarnessParser.h"

namespace sonra {

/// The parser for a line of this agent's transcripts: one instance for all, any thread. Null for
/// the sources that have none.
const HarnessParser* lineParser(HistorySource source);

}  // namespace sonra
