#include "ingest/GeminiReader.h"

#include <utility>

#include "frame/Text.h"
#include "ingest/DocumentReading.h"
#include "ingest/LineReading.h"
#include "ingest/RecordTexts.h"

namespace sonra {

bool GeminiReader::isDocument(const std::string& url) {
    return text::lowered(url).ends_with(".json");
}

std::optional<Json> GeminiReader::loadMessages(const std::string& url) {
    auto document = DocumentReading::load(url);
    if (!document || RecordTexts::objectsAt(*document, "messages") == nullptr) return std::nullopt;
    return std::move((*document)["messages"]);
}

TailOffset GeminiReader::initialOffset(const std::string& url) const {
    return isDocument(url) ? DocumentReading::endOf(loadMessages(url)) : LineReading::endOf(url);
}

LiveTailReader::Reading GeminiReader::readSince(const std::string& url, TailOffset offset) const {
    return isDocument(url) ? DocumentReading::since(loadMessages(url), offset)
                           : LineReading::since(url, offset);
}

}  // namespace sonra
