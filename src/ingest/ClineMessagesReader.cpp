#include "ingest/ClineMessagesReader.h"

#include "ingest/DocumentReading.h"
#include "ingest/LineReading.h"

namespace sonra {

bool ClineMessagesReader::recognises(const std::string& url) const {
    constexpr std::size_t enough = 64;
    const std::string head = LineReading::beginning(url, enough);
    const auto first = head.find_first_not_of(" \t\r\n");
    return first != std::string::npos && head[first] == '{';
}

TailOffset ClineMessagesReader::initialOffset(const std::string& url) const {
    return DocumentReading::endOf(DocumentReading::load(url, DocumentReading::messagesIn));
}

LiveTailReader::Reading ClineMessagesReader::readSince(const std::string& url,
                                                       TailOffset offset) const {
    return DocumentReading::since(url, offset, DocumentReading::messagesIn, unchanged_);
}

}  // namespace sonra
