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
    const Json* content = objectsAt(*payload, "content");
    if (content == nullptr) return std::nullopt;
    const std::string words = joined(*content, "output_text");
    const std::string_view text = text::trimmed(words);
    if (text.empty()) return std::nullopt;
    return HistoryMessage{md5Prefix16(words + textOrEmpty(object, "timestamp")), std::string(text),
                          parseTimestamp(json::find(object, "timestamp"))};
}

}  // namespace sonra
