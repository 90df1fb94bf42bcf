#include "control/CommandArguments.h"

#include <algorithm>

namespace sonra::CommandArguments {
namespace {

std::string textOf(const Json& message, std::string_view key) {
    return json::stringAt(message, key).value_or("");
}

}  // namespace

std::optional<AudioChunk> playedChunk(const Json& message) {
    const auto wav = json::stringAt(message, "wav");
    if (!wav) return std::nullopt;
    AudioChunk chunk;
    chunk.url = *wav;
    chunk.text = textOf(message, "text");
    chunk.title = json::stringAt(message, "title").value_or("Claude");
    chunk.artist = json::stringAt(message, "artist").value_or("TTS");
    chunk.albumLine = json::stringAt(message, "snippet").value_or(chunk.text);
    chunk.sessionId = textOf(message, "sessionId");
    chunk.messageId = textOf(message, "messageId");
    chunk.ephemeral = true;
    return chunk;
}

int scrubIndex(const Json& message) {
    constexpr double farthest = 1'000'000;
    return static_cast<int>(
        std::clamp(json::doubleAt(message, "index").value_or(0), -1.0, farthest));
}

AttachRequest attachRequest(const Json& message) {
    return {textOf(message, "id"),     textOf(message, "cwd"),    textOf(message, "transcript"),
            textOf(message, "source"), textOf(message, "branch"), textOf(message, "title")};
}

std::vector<std::string> openedUrls(const Json& message) {
    std::vector<std::string> opened;
    const auto urls = message.find("urls");
    if (urls == message.end() || !urls->is_array()) return opened;
    for (const auto& url : *urls)
        if (url.is_string()) opened.push_back(url.get<std::string>());
    return opened;
}

}  // namespace sonra::CommandArguments
