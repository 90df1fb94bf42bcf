#include "ingest/ClineReader.h"

#include <algorithm>

#include "ingest/DocumentReading.h"

namespace sonra {
namespace {

/// Absent if the document isn't an array of objects.
std::optional<Json> messagesIn(std::string_view bytes) {
    auto document = json::parse(bytes);
    if (!document || !document->is_array() || !std::ranges::all_of(*document, &Json::is_object))
        return std::nullopt;
    return document;
}

}  // namespace

TailOffset ClineReader::initialOffset(const std::string& url) const {
    return DocumentReading::endOf(DocumentReading::load(url, messagesIn));
}

LiveTailReader::Reading ClineReader::readSince(const std::string& url, TailOffset offset) const {
    return DocumentReading::since(url, offset, messagesIn, unchanged_);
}

}  // namespace sonra
