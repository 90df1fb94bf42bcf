#pragma once

#include "ingest/LineReading.h"
#include "ingest/LiveTailReader.h"

namespace sonra {

/// Follows a transcript that has one record on each line of a file which only grows.
///
/// The cursor is `byte`. A line is returned once its line feed is there; until then the cursor
/// stays at its start and every read looks at it anew. Lines aren't decoded here. Immutable, any
/// thread, never throws.
template <typename Parser>
class LineTailReader : public LiveTailReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    TailOffset initialOffset(const std::string& url) const override {
        return LineReading::endOf(url);
    }
    Reading readSince(const std::string& url, TailOffset offset) const override {
        return LineReading::since(url, offset);
    }
    const Parser& parser() const override { return parser_; }

  private:
    Parser parser_;
};

}  // namespace sonra
