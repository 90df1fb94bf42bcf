#include "ingest/AiderParser.h"

#include <string>

#include "frame/Text.h"
#include "ingest/Md5.h"

namespace sonra {
namespace {

struct Section {
    std::string_view turnTimestamp;
    std::string_view text;
};

/// Absent if the time before the section doesn't end.
std::optional<Section> sectionOf(std::string_view bytes) {
    if (!bytes.starts_with(AiderParser::tsSentinel)) return Section{{}, bytes};
    bytes.remove_prefix(AiderParser::tsSentinel.size());
    const std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    return Section{bytes.substr(0, end), bytes.substr(end + 1)};
}

}  // namespace

bool AiderParser::isResponseHeader(std::string_view header) {
    return text::lowered(text::trimmed(header)).starts_with("aider response");
}

std::optional<HistoryMessage> AiderParser::parse(const TranscriptRecord& record) const {
    const std::string* bytes = record.asJsonl();
    if (bytes == nullptr || bytes->empty() || !text::isUtf8(*bytes)) return std::nullopt;
    const auto section = sectionOf(*bytes);
    if (!section) return std::nullopt;
    const std::size_t headerEnd = section->text.find('\n');
    if (headerEnd == std::string_view::npos) return std::nullopt;
    const auto body = text::trimmed(section->text.substr(headerEnd + 1));
    if (body.empty() || !isResponseHeader(section->text.substr(0, headerEnd))) return std::nullopt;
    return HistoryMessage{
        md5Prefix16(std::string(section->turnTimestamp).append(body)), std::string(body), {}};
}

}  // namespace sonra
