// The state document with any content: read as settings, and rewritten by an update.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "frame/ServiceState.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

bool isDefaultOr(const sonra::Json& document, const char* key, bool value, bool defaultValue) {
    return value == sonra::json::boolAt(document, key).value_or(defaultValue);
}

void checkSettings(const sonra::Json& document) {
    using sonra::ServiceState;
    const auto state = ServiceState::from(document);
    const ServiceState defaults;
    require(state.voice == sonra::json::stringAt(document, "voice").value_or(defaults.voice));
    require(state.volume == sonra::json::intAt(document, "volume").value_or(defaults.volume));
    require(isDefaultOr(document, "muted", state.muted, false));
    require(isDefaultOr(document, "duckOnDictation", state.duckOnDictation, true));
}

/// Every key but the touched one has to be there as it was, and a second update changes nothing
/// more.
void checkUpdate(std::string_view bytes, const sonra::Json& before) {
    const auto touch = [](sonra::Json& document) { document["paused"] = true; };
    const auto rewritten = sonra::ServiceState::rewritten(bytes, touch);
    const auto after = sonra::json::parseObject(rewritten);
    auto expected = before;
    touch(expected);
    require(after && *after == expected);
    require(sonra::ServiceState::rewritten(rewritten, touch) == rewritten);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto document = sonra::json::parseObject(bytes).value_or(sonra::Json::object());
    checkSettings(document);
    checkUpdate(bytes, document);
    return 0;
}
