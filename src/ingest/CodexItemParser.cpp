#include "ingest/CodexItemParser.h"

#include "ingest/CodexParser.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

std::optional<HistoryMessage> CodexItemParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "type", "event_msg")) return std::nullopt;
    const Json* payload = objectAt(object, "payload");
    if (payload == nullptr || !isTextAt(*payload, "type", "item_completed")) return std::nullopt;
    const Json* item = objectAt(*payload, "item");
    if (item == nullptr || !isTextAt(*item, "type", "AgentMessage")) return std::nullopt;
    return CodexParser::messageOf(object, *item, "Text");
}

}  // namespace sonra
