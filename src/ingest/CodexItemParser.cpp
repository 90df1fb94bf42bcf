#include "ingest/CodexItemParser.h"

#include <string>

#include "frame/Text.h"
#include "ingest/Md5.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

std::optional<HistoryMessage> CodexItemParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "type", "event_msg")) return std::nullopt;
    const Json* payload = objectAt(object, "payload");
    if (payload == nullptr || !isTextAt(*payload, "type", "item_completed")) return std::nullopt;
    const Json* item = objectAt(*payload, "item");
    if (item == nullptr || !isTextAt(*item, "type", "AgentMessage")) return std::nullopt;
    const Json* content = objectsAt(*item, "content");
    if (content == nullptr) return std::nullopt;
    const std::string words = joined(*content, "Text");
    const std::string_view text = text::trimmed(words);
    if (text.empty()) return std::nullopt;
    return HistoryMessage{md5Prefix16(words + textOrEmpty(object, "timestamp")), std::string(text),
                          parseTimestamp(json::find(object, "timestamp"))};
}

}  // namespace sonra
