#include "ingest/OpenCodePartParser.h"

#include <utility>

#include "frame/Text.h"
#include "ingest/OpenCodeParser.h"

namespace sonra {
namespace {

constexpr const char* textKey = "openCodePart";
constexpr const char* idKey = "messageID";

}  // namespace

std::optional<HistoryMessage> OpenCodePartParser::parse(const TranscriptRecord& record) const {
    const Json* object = record.asJsonObject();
    if (object == nullptr) return OpenCodeParser().parse(record);
    const auto text = json::stringAt(*object, textKey);
    auto id = json::stringAt(*object, idKey);
    if (!text || text::trimmed(*text).empty() || !id) return std::nullopt;
    return HistoryMessage{*std::move(id), std::string(text::trimmed(*text)), {}};
}

TranscriptRecord OpenCodePartParser::recordOf(const std::string& messageId,
                                              const std::string& text) {
    return TranscriptRecord::jsonObject({{textKey, text}, {idKey, messageId}});
}

}  // namespace sonra
