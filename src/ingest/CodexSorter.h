#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/Json.h"
#include "ingest/LineReading.h"
#include "ingest/TranscriptRecord.h"

namespace sonra {

/// Sorts the lines of one read of a Codex transcript: each of them is a record as it is, but of an
/// event and a response item that report the same reply, only one comes out.
///
/// That is the response item, unless the event came out long before it, or was there when the read
/// began: then it is the event, so that nothing is heard twice. The two belong together if they
/// have the same words and stand in the same turn. The lines before the read tell which events wait
/// for their response item; nothing else is remembered from one read to the next. Where no event
/// is, no line is decoded. For one read on one thread; `take`n lines must outlive it. Never fails.
class CodexSorter {
  public:
    /// `before` is what stands right before the first line, as far back as it may matter.
    explicit CodexSorter(std::string before);
    CodexSorter(const CodexSorter&) = delete;
    CodexSorter& operator=(const CodexSorter&) = delete;

    void take(const LineReading::Line& line);
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

        bool isSameAs(const Reply& other) const;
    };
    struct Waiting {
        Json object;
        Reply reply;
        std::int64_t start;
        std::size_t place;  ///< number of records before it
    };

    static std::optional<Reply> responseIn(const Json& line);
    static std::optional<Reply> eventIn(const Json& line);

    void takeOld(std::string_view line);
    /// Absent where the line can't matter to its neighbours.
    std::optional<Json> decodedIfUseful(std::string_view line) const;
    /// True if the line is the response item that the waiting event waits for.
    bool endsWait(const Json& line);
    /// True if the line is the response item of an event that came out before it.
    bool isSaid(const Json& line);
    /// True if a response item stands right before the last line and says `event`.
    bool wasSaidBefore(const Reply& event) const;

    const std::string before_;
    std::vector<std::string_view> lines_;
    /// The events of this turn that came out and whose response items may still follow.
    std::vector<Reply> said_;
    std::optional<Waiting> waiting_;
    std::vector<TranscriptRecord> records_;
};

}  // namespace sonra
