#include "ingest/GeminiParser.h"

#include <string>

#include "frame/Text.h"
#include "ingest/Md5.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

std::optional<HistoryMessage> GeminiParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "type", "gemini")) return std::nullopt;
    const std::string words = contentOrText(object);
    std::string text(text::trimmed(words));
    if (text.empty()) return std::nullopt;
    std::string id = textOrEmpty(object, "id");
    if (id.empty()) id = md5Prefix16(text + textOrEmpty(object, "timestamp"));
    return HistoryMessage{std::move(id), std::move(text),
                          parseTimestamp(json::find(object, "timestamp"))};
}

}  // namespace sonra
