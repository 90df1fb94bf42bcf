#include "ingest/HarnessParser.h"

namespace sonra {

std::optional<HistoryMessage> HarnessParser::parse(const TranscriptRecord& record) const {
    if (const Json* object = record.asJsonObject()) {
        return object->is_object() ? parseObject(*object) : std::nullopt;
    }
    const std::string* bytes = record.asJsonl();
    if (bytes->empty()) return std::nullopt;
    const auto object = json::parseObject(*bytes);
    return object ? parseObject(*object) : std::nullopt;
}

std::optional<HistoryMessage> HarnessParser::parseObject(const Json& /*object*/) const {
    return std::nullopt;
}

}  // namespace sonra
