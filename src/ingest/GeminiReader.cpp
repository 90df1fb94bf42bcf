#include "ingest/GeminiReader.h"

#include "frame/Text.h"
#include "ingest/DocumentReading.h"
#include "ingest/LineReading.h"

namespace sonra {

bool GeminiReader::isDocument(const std::string& url) {
    return text::lowered(url).ends_with(".json");
}

TailOffset GeminiReader::initialOffset(const std::string& url) const {
    return isDocument(url)
               ? DocumentReading::endOf(DocumentReading::load(url, DocumentReading::messagesIn))
               : LineReading::endOf(url);
}

LiveTailReader::Reading GeminiReader::readSince(const std::string& url, TailOffset offset) const {
    return isDocument(url)
               ? DocumentReading::since(url, offset, DocumentReading::messagesIn, unchanged_)
               : LineReading::since(url, offset);
}

}  // namespace sonra
