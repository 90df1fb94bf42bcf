#include "ingest/ClaudeCodeParser.h"

#include <string>

#include "frame/Text.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

namespace {

std::string messageIdOf(const Json& object) {
    if (auto uuid = json::stringAt(object, "uuid")) return *std::move(uuid);
    return json::stringAt(object["message"], "id").value_or("");
}

}  // namespace

std::optional<HistoryMessage> ClaudeCodeParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "type", "assistant")) return std::nullopt;
    if (json::boolAt(object, "isSidechain").value_or(false)) return std::nullopt;
    const Json* message = objectAt(object, "message");
    const Json* content = message == nullptr ? nullptr : objectsAt(*message, "content");
    if (content == nullptr) return std::nullopt;
    const std::string words = joined(*content, "text");
    const std::string_view text = text::trimmed(words);
    if (text.empty()) return std::nullopt;
    return HistoryMessage{messageIdOf(object), std::string(text),
                          parseTimestamp(json::find(object, "timestamp"))};
}

}  // namespace sonra
