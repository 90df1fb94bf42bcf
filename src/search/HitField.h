#pragma once

#include <cstdint>
#include <string_view>

namespace sonra {

/// The field of a session in which a query was found.
enum class HitField : std::uint8_t { project, sessionId, firstUserPrompt, lastSnippet };

constexpr std::string_view rawValue(HitField field) {
    switch (field) {
        case HitField::project:
            return "project";
        case HitField::sessionId:
            return "sessionId";
        case HitField::firstUserPrompt:
            return "firstUserPrompt";
        case HitField::lastSnippet:
            return "lastSnippet";
    }
    return {};
}

}  // namespace sonra
