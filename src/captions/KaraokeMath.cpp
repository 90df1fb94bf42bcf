#include "captions/KaraokeMath.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>

#include "frame/Text.h"

namespace sonra::KaraokeMath {
namespace {

/// The first code point decides: a mark that follows a blank has nothing else to stand on.
bool isBlank(std::string_view character) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(character.data());
    int32_t next = 0;
    UChar32 c = 0;
    U8_NEXT(bytes, next, static_cast<int32_t>(character.size()), c);
    return c >= 0 && u_isUWhiteSpace(c);
}

KaraokeWord wordAt(std::string_view text, TextRange range, std::size_t id) {
    return {static_cast<int>(id), std::string(text.substr(range.begin, range.end - range.begin)),
            range};
}

}  // namespace

std::vector<KaraokeWord> tokenize(std::string_view text) {
    std::vector<KaraokeWord> words;
    TextRange run;
    const auto endRun = [&](std::size_t next) {
        if (run.end > run.begin) words.push_back(wordAt(text, run, words.size()));
        run = {next, next};
    };
    std::size_t begin = 0;
    for (const std::size_t end : text::characterEnds(text, text.size())) {
        if (isBlank(text.substr(begin, end - begin)))
            endRun(end);
        else
            run.end = end;
        begin = end;
    }
    endRun(begin);
    return words;
}

int wordIndex(double progress, std::size_t wordCount) {
    // Written so that a progress that is no number counts as 0.
    const double held = progress > 0 ? std::min(progress, 1.0) : 0.0;
    const double count = static_cast<double>(wordCount);
    return static_cast<int>(std::min(std::floor(held * (count + 1)) - 1, count - 1));
}

WordRole role(const KaraokeWord& word, const std::optional<TextRange>& activeRange,
              std::optional<std::size_t> pastEndIndex) {
    const bool isRange = activeRange && activeRange->begin < activeRange->end;
    if (isRange && word.range.begin < activeRange->end && word.range.end > activeRange->begin)
        return WordRole::active;
    return pastEndIndex && word.range.end <= *pastEndIndex ? WordRole::past : WordRole::future;
}

double scrollOffset(double activeTop, double visibleHeight, double contentHeight, double bias) {
    if (!(visibleHeight > 0) || !(visibleHeight < contentHeight)) return 0;
    return std::clamp(activeTop - visibleHeight * bias, 0.0, contentHeight - visibleHeight);
}

}  // namespace sonra::KaraokeMath
