#pragma once

#include <optional>
#include <string>

#include "ingest/LiveTailReader.h"

/// What readers of transcripts that are rewritten whole have in common. Any thread, never throws.
namespace sonra::DocumentReading {

/// The document at the path; absent if it can't be read or decoded, as while it is being written.
std::optional<Json> load(const std::string& url);

/// The array "messages" of a document that is an object; absent if it has none, or anything else
/// than objects in it.
std::optional<Json> loadMessages(const std::string& url);

/// A cursor behind all elements; behind none if there is no array.
TailOffset endOf(const std::optional<Json>& elements);

/// The elements of the array that `load` finds in the document `url`, from `offset` on. A document
/// that has shrunk has none, and the cursor waits until it outgrows it. One that nobody has written
/// to since the last look isn't loaded.
LiveTailReader::Reading since(const std::string& url, TailOffset offset,
                              std::optional<Json> (*load)(const std::string& url));

}  // namespace sonra::DocumentReading
