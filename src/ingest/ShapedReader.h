#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ingest/ShapeReader.h"

namespace sonra {

/// Follows the transcripts of an agent that has changed the way in which it writes them.
///
/// The first of the `others` that recognises a transcript reads it, else the `original` does, as if
/// it were alone. Which one it is gets decided at every read: a transcript may come late, and a
/// session may move to another. Nothing is looked at while the cursor stands at the file's end. A
/// cursor of another kind than the chosen reader's means its beginning if it is 0, else its end:
/// nothing old is spoken. A time is converted to what the reader counts in. Immutable, any thread.
class ShapedReader : public LiveTailReader {
  public:
    ShapedReader(std::unique_ptr<const LiveTailReader> original,
                 std::vector<std::unique_ptr<const ShapeReader>> others);

    std::string_view id() const override { return original_->id(); }
    TailOffset initialOffset(const std::string& url) const override;
    TailOffset::Kind cursorKindOf(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    /// Asks the parsers of all shapes, the original one first.
    const HarnessParser& parser() const override { return parser_; }
    std::string watchPath(const std::string& url) const override;

  private:
    class AnyParser final : public HarnessParser {
      public:
        explicit AnyParser(const ShapedReader& owner) : owner_(owner) {}
        std::string_view id() const override { return owner_.id(); }
        std::optional<HistoryMessage> parse(const TranscriptRecord& record) const override;

      private:
        const ShapedReader& owner_;
    };

    /// Null if the transcript is the original reader's.
    const ShapeReader* shapeOf(const std::string& url) const;

    const std::unique_ptr<const LiveTailReader> original_;
    const std::vector<std::unique_ptr<const ShapeReader>> others_;
    const AnyParser parser_{*this};
};

}  // namespace sonra
