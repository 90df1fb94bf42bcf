#include "ingest/OpenCodeParser.h"

#include <algorithm>
#include <string>

#include "frame/Text.h"
#include "ingest/Md5.h"

namespace sonra {
namespace {

/// The texts in a list of objects, joined with line feeds.
std::string joinedTexts(const Json& content) {
    std::string joined;
    bool isFirst = true;
    for (const auto& element : content) {
        const auto text = json::stringAt(element, "text");
        if (!text) continue;
        if (!isFirst) joined += '\n';
        isFirst = false;
        joined += *text;
    }
    return joined;
}

std::string textOf(const Json& object) {
    const Json* content = json::find(object, "content");
    if (content != nullptr && content->is_string()) return content->get<std::string>();
    if (content != nullptr && content->is_array()) return joinedTexts(*content);
    return json::stringAt(object, "text").value_or("");
}

std::string messageIdOf(const Json& object, std::string_view text) {
    auto id = json::stringAt(object, "id").value_or("");
    if (!id.empty()) return id;
    return md5Prefix16(std::string(text) + json::stringAt(object, "createdAt").value_or(""));
}

}  // namespace

std::optional<HistoryMessage> OpenCodeParser::parseObject(const Json& object) const {
    if (json::stringAt(object, "role") != "assistant") return std::nullopt;
    const std::string whole = textOf(object);
    const auto text = text::trimmed(whole);
    if (text.empty()) return std::nullopt;
    return HistoryMessage{messageIdOf(object, text), std::string(text), {}};
}

}  // namespace sonra
