#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace sonra {

/// The SQLite store of OpenCode, open for one look.
///
/// Read-only, and written to by the agent meanwhile: what it has committed is seen, in its
/// write-ahead log too. Nothing is created beside the file; the one exception is the index of a log
/// that was left behind without one, which SQLite has to build before it can read the log. Waits a
/// few milliseconds for a lock, once in a look, which ends after a quarter of a second, by which a
/// big store without indexes may not have been walked through. Used by one thread,
/// never throws: a file that isn't a database, is locked, damaged or of another schema gives
/// nothing.
class OpenCodeDatabase {
  public:
    static constexpr std::chrono::milliseconds longestLook{250};

    /// Absent if it can't be opened.
    static std::optional<OpenCodeDatabase> open(const std::string& path,
                                                std::chrono::milliseconds look = longestLook);

    /// A complete text of the assistant's.
    struct Text {
        std::int64_t endedMs;  ///< when it was complete, since 1970
        std::int64_t row;      ///< where it stands in the order in which parts were begun
        std::string messageId;
        std::string text;
    };
    /// The texts of a session that were complete at `sinceMs` or later, oldest first. Absent if the
    /// store can't be read.
    std::optional<std::vector<Text>> textsSince(const std::string& session, std::int64_t sinceMs);
    /// Those of the newest time; a look at the session's end only.
    std::optional<std::vector<Text>> newestTexts(const std::string& session);
    /// How long the last look took if it was ended before it found everything, or found the store
    /// locked.
    std::optional<std::chrono::milliseconds> ranOutAfter() const { return ranOutAfter_; }

  private:
    struct Close {
        void operator()(sqlite3* handle) const;
    };
    using Handle = std::unique_ptr<sqlite3, Close>;
    /// What told that no log was in use, to be compared after the look.
    struct Unlogged;

    OpenCodeDatabase(Handle handle, std::string path, std::shared_ptr<const Unlogged> unlogged,
                     std::chrono::milliseconds look);
    bool isStillUnlogged() const;
    std::optional<std::vector<Text>> look(const std::string& session, std::int64_t sinceMs,
                                          bool onlyNewest);

    Handle handle_;
    std::string path_;
    std::shared_ptr<const Unlogged> unlogged_;  ///< null if SQLite itself guards the look
    std::chrono::milliseconds longestLook_;
    std::optional<std::chrono::milliseconds> ranOutAfter_;
};

}  // namespace sonra
