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

bool isLeftAlone(const struct stat& version, std::chrono::system_clock::duration now) {
    const auto changed = std::chrono::seconds(version.st_ctim.tv_sec) +
                         std::chrono::nanoseconds(version.st_ctim.tv_nsec);
    return now - changed > leftAlone;
}

}  // namespace

std::optional<UnchangedDocuments::Version> UnchangedDocuments::versionOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

std::optional<std::int64_t> UnchangedDocuments::count(const std::string& path,
                                                      const Version& version) const {
    const MutexLock lock(mutex_);
    const auto found = entries_.find(path);
    if (found == entries_.end() || !isSame(found->second.version, version)) return std::nullopt;
    return found->second.count;
}

void UnchangedDocuments::remember(const std::string& path, const Version& version,
                                  std::int64_t count) {
    if (!isLeftAlone(version, clock_().time_since_epoch())) return;
    const MutexLock lock(mutex_);
    if (entries_.size() >= mostEntries && !entries_.contains(path)) entries_.clear();
    entries_[path] = {version, count};
}

}  // namespace sonra
