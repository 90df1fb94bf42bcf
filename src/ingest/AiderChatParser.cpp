#include "ingest/AiderChatParser.h"

#include <utility>

#include "frame/Text.h"

namespace sonra {
namespace {

constexpr const char* replyKey = "aiderReply";
constexpr const char* positionKey = "position";

}  // namespace

std::optional<HistoryMessage> AiderChatParser::parse(const TranscriptRecord& record) const {
    const Json* object = record.asJsonObject();
    if (object == nullptr) return std::nullopt;
    auto text = json::stringAt(*object, replyKey);
    const auto position = json::intAt(*object, positionKey);
    if (!text || text::trimmed(*text).empty() || !position) return std::nullopt;
    return AiderChat::messageOf({*position, *std::move(text)});
}

TranscriptRecord AiderChatParser::recordOf(const AiderChat::Reply& reply) {
    return TranscriptRecord::jsonObject({{replyKey, reply.text}, {positionKey, reply.position}});
}

}  // namespace sonra
