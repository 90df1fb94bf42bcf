#pragma once

#include <deque>
#include <string>

#include "ingest/HistoryMessage.h"

namespace sonra {

/// All answers in a chat history of aider, newest first, whichever way it is written; none if it
/// can't be read. Their ids are those that following the file gives them. Any thread, never throws.
std::deque<HistoryMessage> aiderDocument(const std::string& transcript);

}  // namespace sonra
