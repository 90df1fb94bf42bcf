#include "control/PreviousMessage.h"

#include "frame/Text.h"
#include "history/SessionHistory.h"
#include "ingest/TextCleaner.h"

namespace sonra {
namespace {

constexpr std::size_t tailBytes = 65536;
/// Characters; a stub such as "OK." isn't worth repeating.
constexpr std::size_t shortest = 10;

}  // namespace

std::optional<HistoryMessage> previousMessageToSeed(const std::string& transcript,
                                                    const std::string& source) {
    const auto known = historySource(source);
    if (!known) return std::nullopt;
    SessionHistory history(transcript, *known, tailBytes);
    auto last = history.loadOlder(1);
    // What isn't whole yet is heard when it is; its first words would keep the others from that.
    if (!last.empty() && history.mayNewestChange()) last = history.loadOlder(1);
    if (last.empty()) return std::nullopt;
    const auto spoken = TextCleaner::cleanForSpeech(last.front().text);
    if (text::characterCountUpTo(spoken, shortest) < shortest) return std::nullopt;
    return last.front();
}

}  // namespace sonra
