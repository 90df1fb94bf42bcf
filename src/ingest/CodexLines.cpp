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

}  // namespace

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

}  // namespace sonra::CodexLines
