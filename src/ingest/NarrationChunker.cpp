#include "ingest/NarrationChunker.h"

#include <algorithm>

#include "frame/Text.h"

namespace sonra::NarrationChunker {
namespace {

/// Where the last sentence ends among the first maxChunkChars characters, given where each of them
/// ends; 0 if none does.
std::size_t lastSentenceEnd(std::string_view piece, const std::vector<std::size_t>& ends) {
    for (std::size_t i = maxChunkChars; i-- > 0;) {
        const std::size_t start = i == 0 ? 0 : ends[i - 1];
        const auto character = piece.substr(start, ends[i] - start);
        if (std::ranges::find(sentenceEnders, character) != sentenceEnders.end()) return ends[i];
    }
    return 0;
}

/// A carriage return alone, as blank lines of some texts have it, is nothing to speak either.
void appendUnlessEmpty(std::string_view chunk, std::vector<std::string>& chunks) {
    if (!text::trimmed(chunk).empty()) chunks.emplace_back(chunk);
}

void splitLong(std::string_view piece, std::vector<std::string>& chunks) {
    while (!piece.empty()) {
        const auto ends = text::characterEnds(piece, maxChunkChars + 1);
        const std::size_t cut = ends.size() <= maxChunkChars ? 0 : lastSentenceEnd(piece, ends);
        if (cut == 0) break;
        appendUnlessEmpty(text::trimmedHorizontally(piece.substr(0, cut)), chunks);
        piece = text::trimmedHorizontally(piece.substr(cut));
    }
    appendUnlessEmpty(piece, chunks);
}

}  // namespace

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> chunks;
    if (text::trimmed(text).empty()) return chunks;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        splitLong(text::trimmedHorizontally(text.substr(0, end)), chunks);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return chunks;
}

}  // namespace sonra::NarrationChunker
