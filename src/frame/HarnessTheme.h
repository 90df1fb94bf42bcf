#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

namespace sonra {

/// A colour in sRGB, each part from 0 to 1; opaque.
struct Rgb {
    double red = 0;
    double green = 0;
    double blue = 0;

    bool operator==(const Rgb&) const = default;
};

/// One coding agent: the id that its transcripts carry, the names shown for it, and its colours.
/// The registry is also the list of sources that a session may have. Immutable, any thread.
struct HarnessTheme {
    std::string_view id;
    std::string_view displayNameText;
    std::string_view chipLabelText;
    Rgb accentStart;
    Rgb accentEnd;
    Rgb glowColor;
    Rgb inkOnAccent;  ///< legible on the accent
    bool isExperimental = false;

    [[nodiscard]] std::string_view displayName() const { return displayNameText; }
    [[nodiscard]] std::string_view chipLabel() const { return chipLabelText; }
    [[nodiscard]] Rgb chipColor() const { return accentStart; }

    bool operator==(const HarnessTheme&) const = default;

    /// The seven agents, in the order in which they are listed.
    static std::span<const HarnessTheme> all();
    /// The theme with this id; Claude Code's for any other string.
    static const HarnessTheme& current(std::string_view source);
    /// True if `source` is the id of an agent.
    static bool isKnown(std::string_view source);
    /// The name for a source; of an unknown one the id itself.
    static std::string_view displayName(std::string_view source);
};

}  // namespace sonra
