#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "frame/Mutex.h"

namespace sonra {

/// Remembers how many elements documents had that were read, so that a document which nobody writes
/// to isn't decoded at every look.
///
/// Only what has been left alone for a while is remembered: a file may be written twice within one
/// tick of the clock by which it is stamped. Any thread.
class UnchangedDocuments {
  public:
    /// A state of a document, and of the file beside it that holds a part of it.
    struct Version {
        struct stat document;
        struct stat companion;  ///< all zero if there is none

        bool operator==(const Version& other) const;
    };
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    explicit UnchangedDocuments(Clock clock = std::chrono::system_clock::now)
        : clock_(std::move(clock)) {}

    /// Of what stands at the path now; absent if there is nothing.
    static std::optional<Version> versionOf(const std::string& path);
    static std::optional<Version> versionOf(const std::string& path, const std::string& companion);

    /// How many elements this version had, if that is known.
    std::optional<std::int64_t> count(const std::string& path, const Version& version) const;
    void remember(const std::string& path, const Version& version, std::int64_t count);

  private:
    struct Entry {
        Version version;
        std::int64_t count;
    };

    const Clock clock_;
    mutable Mutex mutex_;
    std::map<std::string, Entry> entries_ SONRA_GUARDED_BY(mutex_);
};

}  // namespace sonra
