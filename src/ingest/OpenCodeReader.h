#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ingest/LiveTailReader.h"
#include "ingest/OpenCodeParser.h"

namespace sonra {

/// Follows a session of OpenCode: a directory with a JSON file for each message.
///
/// The cursor is `unixMs`: the newest time of modification that was seen. A file of the same time
/// counts as seen, and one that arrives with an older time is never read. Immutable, any thread,
/// never throws.
class OpenCodeReader : public LiveTailReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    TailOffset initialOffset(const std::string& url) const override;
    TailOffset::Kind cursorKindOf(const std::string& /*url*/) const override {
        return TailOffset::Kind::unixMs;
    }
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const OpenCodeParser& parser() const override { return parser_; }

    struct MessageFile {
        std::string path;
        std::int64_t modifiedMs;  ///< since 1970
    };
    /// The files in `dir` whose names end in ".json", in the order in which the directory lists
    /// them; absent if it can't be listed.
    static std::optional<std::vector<MessageFile>> messageFiles(const std::string& dir);

  private:
    OpenCodeParser parser_;
};

}  // namespace sonra
