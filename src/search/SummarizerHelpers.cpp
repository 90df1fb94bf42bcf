#include "search/SummarizerHelpers.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>

#include "frame/Text.h"
#include "search/TranscriptBytes.h"

namespace sonra {
namespace {

std::unique_ptr<icu::RegexPattern> compiled(const char16_t* pattern) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError where;
    return std::unique_ptr<icu::RegexPattern>(
        icu::RegexPattern::compile(icu::UnicodeString(pattern), where, status));
}

/// Leaves the text as it is if the engine gives up.
void replaceMatches(const icu::RegexPattern& pattern, icu::UnicodeString& text,
                    const icu::UnicodeString& replacement) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(text, status));
    auto replaced = matcher->replaceAll(replacement, status);
    if (U_SUCCESS(status) != 0) text = std::move(replaced);
}

}  // namespace

std::string SummarizerHelpers::cleanForList(std::string_view raw) {
    static const auto link = compiled(uR"(https?://\S+)");
    static const auto whiteSpace = compiled(uR"(\s+)");
    auto text = icu::UnicodeString::fromUTF8(
        icu::StringPiece(raw.data(), static_cast<std::int32_t>(raw.size())));
    text.findAndReplace(u"```", u" ");
    replaceMatches(*link, text, u"");
    text.findAndReplace(u"**", u"");
    text.findAndReplace(u"\n", u" ");
    replaceMatches(*whiteSpace, text, u" ");
    std::string line;
    text.toUTF8String(line);
    return std::string(text::trimmed(line));
}

std::size_t SummarizerHelpers::countOccurrences(std::string_view pattern,
                                                std::string_view haystack) {
    if (pattern.empty()) return 0;
    std::size_t count = 0;
    for (auto at = haystack.find(pattern); at != std::string_view::npos;
         at = haystack.find(pattern, at + pattern.size()))
        ++count;
    return count;
}

std::optional<std::string> SummarizerHelpers::readTail(const std::string& path,
                                                       std::size_t maxBytes) {
    const auto file = TranscriptBytes::open(path);
    if (!file || !file->isReadable()) return std::nullopt;
    const auto amount =
        std::min(static_cast<std::size_t>(std::max<std::int64_t>(file->size(), 0)), maxBytes);
    std::string tail(amount, '\0');
    const auto got =
        file->read(file->size() - static_cast<std::int64_t>(amount), tail.data(), amount);
    if (!got) return std::nullopt;
    tail.resize(*got);
    return tail;
}

std::string SummarizerHelpers::decodeCwd(std::string_view projectDirBasename) {
    if (projectDirBasename.starts_with('-')) projectDirBasename.remove_prefix(1);
    if (projectDirBasename.empty()) return {};
    std::string cwd = "/" + std::string(projectDirBasename);
    std::ranges::replace(cwd, '-', '/');
    return cwd;
}

}  // namespace sonra
