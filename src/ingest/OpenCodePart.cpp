#include "ingest/OpenCodePart.h"

#include "frame/Text.h"

namespace sonra::OpenCodePart {
namespace {

bool isTrue(const Json& object, std::string_view key) {
    return json::boolAt(object, key).value_or(false);
}

std::optional<std::int64_t> timeAt(const Json& object, std::string_view key) {
    const Json* time = json::find(object, "time");
    if (time == nullptr) return std::nullopt;
    return json::intAt(*time, key);
}

}  // namespace

bool isReply(const Json& message) {
    return json::stringAt(message, "role") == "assistant" && !isTrue(message, "summary");
}

std::optional<std::int64_t> completedAt(const Json& message) {
    return timeAt(message, "completed");
}

std::optional<std::int64_t> endedAt(const Json& part) {
    return timeAt(part, "end");
}

std::optional<std::string> words(const Json& part) {
    if (json::stringAt(part, "type") != "text") return std::nullopt;
    if (isTrue(part, "synthetic") || isTrue(part, "ignored")) return std::nullopt;
    const auto text = json::stringAt(part, "text").value_or("");
    const auto trimmed = text::trimmed(text);
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
}

}  // namespace sonra::OpenCodePart
