#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ingest/HarnessParser.h"
#include "ingest/TailOffset.h"
#include "ingest/TranscriptRecord.h"

namespace sonra {

/// Reads a transcript forward from a cursor.
///
/// Whoever follows a transcript holds the cursor; readers remember at most what spares them a look
/// that would find nothing. Any thread; a read blocks for as long as the file's bytes take, never
/// for a writer. They never throw: every failure is an empty `records` and the cursor unchanged.
class LiveTailReader {
  public:
    struct Reading {
        std::vector<TranscriptRecord> records;  ///< oldest first
        TailOffset newOffset;                   ///< where the next read starts
    };

    virtual ~LiveTailReader() = default;

    /// The source id, equal to its parser's.
    virtual std::string_view id() const = 0;
    /// The cursor which means that everything now in the transcript at the path `url` has been
    /// seen.
    virtual TailOffset initialOffset(const std::string& url) const = 0;
    /// The kind of that cursor. Told by the name, so that nothing is read.
    virtual TailOffset::Kind cursorKindOf(const std::string& /*url*/) const {
        return TailOffset::Kind::byte;
    }
    /// Everything complete in the transcript behind `offset`.
    virtual Reading readSince(const std::string& url, TailOffset offset) const = 0;
    /// The parser for the records that this reader produces.
    virtual const HarnessParser& parser() const = 0;
    /// The file or directory to look at for changes of the transcript `url`, and which exists if
    /// the transcript may: for most agents the transcript itself. Told by the name; asked at every
    /// step.
    virtual std::string watchPath(const std::string& url) const { return url; }
};

}  // namespace sonra
