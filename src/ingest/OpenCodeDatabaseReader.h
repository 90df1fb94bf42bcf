#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ingest/LookPauses.h"
#include "ingest/OpenCodeDatabase.h"
#include "ingest/OpenCodePartParser.h"
#include "ingest/ShapeReader.h"
#include "ingest/UnchangedDocuments.h"

namespace sonra {

/// Follows a session in the SQLite store of OpenCode. The transcript is named by the store's path,
/// "#" and the session's id.
///
/// A text is spoken once it is complete, which it says or its message does. The cursor is `unixMs`
/// in thousandths: the time of the newest text that was read, and in the last three digits how many
/// of that time were, so that another one of the same time isn't lost. A store that nobody has
/// written to since a look isn't looked into again, and one that was locked or where a look ran out
/// of its time is left alone for a while, so that the caller isn't held up all the time. Any thread
/// as far as the clock is, never throws.
class OpenCodeDatabaseReader : public ShapeReader {
  public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    explicit OpenCodeDatabaseReader(
        Clock clock = std::chrono::system_clock::now,
        std::chrono::milliseconds longestLook = OpenCodeDatabase::longestLook)
        : clock_(std::move(clock)), longestLook_(longestLook), unchanged_(clock_) {}

    std::string_view id() const override { return parser_.id(); }
    bool recognises(const std::string& url) const override;
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::unixMs; }
    bool countsThousandths() const override { return true; }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const OpenCodePartParser& parser() const override { return parser_; }
    /// The store.
    std::string watchPath(const std::string& url) const override;

  private:
    using Texts = std::vector<OpenCodeDatabase::Text>;
    using Question = std::function<std::optional<Texts>(OpenCodeDatabase& store)>;

    /// Absent if the store can't be read, or is left alone.
    std::optional<Texts> ask(const std::string& url, const std::string& path,
                             const Question& question) const;
    std::optional<Reading> look(const std::string& url, const std::string& path,
                                const std::string& session, TailOffset offset) const;

    const Clock clock_;
    const std::chrono::milliseconds longestLook_;
    /// For each transcript, the cursor behind all that its store had.
    mutable UnchangedDocuments unchanged_;
    mutable LookPauses pauses_;
    OpenCodePartParser parser_;
};

}  // namespace sonra
