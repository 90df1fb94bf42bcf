#include "ingest/CodexLines.h"

#include <algorithm>
#include <initializer_list>
#include <string>

#include "ingest/RecordTexts.h"

namespace sonra::CodexLines {
namespace {

bool isAnyOf(const std::string& text, std::initializer_list<std::string_view> texts) {
    return std::ranges::find(texts, text) != texts.end();
}

bool has(std::string_view line, std::string_view word) {
    return line.find(word) != std::string_view::npos;
}

}  // namespace

bool mayBeEvent(std::string_view line) {
    return has(line, "item_completed") && has(line, "AgentMessage");
}

bool mayPair(std::string_view line) {
    return has(line, "\"assistant\"") || mayBeEvent(line) || mayBeginTurn(line);
}

bool mayBeginTurn(std::string_view line) {
    return has(line, "task_started") || has(line, "user_message") || has(line, "UserMessage");
}

bool separates(const Json& line) {
    const Json* payload = RecordTexts::objectAt(line, "payload");
    if (payload == nullptr) return false;
    const std::string type = RecordTexts::textOrEmpty(line, "type");
    const std::string what = RecordTexts::textOrEmpty(*payload, "type");
    if (type == "response_item") return what != "reasoning";
    if (type != "event_msg") return isAnyOf(type, {"turn_context", "compacted"});
    if (what != "item_completed")
        return isAnyOf(what, {"task_started", "task_complete", "turn_aborted", "user_message"});
    const Json* item = RecordTexts::objectAt(*payload, "item");
    return item != nullptr && !RecordTexts::isTextAt(*item, "type", "Reasoning");
}

bool beginsTurn(const Json& line) {
    const Json* payload = RecordTexts::objectAt(line, "payload");
    if (payload == nullptr || !RecordTexts::isTextAt(line, "type", "event_msg")) return false;
    const std::string what = RecordTexts::textOrEmpty(*payload, "type");
    if (what != "item_completed") return isAnyOf(what, {"task_started", "user_message"});
    const Json* item = RecordTexts::objectAt(*payload, "item");
    return item != nullptr && RecordTexts::isTextAt(*item, "type", "UserMessage");
}

std::string turnOf(const Json& line) {
    const Json* payload = RecordTexts::objectAt(line, "payload");
    if (payload == nullptr) return {};
    for (const auto* key : {"metadata", "internal_chat_message_metadata_passthrough"}) {
        const Json* about = RecordTexts::objectAt(*payload, key);
        if (about == nullptr) continue;
        if (auto turn = RecordTexts::textOrEmpty(*about, "turn_id"); !turn.empty()) return turn;
    }
    return RecordTexts::textOrEmpty(*payload, "turn_id");
}

bool mayBeOneTurn(const std::string& a, const std::string& b) {
    return a.empty() || b.empty() || a == b;
}

}  // namespace sonra::CodexLines
