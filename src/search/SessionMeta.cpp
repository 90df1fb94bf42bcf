#include "search/SessionMeta.h"

#include "frame/SubAgentFile.h"
#include "frame/Text.h"

namespace sonra {
namespace {

constexpr std::size_t titleCharacters = 80;
constexpr std::size_t shortIdCharacters = 8;

}  // namespace

std::string SessionMeta::displayTitle() const {
    const auto title = text::prefix(text::trimmed(firstUserPrompt), titleCharacters);
    return std::string(title.empty() ? text::prefix(sessionId, shortIdCharacters) : title);
}

bool SessionMeta::isOfSubAgent() const {
    return SubAgentFile::isAt(jsonlPath);
}

}  // namespace sonra

/// Of what tells sessions apart; equal sessions agree in it.
std::size_t std::hash<sonra::SessionMeta>::operator()(
    const sonra::SessionMeta& meta) const noexcept {
    const std::hash<std::string> ofText;
    const std::size_t times =
        std::hash<double>()(meta.mtime) * 31 + std::hash<std::int64_t>()(meta.bytes);
    return (ofText(meta.sessionId) * 31 + ofText(meta.jsonlPath)) * 31 + times;
}
