#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace sonra {

/// A voice: the family of engines that has it, and its name within that family. There is no
/// combined text form; the shared document holds the `id` alone, and whoever reads it knows the
/// family.
struct VoiceID {
    enum class Namespace { kokoro, gemini, system };

    Namespace ns = Namespace::kokoro;
    std::string id;  ///< for example "af_heart"

    bool operator==(const VoiceID&) const = default;

    static std::string_view rawValue(Namespace ns);
    /// Exact comparison; absent for any other text.
    static std::optional<Namespace> namespaceFrom(std::string_view rawValue);
};

}  // namespace sonra

template <>
struct std::hash<sonra::VoiceID> {
    std::size_t operator()(const sonra::VoiceID& voice) const noexcept;
};
