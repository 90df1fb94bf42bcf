#pragma once

#include <optional>
#include <string>

#include "ingest/HistoryMessage.h"

namespace sonra {

/// The last thing an agent said in a transcript, as it stands there, unless it is still being
/// written: then the one before. Absent if there is none, or if it is too short to be worth
/// repeating. Reads from the file's end, as far as it must: not for the main thread.
std::optional<HistoryMessage> previousMessageToSeed(const std::string& transcript,
                                                    const std::string& source);

}  // namespace sonra
