#pragma once

#include <string>
#include <vector>

#include "frame/Json.h"
#include "ingest/HistoryMessage.h"
#include "ingest/LiveTailReader.h"

/// Golden files hold what is to be found in real transcripts: counts, ids and digests, not words.
/// Running once with SONRA_UPDATE_GOLDEN set writes one anew, and fails, so that nobody leaves it
/// set.
namespace sonra::test {

/// Reads from `cursor` on, appends the messages and moves the cursor.
void follow(const LiveTailReader& reader, const std::string& path, TailOffset& cursor,
            std::vector<HistoryMessage>& messages);

/// What a reader and its parser find from `cursor` on.
std::vector<HistoryMessage> followed(const LiveTailReader& reader, const std::string& path,
                                     TailOffset cursor);

/// Count, ids and digests.
Json summaryOf(const std::vector<HistoryMessage>& messages);

/// Expects that the golden file of this name holds exactly `found`, an object with a member for
/// each transcript.
void expectGolden(const std::string& name, const Json& found);

}  // namespace sonra::test
