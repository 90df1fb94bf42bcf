#include "ingest/GeminiChange.h"

#include "ingest/RecordTexts.h"

namespace sonra::GeminiChange {

std::optional<std::string> rewindTarget(const Json& line) {
    return json::stringAt(line, "$rewindTo");
}

const Json* replacement(const Json& line) {
    const Json* set = RecordTexts::objectAt(line, "$set");
    return set == nullptr ? nullptr : RecordTexts::objectsAt(*set, "messages");
}

std::string messageId(const Json& line) {
    return json::stringAt(line, "type") ? RecordTexts::textOrEmpty(line, "id") : std::string();
}

}  // namespace sonra::GeminiChange
