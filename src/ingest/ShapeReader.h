#pragma once

#include <string>

#include "ingest/LiveTailReader.h"

namespace sonra {

/// Reads one of several shapes in which an agent writes its transcripts, and knows that shape when
/// it sees it.
///
/// Records that only its own parser may understand are `jsonObject`s which the agent's other
/// parsers don't take. For the rest as LiveTailReader.
class ShapeReader : public LiveTailReader {
  public:
    /// True if the transcript `url` has this shape, as far as it is written. Asked again at every
    /// read, so it must cost no more than a look at the file's beginning.
    virtual bool recognises(const std::string& url) const = 0;
    /// The only kind of cursor that `readSince` is given, and that it returns.
    virtual TailOffset::Kind cursorKind() const = 0;
    /// True if that is a time which counts thousandths of milliseconds.
    virtual bool countsThousandths() const { return false; }
    TailOffset::Kind cursorKindOf(const std::string& /*url*/) const final { return cursorKind(); }
};

}  // namespace sonra
