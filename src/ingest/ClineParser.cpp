#include "ingest/ClineParser.h"

#include <string>

#include "frame/Text.h"
#include "ingest/ClineText.h"
#include "ingest/Md5.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

namespace {

constexpr std::size_t hashedCharacters = 64;

/// Unlike other agents' records this one's "text" doesn't stand in for the content.
std::string wordsOf(const Json& object) {
    const Json* content = json::find(object, "content");
    if (content == nullptr) return {};
    if (content->is_string()) return content->get<std::string>();
    return content->is_array() ? joined(*content) : std::string();
}

std::string timeText(const Json& object) {
    const Json* ts = json::find(object, "ts");
    if (const auto text = json::asString(ts)) return *text;
    const auto number = json::asDouble(ts);
    return number ? ClineText::numberText(*number) : std::string();
}

}  // namespace

std::optional<HistoryMessage> ClineParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "role", "assistant")) return std::nullopt;
    std::string text = ClineText::spokenPart(wordsOf(object));
    if (text.empty()) return std::nullopt;
    auto id = md5Prefix16(timeText(object).append(text::prefix(text, hashedCharacters)));
    return HistoryMessage{std::move(id), std::move(text), Timestamp{}};
}

}  // namespace sonra
