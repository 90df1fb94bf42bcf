#include "ingest/TextCleaner.h"

#include "frame/Text.h"
#include "ingest/CleaningRules.h"

namespace sonra::TextCleaner {
namespace {

std::string replaceAll(std::string text, CleaningRules::Find find) {
    auto match = find(text, 0);
    if (!match) return text;
    std::string result;
    result.reserve(text.size());
    std::size_t done = 0;
    for (; match; match = find(text, done)) {
        result.append(text, done, match->begin - done).append(match->replacement);
        done = match->end;
    }
    return result.append(text, done);
}

}  // namespace

std::string cleanForSpeech(std::string_view text) {
    std::string cleaned(text);
    for (const auto rule : CleaningRules::inOrder) cleaned = replaceAll(std::move(cleaned), rule);
    return std::string(text::trimmed(cleaned));
}

}  // namespace sonra::TextCleaner
