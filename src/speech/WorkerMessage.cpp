#include "speech/WorkerMessage.h"

#include <limits>

#include "frame/Json.h"

namespace sonra {
namespace {

std::optional<std::int32_t> pidOf(const Json& object) {
    const auto pid = json::intAt(object, "pid");
    if (!pid || *pid < 1 || *pid > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
    return static_cast<std::int32_t>(*pid);
}

}  // namespace

std::optional<WorkerMessage> WorkerMessage::parse(std::string_view line) {
    const auto object = json::parseObject(line);
    if (!object) return std::nullopt;
    const auto type = json::stringAt(*object, "type");
    if (type == "ready")
        return WorkerMessage{.type = Type::ready,
                             .pid = pidOf(*object),
                             .backend = json::stringAt(*object, "backend").value_or("")};
    if (type != "result") return std::nullopt;
    return WorkerMessage{.type = Type::result,
                         .id = json::intAt(*object, "id"),
                         .ok = json::boolAt(*object, "ok").value_or(false)};
}

}  // namespace sonra
