#include "history/ClaudeCodeIds.h"

#include <simdjson.h>

#include "frame/Json.h"
#include "frame/Text.h"

namespace sonra {
namespace {

using simdjson::dom::array;
using simdjson::dom::element;
using simdjson::dom::object;

std::optional<std::string_view> textIn(const std::optional<element>& value) {
    std::string_view text;
    if (!value || value->get(text) != simdjson::SUCCESS) return std::nullopt;
    return text;
}

/// The members of a line that matter; of duplicate keys the last wins.
struct Line {
    std::optional<element> type, isSidechain, message, uuid;

    explicit Line(const object& line) {
        for (const auto [key, value] : line) {
            if (key == "type") type = value;
            if (key == "isSidechain") isSidechain = value;
            if (key == "message") message = value;
            if (key == "uuid") uuid = value;
        }
    }

    [[nodiscard]] bool isOwnReply() const {
        bool sidechain = false;
        if (isSidechain && isSidechain->get(sidechain) != simdjson::SUCCESS) sidechain = false;
        return textIn(type) == "assistant" && !sidechain;
    }
};

struct Message {
    std::optional<element> content, id;

    explicit Message(const object& message) {
        for (const auto [key, value] : message) {
            if (key == "content") content = value;
            if (key == "id") id = value;
        }
    }
};

bool holdsText(const object& part) {
    std::optional<element> type, text;
    for (const auto [key, value] : part) {
        if (key == "type") type = value;
        if (key == "text") text = value;
    }
    const auto words = textIn(text);
    return textIn(type) == "text" && words && !text::trimmed(*words).empty();
}

/// True if all parts of the content are objects and one of them holds text that isn't blank.
bool isSpeakable(const std::optional<element>& content) {
    array parts;
    if (!content || content->get(parts) != simdjson::SUCCESS) return false;
    bool found = false;
    for (const element part : parts) {
        object members;
        if (part.get(members) != simdjson::SUCCESS) return false;
        found = found || holdsText(members);
    }
    return found;
}

std::optional<std::string> idOfDocument(const element& document) {
    object members;
    if (document.get(members) != simdjson::SUCCESS) return std::nullopt;
    const Line line(members);
    object messageMembers;
    if (!line.isOwnReply() || !line.message ||
        line.message->get(messageMembers) != simdjson::SUCCESS)
        return std::nullopt;
    const Message message(messageMembers);
    if (!isSpeakable(message.content)) return std::nullopt;
    if (const auto uuid = textIn(line.uuid)) return std::string(*uuid);
    return std::string(textIn(message.id).value_or(""));
}

}  // namespace

struct ClaudeCodeIds::FastParser {
    simdjson::dom::parser parser{longestFastLine};
};

/// Nests as deep as documents may. Without the memory for that, every line goes the exact way.
ClaudeCodeIds::ClaudeCodeIds() : fast_(std::make_unique<FastParser>()) {
    if (fast_->parser.allocate(longestFastLine, json::maxDepth) != simdjson::SUCCESS)
        fast_->parser.set_max_capacity(0);
}

ClaudeCodeIds::~ClaudeCodeIds() = default;

std::optional<std::string> ClaudeCodeIds::idOf(std::string_view line) {
    element document;
    if (fast_->parser.parse(line.data(), line.size()).get(document) == simdjson::SUCCESS)
        return idOfDocument(document);
    const auto message = exact_.parse(TranscriptRecord::jsonl(std::string(line)));
    if (!message) return std::nullopt;
    return message->messageId;
}

}  // namespace sonra
