#include "ingest/UnchangedDocuments.h"

namespace sonra {
namespace {

constexpr std::chrono::seconds leftAlone{1};
/// More sessions aren't followed at once; beyond that, forgetting costs a reading.
constexpr std::size_t mostEntries = 64;

bool isSame(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino &&
           one.st_size == other.st_size && isSame(one.st_mtim, other.st_mtim) &&
           isSame(one.st_ctim, other.st_ctim);
}

bool isLeftAlone(const struct stat& file, std::chrono::system_clock::duration now) {
    const auto changed =
        std::chrono::seconds(file.st_ctim.tv_sec) + std::chrono::nanoseconds(file.st_ctim.tv_nsec);
    return now - changed > leftAlone;
}

}  // namespace

bool UnchangedDocuments::Version::operator==(const Version& other) const {
    return isSame(document, other.document) && isSame(companion, other.companion);
}

std::optional<UnchangedDocuments::Version> UnchangedDocuments::versionOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return Version{status, {}};
}

std::optional<UnchangedDocuments::Version> UnchangedDocuments::versionOf(
    const std::string& path, const std::string& companion) {
    auto version = versionOf(path);
    if (!version) return std::nullopt;
    if (stat(companion.c_str(), &version->companion) != 0) version->companion = {};
    // Who opens a log of SQLite as root gives it to its owner again, which changes nothing in it.
    version->companion.st_ctim = version->companion.st_mtim;
    return version;
}

std::optional<std::int64_t> UnchangedDocuments::count(const std::string& path,
                                                      const Version& version) const {
    const MutexLock lock(mutex_);
    const auto found = entries_.find(path);
    if (found == entries_.end() || !(found->second.version == version)) return std::nullopt;
    return found->second.count;
}

void UnchangedDocuments::remember(const std::string& path, const Version& version,
                                  std::int64_t count) {
    const auto now = clock_().time_since_epoch();
    if (!isLeftAlone(version.document, now) || !isLeftAlone(version.companion, now)) return;
    const MutexLock lock(mutex_);
    if (entries_.size() >= mostEntries && !entries_.contains(path)) entries_.clear();
    entries_[path] = {version, count};
}

}  // namespace sonra
