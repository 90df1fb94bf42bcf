#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "frame/Home.h"

namespace sonra {

/// How the user wants words to be spoken: pairs of a match and what to say for it, kept in a JSON
/// profile that companion programs read and write too.
///
/// Only what is synthesised is changed, never captions or history. Stateless but for a cache of
/// compiled profiles; every function may be called from any thread. Nothing here throws: a bad
/// profile acts as an empty one, and a failed write leaves the profile as it was.
class Lexicon {
  public:
    static constexpr std::string_view profileBasename = "profile.json";
    static constexpr std::size_t maxEntries = 500;
    static constexpr std::size_t maxMatchChars = 64;  ///< UTF-16 code units
    static constexpr std::size_t maxSayChars = 256;   ///< UTF-16 code units
    /// Longest wait for another writer of the profile; writing one takes milliseconds.
    static constexpr std::chrono::milliseconds lockTimeout{2'000};

    struct Entry {
        std::string match;
        std::string say;

        bool operator==(const Entry&) const = default;
    };
    using Entries = std::vector<Entry>;

    /// A profile ready for use; immutable, and cheap to copy.
    class Compiled {
      public:
        /// One scan of `text`: each match is replaced by its `say`, which isn't looked at again.
        [[nodiscard]] std::string apply(std::string_view text) const;

      private:
        friend class Lexicon;
        struct Pattern;
        std::shared_ptr<const Pattern> pattern_;
    };

    static std::string defaultDirectory() { return sharedDirectory(); }
    static std::string profilePath(const std::string& dir);

    /// The reason for rejecting an entry, absent if it is valid. An empty `say` is: it deletes the
    /// word.
    static std::optional<std::string> validateEntry(std::string_view match, std::string_view say);
    /// The valid entries, at most maxEntries of them.
    static Entries sanitize(const Entries& entries);

    static Entries load(const std::string& dir = defaultDirectory());
    /// Replaces the profile, and returns what was kept of `entries`. Waits for the profile's lock.
    static Entries save(const std::string& dir, const Entries& entries);
    /// Adds an entry, or replaces the one whose match differs only in case. Returns the error's
    /// text, if any; waits for the profile's lock, so not for the main thread.
    static std::optional<std::string> addEntry(std::string_view match, std::string_view say,
                                               const std::string& dir = defaultDirectory());
    /// True if anything was removed. Waits for the profile's lock, as addEntry.
    static bool removeEntry(std::string_view match, const std::string& dir = defaultDirectory());

    /// Absent if there is nothing to replace.
    static std::optional<Compiled> compile(const Entries& entries);
    /// `text` unchanged if `compiled` is absent.
    static std::string apply(std::string_view text, const std::optional<Compiled>& compiled);
    /// The profile as it is on disk now; an unchanged file costs one look at its attributes.
    static std::optional<Compiled> loadCompiledCached(const std::string& dir = defaultDirectory());
    /// `text` as it is to be spoken.
    static std::string applyToSynthText(std::string_view text,
                                        const std::string& dir = defaultDirectory());
};

}  // namespace sonra
