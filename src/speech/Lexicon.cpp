#include "speech/Lexicon.h"

#include <sys/stat.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <utility>

#include "frame/AtomicFile.h"
#include "frame/Json.h"
#include "frame/Mutex.h"
#include "frame/StateLock.h"
#include "frame/Text.h"

namespace sonra {
namespace {

icu::UnicodeString toUtf16(std::string_view utf8) {
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
}

/// `literal` as a pattern that matches just that.
std::string escaped(std::string_view literal) {
    static constexpr std::string_view metacharacters = R"(\*?+[](){}^$|./)";
    std::string pattern;
    for (const char c : literal) {
        if (metacharacters.find(c) != std::string_view::npos) pattern += '\\';
        pattern += c;
    }
    return pattern;
}

/// Longer matches first: of the alternatives of a pattern the first that fits is taken.
Lexicon::Entries longestFirst(Lexicon::Entries entries) {
    std::ranges::stable_sort(entries, std::ranges::greater{}, [](const Lexicon::Entry& entry) {
        return text::utf16Length(entry.match);
    });
    return entries;
}

std::optional<Lexicon::Entry> entryFrom(const Json& element) {
    auto match = json::stringAt(element, "match");
    auto say = json::stringAt(element, "say");
    if (!match || !say || Lexicon::validateEntry(*match, *say)) return std::nullopt;
    return Lexicon::Entry{std::move(*match), std::move(*say)};
}

std::string serialised(const Lexicon::Entries& entries) {
    Json list = Json::array();
    for (const auto& entry : entries) list.push_back({{"match", entry.match}, {"say", entry.say}});
    return json::dumpPretty({{"version", 1}, {"lexicon", std::move(list)}}) + "\n";
}

bool makeDirectory(const std::string& dir) {
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    return std::filesystem::is_directory(dir, error);
}

/// For a caller that holds the profile's lock. False if the profile isn't what it should be.
bool replaceProfile(const std::string& dir, const Lexicon::Entries& sanitised) {
    const std::string path = Lexicon::profilePath(dir);
    const std::string content = serialised(sanitised);
    return AtomicFile::read(path) == content ||
           AtomicFile::writeThrough(path + ".tmp." + std::to_string(::getpid()), path, content);
}

/// Identity of a profile's content: whoever writes one makes a new file.
struct Stamp {
    double mtime = -1;  ///< seconds since 1970, -1 without a file
    std::int64_t size = -1;
    ino_t inode = 0;

    bool operator==(const Stamp&) const = default;
};

Stamp stampOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return {static_cast<double>(status.st_mtim.tv_sec) +
                static_cast<double>(status.st_mtim.tv_nsec) * 1e-9,
            status.st_size, status.st_ino};
}

struct CacheSlot {
    Stamp stamp;
    std::optional<Lexicon::Compiled> compiled;
};

struct Cache {
    Mutex lock;
    std::unordered_map<std::string, CacheSlot> slots SONRA_GUARDED_BY(lock);
};

Cache& cache() {
    static Cache shared;
    return shared;
}

bool isSameWord(const std::string& match, const std::string& lowered) {
    return text::lowered(match) == lowered;
}

/// Puts `entry` in the place of the one for the same word, or at the end. Returns the reason if it
/// has no place.
std::optional<std::string> place(Lexicon::Entry entry, Lexicon::Entries& entries) {
    const std::string word = text::lowered(entry.match);
    const auto known = std::ranges::find_if(
        entries, [&](const auto& other) { return isSameWord(other.match, word); });
    if (known != entries.end()) {
        *known = std::move(entry);
    } else if (entries.size() >= Lexicon::maxEntries) {
        return "lexicon is full (max 500 entries)";
    } else {
        entries.push_back(std::move(entry));
    }
    return std::nullopt;
}

std::optional<std::string> addUnderLock(Lexicon::Entry entry, const std::string& dir) {
    auto entries = Lexicon::load(dir);
    if (auto error = place(std::move(entry), entries)) return error;
    if (replaceProfile(dir, entries)) return std::nullopt;
    return "couldn't write " + Lexicon::profilePath(dir);
}

bool removeUnderLock(const std::string& word, const std::string& dir) {
    auto entries = Lexicon::load(dir);
    const auto removed =
        std::erase_if(entries, [&](const auto& entry) { return isSameWord(entry.match, word); });
    return removed > 0 && replaceProfile(dir, entries);
}

}  // namespace

struct Lexicon::Compiled::Pattern {
    std::unique_ptr<const icu::RegexPattern> regex;
    std::unordered_map<std::string, std::string> sayFor;  ///< by the match in lower case

    std::string replaceAll(const icu::UnicodeString& source, icu::RegexMatcher& matcher) const;
    void appendSay(const icu::UnicodeString& matched, std::string& result) const;
};

void Lexicon::Compiled::Pattern::appendSay(const icu::UnicodeString& matched,
                                           std::string& result) const {
    std::string words;
    matched.toUTF8String(words);
    // Letters that match without regard to case needn't have the same lower case ("ſ" and "s").
    const auto say = sayFor.find(text::lowered(words));
    result += say != sayFor.end() ? say->second : words;
}

std::string Lexicon::Compiled::Pattern::replaceAll(const icu::UnicodeString& source,
                                                   icu::RegexMatcher& matcher) const {
    UErrorCode status = U_ZERO_ERROR;
    std::string result;
    int32_t done = 0;
    do {
        const int32_t start = matcher.start(status);
        const int32_t end = matcher.end(status);
        source.tempSubStringBetween(done, start).toUTF8String(result);
        appendSay(source.tempSubStringBetween(start, end), result);
        done = end;
    } while (matcher.find(status) && U_SUCCESS(status));
    source.tempSubString(done).toUTF8String(result);
    return result;
}

std::string Lexicon::Compiled::apply(std::string_view text) const {
    const icu::UnicodeString source = toUtf16(text);
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::RegexMatcher> matcher(pattern_->regex->matcher(source, status));
    if (U_FAILURE(status) || !matcher->find(status)) return std::string(text);
    return pattern_->replaceAll(source, *matcher);
}

std::string Lexicon::profilePath(const std::string& dir) {
    return dir + "/" + std::string(profileBasename);
}

std::optional<std::string> Lexicon::validateEntry(std::string_view match, std::string_view say) {
    if (match.empty()) return "match must be 1..64 characters";
    if (text::utf16Length(match) > maxMatchChars) return "match too long (max 64 characters)";
    if (text::trimmed(match).empty()) return "match must not be whitespace-only";
    if (text::utf16Length(say) > maxSayChars) return "say too long (max 256 characters)";
    return std::nullopt;
}

Lexicon::Entries Lexicon::sanitize(const Entries& entries) {
    Entries kept;
    for (const auto& entry : entries) {
        if (kept.size() == maxEntries) break;
        if (!validateEntry(entry.match, entry.say)) kept.push_back(entry);
    }
    return kept;
}

Lexicon::Entries Lexicon::load(const std::string& dir) {
    Entries entries;
    const auto content = AtomicFile::read(profilePath(dir));
    const auto profile = content ? json::parseObject(*content) : std::nullopt;
    const Json* list = profile ? json::find(*profile, "lexicon") : nullptr;
    if (list == nullptr || !list->is_array()) return entries;
    for (const auto& element : *list) {
        if (entries.size() == maxEntries) break;
        if (auto entry = entryFrom(element)) entries.push_back(std::move(*entry));
    }
    return entries;
}

Lexicon::Entries Lexicon::save(const std::string& dir, const Entries& entries) {
    Entries sanitised = sanitize(entries);
    if (!makeDirectory(dir)) return sanitised;
    try {
        StateLock::withLock(profilePath(dir), lockTimeout,
                            [&] { return replaceProfile(dir, sanitised); });
    } catch (const StateLockError&) {
        // As any failure to write: the caller has its entries, and a later load shows what is on
        // disk.
        return sanitised;
    }
    return sanitised;
}

std::optional<std::string> Lexicon::addEntry(std::string_view match, std::string_view say,
                                             const std::string& dir) {
    if (auto rejected = validateEntry(match, say)) return rejected;
    if (!makeDirectory(dir)) return "couldn't write " + profilePath(dir);
    try {
        return StateLock::withLock(profilePath(dir), lockTimeout, [&] {
            return addUnderLock({std::string(match), std::string(say)}, dir);
        });
    } catch (const StateLockError& error) {
        return error.what();
    }
}

bool Lexicon::removeEntry(std::string_view match, const std::string& dir) {
    if (load(dir).empty()) return false;
    try {
        return StateLock::withLock(profilePath(dir), lockTimeout,
                                   [&] { return removeUnderLock(text::lowered(match), dir); });
    } catch (const StateLockError&) {
        return false;
    }
}

std::optional<Lexicon::Compiled> Lexicon::compile(const Entries& entries) {
    const Entries sorted = longestFirst(sanitize(entries));
    if (sorted.empty()) return std::nullopt;
    auto pattern = std::make_shared<Compiled::Pattern>();
    std::string alternatives;
    for (const auto& [match, say] : sorted) {
        if (!pattern->sayFor.emplace(text::lowered(match), say).second) continue;
        if (!alternatives.empty()) alternatives += '|';
        alternatives += escaped(match);
    }
    UErrorCode status = U_ZERO_ERROR;
    pattern->regex.reset(icu::RegexPattern::compile(
        toUtf16("(?<![A-Za-z0-9_])(?:" + alternatives + ")(?![A-Za-z0-9_])"),
        UREGEX_CASE_INSENSITIVE, status));
    if (U_FAILURE(status)) return std::nullopt;
    Compiled compiled;
    compiled.pattern_ = std::move(pattern);
    return compiled;
}

std::string Lexicon::apply(std::string_view text, const std::optional<Compiled>& compiled) {
    if (!compiled || text.empty()) return std::string(text);
    return compiled->apply(text);
}

std::optional<Lexicon::Compiled> Lexicon::loadCompiledCached(const std::string& dir) {
    const Stamp stamp = stampOf(profilePath(dir));
    Cache& shared = cache();
    const MutexLock hold(shared.lock);
    const auto known = shared.slots.find(dir);
    if (known != shared.slots.end() && known->second.stamp == stamp) return known->second.compiled;
    auto compiled = stamp.mtime < 0 ? std::nullopt : compile(load(dir));
    shared.slots.insert_or_assign(dir, CacheSlot{stamp, compiled});
    return compiled;
}

std::string Lexicon::applyToSynthText(std::string_view text, const std::string& dir) {
    return apply(text, loadCompiledCached(dir));
}

}  // namespace sonra
