#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/Json.h"
#include "ingest/HistoryMessage.h"
#include "ingest/LineReading.h"
#include "ingest/TranscriptRecord.h"

namespace sonra {

/// Sorts lines of a Codex transcript: each of them is a record as it is, but of an event and a
/// response item that report the same reply, only one comes out.
///
/// That is the one that comes first, unless the response item follows its event at once: then it is
/// the response item. So nothing is heard twice, nor is an event held back for long. The two belong
/// together if they have the same words and stand in the same turn. The lines before the first one
/// tell what of this turn came out already, by the same rules; nothing else is remembered from one
/// read to the next. Where no event is, no line is decoded. For one read on one thread; `take`n
/// lines must outlive it. Never fails.
class CodexSorter {
  public:
    /// `before` is what stands right before the first line, as far back as it may matter.
    explicit CodexSorter(std::string before);
    CodexSorter(const CodexSorter&) = delete;
    CodexSorter& operator=(const CodexSorter&) = delete;

    void take(const LineReading::Line& line) { take(line.text, line.start); }
    void take(std::string_view line, std::int64_t start);
    /// No line will end the wait for a response item.
    void finish();
    /// Where the event starts that waits for the line after it.
    std::optional<std::int64_t> waitingAt() const;
    /// Without those behind an event that waits, which will be read again.
    std::vector<TranscriptRecord> takeRecords();

  private:
    /// What is compared of a message.
    struct Reply {
        std::string text;
        std::string turn;  ///< empty if the line doesn't say
        Timestamp time;

        static Reply of(HistoryMessage message, const Json& line);
        bool isSameAs(const Reply& other) const;
    };
    using Replies = std::vector<Reply>;
    struct Waiting {
        Json object;
        Reply reply;
        std::int64_t start;
        std::size_t place;  ///< number of records before it
    };

    /// Learns of the response items before the first event, to which they didn't matter till then.
    void learnOfResponses();
    /// False if the line is no record, or not yet.
    bool sort(Json line, std::int64_t start);
    bool sortResponse(const Reply& response);
    bool sortEvent(Json line, Reply event, std::int64_t start);
    /// Takes out the first that is the same as `reply`; false if none is.
    static bool takeSame(Replies& replies, const Reply& reply);

    const std::string before_;
    bool hasEvents_ = false;
    std::vector<std::string_view> beforeEvents_;
    /// Of this turn, what came out alone: events whose response items may still follow, and
    /// response items whose events may.
    Replies events_;
    Replies responses_;
    std::optional<Waiting> waiting_;
    std::vector<TranscriptRecord> records_;
};

}  // namespace sonra
