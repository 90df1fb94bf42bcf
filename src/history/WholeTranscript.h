#pragma once

#include <deque>
#include <string>

#include "history/HistorySource.h"
#include "ingest/HistoryMessage.h"

namespace sonra {

/// True if this transcript has to be read as a whole, since it has no lines that speak for
/// themselves. Told by the source and the name.
bool isReadWhole(const std::string& transcript, HistorySource source);

/// All messages of such a transcript, newest first; none if it can't be read. Any thread, never
/// throws.
std::deque<HistoryMessage> wholeTranscript(const std::string& transcript, HistorySource source);

}  // namespace sonra
