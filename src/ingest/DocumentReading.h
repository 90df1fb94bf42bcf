#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ingest/LiveTailReader.h"
#include "ingest/UnchangedDocuments.h"

/// What readers of transcripts that are rewritten whole have in common. Any thread, never throws.
namespace sonra::DocumentReading {

/// Finds a document's elements in its bytes; absent if it doesn't decode, as while it is being
/// written, or isn't of the kind that is looked for.
using Decode = std::optional<Json> (*)(std::string_view bytes);

/// The array "messages" of a document that is an object; absent if it has none, or anything else
/// than objects in it.
std::optional<Json> messagesIn(std::string_view bytes);

/// The elements of the document at the path; absent also if it can't be read.
std::optional<Json> load(const std::string& url, Decode decode);

/// A cursor behind all elements; behind none if there is no array.
TailOffset endOf(const std::optional<Json>& elements);

/// The elements that `decode` finds in the document `url`, from `offset` on. A document that has
/// shrunk has none, and the cursor waits until it outgrows it. One that nobody has written to since
/// the last look, as `unchanged` knows, isn't loaded, whether it did decode or not.
LiveTailReader::Reading since(const std::string& url, TailOffset offset, Decode decode,
                              UnchangedDocuments& unchanged);

}  // namespace sonra::DocumentReading
