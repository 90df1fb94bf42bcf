#include "history/WholeTranscript.h"

#include <utility>

#include "history/AiderDocument.h"
#include "ingest/DocumentReading.h"
#include "ingest/GeminiParser.h"
#include "ingest/GeminiReader.h"

namespace sonra {
namespace {

std::deque<HistoryMessage> geminiDocument(const std::string& transcript) {
    std::deque<HistoryMessage> messages;
    const auto elements = DocumentReading::load(transcript, DocumentReading::messagesIn);
    if (!elements) return messages;
    for (auto element = elements->rbegin(); element != elements->rend(); ++element)
        if (auto message = GeminiParser().parse(TranscriptRecord::jsonObject(*element)))
            messages.push_back(*std::move(message));
    return messages;
}

}  // namespace

bool isReadWhole(const std::string& transcript, HistorySource source) {
    if (source == HistorySource::aider) return true;
    return source == HistorySource::gemini && GeminiReader::isDocument(transcript);
}

std::deque<HistoryMessage> wholeTranscript(const std::string& transcript, HistorySource source) {
    if (source == HistorySource::aider) return aiderDocument(transcript);
    if (source == HistorySource::gemini) return geminiDocument(transcript);
    return {};
}

}  // namespace sonra
