#include "ingest/OpenCodeDatabase.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <string_view>
#include <tuple>
#include <utility>

#include "ingest/FileTail.h"
#include "ingest/OpenCodePart.h"

namespace sonra {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int busyMs = 20;
constexpr int stepsBetweenLooksAtTheClock = 2000;
/// A session writes one message after the other; so many that were complete before tell that all
/// earlier ones were.
constexpr int enoughOldMessages = 16;
/// Of these the first are looked into nevertheless, should a message and its parts tell the time
/// differently.
constexpr int oldMessagesLookedInto = 4;
/// Their parts are asked for together: in a store that has no index of them, every question is a
/// walk through the parts of all sessions.
constexpr std::size_t messagesAtOnce = 16;

constexpr std::string_view magic{"SQLite format 3\0", 16};
constexpr std::size_t headerSize = 100;
constexpr std::size_t readVersionAt = 19;
constexpr char versionWithLog = 2;

/// Rows are ordered without their data, which is long, and which an index on more than the session
/// would have sorted along. Every index has the row's number.
constexpr const char* messagesQuery =
    "SELECT rowid FROM message WHERE session_id = ?1 ORDER BY rowid DESC";
constexpr const char* messageQuery = "SELECT id, data FROM message WHERE rowid = ?1";
constexpr const char* partsQuery =
    "SELECT rowid, message_id FROM part WHERE message_id IN"
    " (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16) ORDER BY rowid";
/// Who may read this may read all the rest: the transaction keeps its lock.
constexpr const char* anythingQuery = "SELECT 1 FROM sqlite_master LIMIT 1";
constexpr const char* partQuery = "SELECT id, data FROM part WHERE rowid = ?1";

bool isUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' ||
           c == '.' || c == '-' || c == '_';
}

/// The file as a URI, whatever bytes its name has.
std::string uriOf(const std::string& path, std::string_view parameters) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char c : path) {
        if (isUnreserved(c)) {
            uri += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        uri += {'%', digits[byte >> 4U], digits[byte & 15U]};
    }
    return uri.append("?").append(parameters);
}

/// A query; after the first error it has no more rows.
class Statement {
  public:
    Statement(sqlite3* handle, const char* sql) {
        isGood_ = sqlite3_prepare_v2(handle, sql, -1, &statement_, nullptr) == SQLITE_OK;
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// Starts over. What no text is given for is as nothing.
    void start() {
        if (!isGood_) return;
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    /// `text` must outlive the rows.
    void bind(int number, const std::string& text) {
        isGood_ = isGood_ && sqlite3_bind_text64(statement_, number, text.data(), text.size(),
                                                 SQLITE_STATIC, SQLITE_UTF8) == SQLITE_OK;
    }
    /// Moves to the one row with this number.
    bool find(std::int64_t row) {
        if (!isGood_) return false;
        sqlite3_reset(statement_);
        isGood_ = sqlite3_bind_int64(statement_, 1, row) == SQLITE_OK;
        return next();
    }
    bool next() {
        if (!isGood_) return false;
        const int result = sqlite3_step(statement_);
        isGood_ = result == SQLITE_ROW || result == SQLITE_DONE;
        return result == SQLITE_ROW;
    }
    bool isGood() const { return isGood_; }

    std::int64_t number(int column) const { return sqlite3_column_int64(statement_, column); }
    /// Valid until the next row.
    std::string_view text(int column) const {
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
        if (bytes == nullptr) return {};
        return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
    }

  private:
    sqlite3_stmt* statement_ = nullptr;
    bool isGood_ = false;
};

/// What of a session is wanted, and what was found.
struct Search {
    std::int64_t sinceMs;
    bool onlyNewest;
    std::vector<OpenCodeDatabase::Text> found;

    void add(OpenCodeDatabase::Text text) {
        if (text.endedMs < sinceMs) return;
        if (onlyNewest) sinceMs = text.endedMs;
        found.push_back(std::move(text));
    }
    void finish() {
        std::erase_if(found, [&](const auto& text) { return text.endedMs < sinceMs; });
        std::ranges::sort(found, {}, [](const auto& t) { return std::tie(t.endedMs, t.row); });
    }
};

/// The words in a part's data.
std::optional<Json> wordyPart(std::string_view data) {
    // What tools have printed is long and needn't be decoded.
    if (data.find("\"text\"") == std::string_view::npos) return std::nullopt;
    auto part = json::parseObject(data);
    if (part && !OpenCodePart::words(*part)) return std::nullopt;
    return part;
}

std::optional<Json> replyIn(std::string_view data) {
    // What the user has pasted is long, too.
    if (data.find("\"assistant\"") == std::string_view::npos) return std::nullopt;
    auto message = json::parseObject(data);
    if (message && !OpenCodePart::isReply(*message)) return std::nullopt;
    return message;
}

/// Looks for what is wanted in one moment of a store.
class Look {
  public:
    Look(sqlite3* handle, Search& search)
        : messages_(handle, messagesQuery),
          message_(handle, messageQuery),
          parts_(handle, partsQuery),
          part_(handle, partQuery),
          search_(search) {}

    /// False if the store couldn't be read to the end.
    bool searchSession(const std::string& session) {
        int oldOnes = 0;
        std::vector<Message> found;
        messages_.start();
        messages_.bind(1, session);
        while (oldOnes < enoughOldMessages && isGood() && messages_.next()) {
            if (!message_.find(messages_.number(0))) continue;
            const auto message = replyIn(message_.text(1));
            if (!message) continue;
            const auto completed = OpenCodePart::completedAt(*message);
            oldOnes = completed && *completed < search_.sinceMs ? oldOnes + 1 : 0;
            if (oldOnes > oldMessagesLookedInto) continue;
            found.push_back({std::string(message_.text(0)), completed});
            if (found.size() == messagesAtOnce) searchParts(std::exchange(found, {}));
        }
        searchParts(std::move(found));
        return isGood();
    }

  private:
    struct Message {
        std::string id;
        std::optional<std::int64_t> completed;
        bool hasWords = false;
    };

    void searchParts(std::vector<Message> messages) {
        if (messages.empty()) return;
        parts_.start();
        for (std::size_t i = 0; i < messages.size(); ++i)
            parts_.bind(static_cast<int>(i) + 1, messages[i].id);
        while (parts_.next()) {
            if (!part_.find(parts_.number(0))) continue;
            const auto part = wordyPart(part_.text(1));
            const auto message = std::ranges::find(messages, parts_.text(1), &Message::id);
            if (part && message != messages.end()) addPart(*part, *message);
        }
    }
    /// The part that both statements stand at.
    void addPart(const Json& part, Message& message) {
        auto id = message.hasWords ? std::string(part_.text(0)) : message.id;
        message.hasWords = true;
        auto ended = OpenCodePart::endedAt(part);
        if (!ended) ended = message.completed;
        if (ended)
            search_.add({*ended, parts_.number(0), std::move(id), *OpenCodePart::words(part)});
    }
    bool isGood() const {
        return messages_.isGood() && message_.isGood() && parts_.isGood() && part_.isGood();
    }

    Statement messages_;
    Statement message_;
    Statement parts_;
    Statement part_;
    Search& search_;
};

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

int isPastDeadline(void* deadline) {
    return Clock::now() > *static_cast<const Clock::time_point*>(deadline) ? 1 : 0;
}

}  // namespace

struct OpenCodeDatabase::Unlogged {
    std::int64_t size;
    timespec modified;

    /// Absent if a log is there, or the file isn't.
    static std::optional<Unlogged> of(const std::string& path) {
        struct stat status {};
        if (FileTail::sizeOf(path + "-wal") > 0 || ::stat(path.c_str(), &status) != 0)
            return std::nullopt;
        return Unlogged{status.st_size, status.st_mtim};
    }
    bool operator==(const Unlogged& other) const {
        return size == other.size && modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

void OpenCodeDatabase::Close::operator()(sqlite3* handle) const {
    sqlite3_close_v2(handle);
}

OpenCodeDatabase::OpenCodeDatabase(Handle handle, std::string path,
                                   std::shared_ptr<const Unlogged> unlogged,
                                   std::chrono::milliseconds look)
    : handle_(std::move(handle)),
      path_(std::move(path)),
      unlogged_(std::move(unlogged)),
      longestLook_(look) {}

std::optional<OpenCodeDatabase> OpenCodeDatabase::open(const std::string& path,
                                                       std::chrono::milliseconds look) {
    std::shared_ptr<const Unlogged> unlogged;
    // To a reader a log that isn't there is one to create. Without it there is nothing but the file
    // to read, which changes only with a log.
    const bool mayLackLog =
        !exists(path + "-wal") || (FileTail::sizeOf(path + "-wal") == 0 && !exists(path + "-shm"));
    if (mayLackLog) {
        const auto header = FileTail::read(path, 0, headerSize);
        if (!header || !header->bytes().starts_with(magic)) return std::nullopt;
        if (header->bytes().size() == headerSize &&
            header->bytes()[readVersionAt] == versionWithLog) {
            const auto state = Unlogged::of(path);
            if (!state) return std::nullopt;
            unlogged = std::make_shared<Unlogged>(*state);
        }
    }
    sqlite3* raw = nullptr;
    const auto uri = uriOf(path, unlogged ? "mode=ro&immutable=1" : "mode=ro");
    const int result = sqlite3_open_v2(
        uri.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX, nullptr);
    Handle handle(raw);
    if (result != SQLITE_OK) return std::nullopt;
    sqlite3_busy_timeout(raw, busyMs);
    sqlite3_db_config(raw, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    return OpenCodeDatabase(std::move(handle), path, std::move(unlogged), look);
}

std::optional<std::vector<OpenCodeDatabase::Text>> OpenCodeDatabase::textsSince(
    const std::string& session, std::int64_t sinceMs) {
    return look(session, sinceMs, false);
}

std::optional<std::vector<OpenCodeDatabase::Text>> OpenCodeDatabase::newestTexts(
    const std::string& session) {
    return look(session, INT64_MIN, true);
}

std::optional<std::vector<OpenCodeDatabase::Text>> OpenCodeDatabase::look(
    const std::string& session, std::int64_t sinceMs, bool onlyNewest) {
    const auto start = Clock::now();
    auto deadline = start + longestLook_;
    sqlite3_progress_handler(handle_.get(), stepsBetweenLooksAtTheClock, isPastDeadline, &deadline);
    Search search{sinceMs, onlyNewest, {}};
    // Messages and parts of one moment. Each query would wait for the lock anew.
    sqlite3_exec(handle_.get(), "BEGIN", nullptr, nullptr, nullptr);
    const int entered = sqlite3_exec(handle_.get(), anythingQuery, nullptr, nullptr, nullptr);
    const bool isWhole = entered == SQLITE_OK &&
                         Look(handle_.get(), search).searchSession(session) && isStillUnlogged();
    sqlite3_exec(handle_.get(), "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_progress_handler(handle_.get(), 0, nullptr, nullptr);
    ranOutAfter_.reset();
    const auto now = Clock::now();
    if (!isWhole && (entered == SQLITE_BUSY || now > deadline))
        ranOutAfter_ = std::chrono::ceil<std::chrono::milliseconds>(now - start);
    if (!isWhole) return std::nullopt;
    search.finish();
    return std::move(search.found);
}

/// Without a log the look isn't guarded by locks, so that what changed meanwhile isn't trusted.
bool OpenCodeDatabase::isStillUnlogged() const {
    return !unlogged_ || Unlogged::of(path_) == *unlogged_;
}

}  // namespace sonra
