#include "speech/VoiceID.h"

#include <array>
#include <utility>

namespace sonra {
namespace {

constexpr std::array<std::pair<VoiceID::Namespace, std::string_view>, 3> namespaces{{
    {VoiceID::Namespace::kokoro, "kokoro"},
    {VoiceID::Namespace::gemini, "gemini"},
    {VoiceID::Namespace::system, "system"},
}};

}  // namespace

std::string_view VoiceID::rawValue(Namespace ns) {
    return namespaces.at(static_cast<std::size_t>(ns)).second;
}

std::optional<VoiceID::Namespace> VoiceID::namespaceFrom(std::string_view rawValue) {
    for (const auto& [ns, raw] : namespaces)
        if (raw == rawValue) return ns;
    return std::nullopt;
}

}  // namespace sonra

std::size_t std::hash<sonra::VoiceID>::operator()(const sonra::VoiceID& voice) const noexcept {
    return std::hash<std::string>()(voice.id) * 31 + static_cast<std::size_t>(voice.ns);
}
