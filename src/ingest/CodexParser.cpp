#include "ingest/CodexParser.h"

#include <string>

#include "frame/Text.h"
#include "ingest/Md5.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

std::optional<HistoryMessage> CodexParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "type", "response_item")) return std::nullopt;
    const Json* payload = objectAt(object, "payload");
    if (payload == nullptr || !isTextAt(*payload, "type", "message") ||
        !isTextAt(*payload, "role", "assistant"))
        return std::nullopt;
    return messageOf(object, *payload, "output_text");
}

std::optional<HistoryMessage> CodexParser::messageOf(const Json& line, const Json& holder,
                                                     std::string_view type) {
    const Json* content = objectsAt(holder, "content");
    if (content == nullptr) return std::nullopt;
    const std::string words = joined(*content, type);
    const std::string_view text = text::trimmed(words);
    if (text.empty()) return std::nullopt;
    return HistoryMessage{md5Prefix16(words + textOrEmpty(line, "timestamp")), std::string(text),
                          parseTimestamp(json::find(line, "timestamp"))};
}

}  // namespace sonra
