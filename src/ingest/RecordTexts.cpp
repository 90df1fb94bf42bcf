#include "ingest/RecordTexts.h"

#include <algorithm>

namespace sonra::RecordTexts {

bool isTextAt(const Json& object, std::string_view key, std::string_view text) {
    const Json* value = json::find(object, key);
    return value != nullptr && value->is_string() && value->get_ref<const std::string&>() == text;
}

const Json* objectAt(const Json& object, std::string_view key) {
    const Json* value = json::find(object, key);
    return value != nullptr && value->is_object() ? value : nullptr;
}

const Json* objectsAt(const Json& object, std::string_view key) {
    const Json* value = json::find(object, key);
    if (value == nullptr || !value->is_array()) return nullptr;
    return std::ranges::all_of(*value, &Json::is_object) ? value : nullptr;
}

std::string joined(const Json& elements, std::string_view type) {
    std::string joined;
    bool isFirst = true;
    for (const auto& element : elements) {
        const Json* text = json::find(element, "text");
        if (text == nullptr || !text->is_string()) continue;
        if (!type.empty() && !isTextAt(element, "type", type)) continue;
        if (!isFirst) joined += '\n';
        isFirst = false;
        joined += text->get_ref<const std::string&>();
    }
    return joined;
}

std::string contentOrText(const Json& object) {
    const Json* content = json::find(object, "content");
    if (content != nullptr && content->is_string()) return content->get<std::string>();
    if (content != nullptr && content->is_array()) return joined(*content);
    return textOrEmpty(object, "text");
}

std::string textOrEmpty(const Json& object, std::string_view key) {
    return json::stringAt(object, key).value_or("");
}

}  // namespace sonra::RecordTexts
