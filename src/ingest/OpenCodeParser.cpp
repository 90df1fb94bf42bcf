#include "ingest/OpenCodeParser.h"

#include <string>
#include <utility>

#include "frame/Text.h"
#include "ingest/Md5.h"
#include "ingest/RecordTexts.h"

namespace sonra {

using namespace RecordTexts;

std::optional<HistoryMessage> OpenCodeParser::parseObject(const Json& object) const {
    if (!isTextAt(object, "role", "assistant")) return std::nullopt;
    const std::string words = contentOrText(object);
    std::string text(text::trimmed(words));
    if (text.empty()) return std::nullopt;
    std::string id = textOrEmpty(object, "id");
    if (id.empty()) id = md5Prefix16(text + textOrEmpty(object, "createdAt"));
    return HistoryMessage{std::move(id), std::move(text), {}};
}

}  // namespace sonra
