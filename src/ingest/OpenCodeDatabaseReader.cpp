#include "ingest/OpenCodeDatabaseReader.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace sonra {
namespace {

using Texts = std::vector<OpenCodeDatabase::Text>;

constexpr std::int64_t textsPerMs = 1000;
constexpr std::int64_t latestMs = INT64_MAX / textsPerMs - 1;

struct Name {
    std::string store;
    std::string session;
};

/// Absent if `url` doesn't name a session in a file.
std::optional<Name> nameOf(const std::string& url) {
    const auto mark = url.rfind('#');
    if (mark == std::string::npos || mark + 1 == url.size()) return std::nullopt;
    Name name{url.substr(0, mark), url.substr(mark + 1)};
    struct stat status {};
    const bool isFile = ::stat(name.store.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? std::optional(std::move(name)) : std::nullopt;
}

std::int64_t clampedMs(std::int64_t ms) {
    return std::clamp<std::int64_t>(ms, 0, latestMs);
}

TailOffset cursorAt(std::int64_t ms, std::int64_t count) {
    return TailOffset::unixMs(clampedMs(ms) * textsPerMs + std::min(count, textsPerMs - 1));
}

/// The cursor behind all of `texts`, which has some.
TailOffset cursorBehind(const Texts& texts) {
    const auto last = clampedMs(texts.back().endedMs);
    return cursorAt(last, std::ranges::count(texts, last, [](const auto& text) {
                        return clampedMs(text.endedMs);
                    }));
}

}  // namespace

bool OpenCodeDatabaseReader::recognises(const std::string& url) const {
    return nameOf(url).has_value();
}

std::string OpenCodeDatabaseReader::watchPath(const std::string& url) const {
    const auto name = nameOf(url);
    return name ? name->store : url;
}

TailOffset OpenCodeDatabaseReader::initialOffset(const std::string& url) const {
    const auto name = nameOf(url);
    if (!name) return TailOffset::unixMs(0);
    const auto texts =
        ask(url, name->store, [&](auto& store) { return store.newestTexts(name->session); });
    // What can't be read now is old all the same.
    if (!texts) {
        const auto now = std::chrono::floor<std::chrono::milliseconds>(clock_());
        return cursorAt(now.time_since_epoch().count(), 0);
    }
    return texts->empty() ? TailOffset::unixMs(0) : cursorBehind(*texts);
}

LiveTailReader::Reading OpenCodeDatabaseReader::readSince(const std::string& url,
                                                          TailOffset offset) const {
    const auto name = nameOf(url);
    if (!name || offset.intValue() < 0 || offset.intValue() / textsPerMs > latestMs)
        return {{}, offset};
    // Taken first: what is written during the look makes another version.
    const auto version = UnchangedDocuments::versionOf(name->store, name->store + "-wal");
    const auto known = version ? unchanged_.count(url, *version) : std::nullopt;
    if (known && *known <= offset.intValue()) return {{}, offset};
    auto reading = look(url, name->store, name->session, offset);
    if (!reading) return {{}, offset};
    if (version) unchanged_.remember(url, *version, reading->newOffset.intValue());
    return *std::move(reading);
}

std::optional<OpenCodeDatabaseReader::Texts> OpenCodeDatabaseReader::ask(
    const std::string& url, const std::string& path, const Question& question) const {
    if (pauses_.isPaused(url, clock_())) return std::nullopt;
    auto store = OpenCodeDatabase::open(path, longestLook_);
    auto texts = store ? question(*store) : std::nullopt;
    if (const auto took = store ? store->ranOutAfter() : std::nullopt)
        pauses_.lookRanOut(url, clock_(), *took);
    else
        pauses_.lookSucceeded(url);
    return texts;
}

std::optional<LiveTailReader::Reading> OpenCodeDatabaseReader::look(const std::string& url,
                                                                    const std::string& path,
                                                                    const std::string& session,
                                                                    TailOffset offset) const {
    const auto sinceMs = offset.intValue() / textsPerMs;
    // Times before 1970 count as 1970.
    const auto texts = ask(url, path, [&](auto& store) {
        return store.textsSince(session, sinceMs == 0 ? INT64_MIN : sinceMs);
    });
    if (!texts) return std::nullopt;
    auto seen = offset.intValue() % textsPerMs;
    std::vector<TranscriptRecord> records;
    for (const auto& text : *texts) {
        if (clampedMs(text.endedMs) == sinceMs && seen-- > 0) continue;
        records.push_back(OpenCodePartParser::recordOf(text.messageId, text.text));
    }
    if (records.empty()) return Reading{{}, offset};
    return Reading{std::move(records), cursorBehind(*texts)};
}

}  // namespace sonra
