#include "history/AiderDocument.h"

#include <string_view>
#include <utility>

#include "frame/Text.h"
#include "ingest/AiderChat.h"
#include "ingest/AiderReader.h"
#include "ingest/FileTail.h"
#include "ingest/Utf8Trim.h"

namespace sonra {
namespace {

using Messages = std::deque<HistoryMessage>;

Messages repliesIn(std::string_view chat) {
    chat = chat.substr(0, trimToCompleteUtf8(chat));
    chat.remove_suffix(AiderChat::undecidedTail(chat));
    Messages messages;
    for (const auto& reply : AiderChat::read(chat, 0).replies)
        messages.push_front(AiderChat::messageOf(reply));
    return messages;
}

Messages responsesIn(std::string_view sections) {
    Messages messages;
    if (!text::isUtf8(sections)) return messages;
    std::string turn;
    AiderReader::eachSection(sections, [&](std::string_view section, std::string_view) {
        const auto part = text::trimmed(section);
        const auto head = text::trimmed(part.substr(0, part.find('\n')));
        if (AiderReader::isAiderTimestampHeader(head)) {
            turn = head;
            return;
        }
        std::string bytes(AiderParser::tsSentinel);
        bytes.append(turn).append("\n").append(part);
        if (auto message = AiderParser().parse(TranscriptRecord::jsonl(std::move(bytes))))
            messages.push_front(*std::move(message));
    });
    return messages;
}

}  // namespace

std::deque<HistoryMessage> aiderDocument(const std::string& transcript) {
    const auto whole = FileTail::read(transcript, 0);
    if (!whole) return {};
    const auto text = whole->bytes();
    const auto beginning = text.substr(0, AiderChat::beginningSize);
    return AiderChat::isWrittenSo(beginning) ? repliesIn(text) : responsesIn(text);
}

}  // namespace sonra
