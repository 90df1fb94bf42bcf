#include "frame/HarnessTheme.h"

#include <algorithm>

namespace sonra {
namespace {

constexpr std::array<HarnessTheme, 7> themes{{
    {"claude-code",
     "Claude Code",
     "CC",
     {1.0, 0.71, 0.3},
     {1.0, 0.43, 0.42},
     {1.0, 0.5, 0.3},
     {0.1, 0.05, 0.0}},
    {"codex",
     "Codex CLI",
     "CDX",
     {0.31, 0.76, 0.97},
     {0.36, 0.42, 1.0},
     {0.34, 0.55, 0.99},
     {0.02, 0.05, 0.12}},
    {"gemini",
     "Gemini CLI",
     "GEM",
     {0.56, 0.49, 1.0},
     {0.36, 0.83, 1.0},
     {0.5, 0.65, 1.0},
     {0.04, 0.04, 0.12}},
    {"aider",
     "Aider",
     "AID",
     {1.0, 0.65, 0.15},
     {1.0, 0.44, 0.38},
     {1.0, 0.55, 0.27},
     {0.1, 0.05, 0.0}},
    {"cline",
     "Cline",
     "CLN",
     {0.31, 0.82, 0.66},
     {0.44, 0.89, 0.51},
     {0.38, 0.86, 0.58},
     {0.0, 0.07, 0.04},
     true},
    {"opencode",
     "OpenCode",
     "OC",
     {1.0, 0.43, 0.78},
     {1.0, 0.56, 0.69},
     {1.0, 0.5, 0.74},
     {0.1, 0.0, 0.06},
     true},
    {"pi", "Pi", "PI", {0.0, 0.78, 0.74}, {0.44, 0.92, 0.8}, {0.2, 0.85, 0.77}, {0.0, 0.07, 0.06}},
}};

const HarnessTheme* lookUp(std::string_view source) {
    const auto it = std::find_if(themes.begin(), themes.end(),
                                 [&](const HarnessTheme& theme) { return theme.id == source; });
    return it == themes.end() ? nullptr : &*it;
}

}  // namespace

std::span<const HarnessTheme> HarnessTheme::all() {
    return themes;
}

const HarnessTheme& HarnessTheme::current(std::string_view source) {
    const auto* found = lookUp(source);
    return found == nullptr ? themes.front() : *found;
}

bool HarnessTheme::isKnown(std::string_view source) {
    return lookUp(source) != nullptr;
}

std::string_view HarnessTheme::displayName(std::string_view source) {
    const auto* found = lookUp(source);
    return found == nullptr ? source : found->displayNameText;
}

}  // namespace sonra
