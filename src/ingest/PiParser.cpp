#include "ingest/PiParser.h"

#include <string>

#include "frame/Text.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

std::optional<HistoryMessage> PiParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "type", "message")) return std::nullopt;
    const Json* message = objectAt(object, "message");
    if (message == nullptr || !isTextAt(*message, "role", "assistant")) return std::nullopt;
    const Json* content = objectsAt(*message, "content");
    if (content == nullptr) return std::nullopt;
    const std::string words = joined(*content, "text");
    const std::string_view text = text::trimmed(words);
    if (text.empty()) return std::nullopt;
    return HistoryMessage{textOrEmpty(object, "id"), std::string(text),
                          parseTimestamp(json::find(object, "timestamp"))};
}

}  // namespace sonra
