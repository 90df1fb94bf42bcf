#include "ingest/OpenCodePart.h"

#include "frame/Text.h"
#include "ingest/RecordTexts.h"

namespace sonra::OpenCodePart {
namespace {

bool isTrue(const Json& object, std::string_view key) {
    return json::boolAt(object, key).value_or(false);
}

std::optional<std::int64_t> timeAt(const Json& object, std::string_view key) {
    const Json* time = RecordTexts::objectAt(object, "time");
    return time == nullptr ? std::nullopt : json::intAt(*time, key);
}

}  // namespace

bool isReply(const Json& message) {
    return RecordTexts::isTextAt(message, "role", "assistant") && !isTrue(message, "summary");
}

std::optional<std::int64_t> completedAt(const Json& message) {
    return timeAt(message, "completed");
}

std::optional<std::int64_t> endedAt(const Json& part) {
    return timeAt(part, "end");
}

std::optional<std::string> words(const Json& part) {
    if (!RecordTexts::isTextAt(part, "type", "text")) return std::nullopt;
    if (isTrue(part, "synthetic") || isTrue(part, "ignored")) return std::nullopt;
    const auto text = RecordTexts::textOrEmpty(part, "text");
    const auto trimmed = text::trimmed(text);
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
}

}  // namespace sonra::OpenCodePart
