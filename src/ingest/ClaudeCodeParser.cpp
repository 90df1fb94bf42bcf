#include "ingest/ClaudeCodeParser.h"

#include <algorithm>
#include <string>

#include "frame/Text.h"

namespace sonra {
namespace {

bool isText(const Json* value, std::string_view text) {
    return value != nullptr && value->is_string() && value->get_ref<const std::string&>() == text;
}

/// The list of elements in the line's message, null if it isn't a list of objects only.
const Json* contentOf(const Json& object) {
    const Json* message = json::find(object, "message");
    const Json* content = message == nullptr ? nullptr : json::find(*message, "content");
    if (content == nullptr || !content->is_array()) return nullptr;
    return std::ranges::all_of(*content, &Json::is_object) ? content : nullptr;
}

/// The texts in `content`, joined with line feeds. Without any of them it is empty, as it is of
/// blank ones.
std::string joinedTexts(const Json& content) {
    std::string joined;
    bool isFirst = true;
    for (const auto& element : content) {
        const Json* text = json::find(element, "text");
        if (!isText(json::find(element, "type"), "text") || text == nullptr || !text->is_string())
            continue;
        if (!isFirst) joined += '\n';
        isFirst = false;
        joined += text->get_ref<const std::string&>();
    }
    return joined;
}

std::string messageIdOf(const Json& object) {
    if (auto uuid = json::stringAt(object, "uuid")) return *std::move(uuid);
    return json::stringAt(object["message"], "id").value_or("");
}

}  // namespace

std::optional<HistoryMessage> ClaudeCodeParser::parseObject(const Json& object) const {
    if (!isText(json::find(object, "type"), "assistant")) return std::nullopt;
    if (json::boolAt(object, "isSidechain").value_or(false)) return std::nullopt;
    const Json* content = contentOf(object);
    if (content == nullptr) return std::nullopt;
    const std::string joined = joinedTexts(*content);
    const std::string_view text = text::trimmed(joined);
    if (text.empty()) return std::nullopt;
    return HistoryMessage{messageIdOf(object), std::string(text),
                          parseTimestamp(json::find(object, "timestamp"))};
}

}  // namespace sonra
