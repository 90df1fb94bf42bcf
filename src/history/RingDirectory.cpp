#include "history/RingDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "frame/UniqueFd.h"
#include "frame/UniqueName.h"
#include "history/FileCopy.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view asidePrefix = ".discarded-";

/// A minute and a half of speech as the engines make it; copied in a few milliseconds.
constexpr std::int64_t largestCopyAtOnce = 4LL << 20;

[[noreturn]] void failed(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void makeRoot(const std::string& path) {
    std::error_code ignored;
    fs::create_directories(fs::path(path).parent_path(), ignored);
    ::mkdir(path.c_str(), 0700);
}

bool isDirectory(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isThere(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool isSymbolicLink(const std::string& path) {
    std::error_code ignored;
    return fs::is_symlink(path, ignored);
}

UniqueFd openOriginal(const std::string& path) {
    // Not blocking: a pipe under that name would wait for its writer.
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) failed("open " + path);
    return fd;
}

std::int64_t sizeOfRegular(int fd, const std::string& path) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) failed("stat " + path);
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        failed("not a regular file: " + path);
    }
    return status.st_size;
}

std::string throughProcess(int fd) {
    return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(fd);
}

bool linkTo(int fd, const std::string& target) {
    return ::linkat(AT_FDCWD, throughProcess(fd).c_str(), AT_FDCWD, target.c_str(),
                    AT_SYMLINK_FOLLOW) == 0;
}

UniqueFd create(int directory, const std::string& name) {
    UniqueFd fd(::openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd) failed("create " + name);
    return fd;
}

/// A copy either is whole or isn't there.
void copyInto(int from, int directory, const std::string& name) {
    const UniqueFd to = create(directory, name);
    try {
        if (!FileCopy::share(from, to.get())) FileCopy::copy(from, to.get());
    } catch (const std::system_error&) {
        ::unlinkat(directory, name.c_str(), 0);
        throw;
    }
}

bool shareInto(int from, const std::string& target) {
    const UniqueFd to = create(AT_FDCWD, target);
    if (FileCopy::share(from, to.get())) return true;
    ::unlink(target.c_str());
    return false;
}

/// Makes `target` lead to an open file, also once that has been unlinked.
bool leadTo(int fd, const std::string& target) {
    if (::symlink(throughProcess(fd).c_str(), target.c_str()) != 0) return false;
    if (::access(target.c_str(), R_OK) == 0) return true;
    ::unlink(target.c_str());
    return false;
}

bool isLinkIn(int directory, const std::string& name) {
    struct stat status {};
    return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISLNK(status.st_mode);
}

}  // namespace

/// A large copy under way. It works from descriptors: the directory may be moved aside meanwhile,
/// and another may take its name.
struct RingDirectory::LateCopy {
    UniqueFd original;
    UniqueFd directory;
    std::string name;
    std::function<void()> onBroken;
};

std::shared_ptr<RingDirectory> RingDirectory::prepare(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) path.pop_back();
    makeRoot(path);
    std::shared_ptr<RingDirectory> ring(new RingDirectory(std::move(path)));
    ring->queue_.post([ring] { ring->removeUnused(); });
    return ring;
}

RingDirectory::RingDirectory(std::string path)
    : path_(std::move(path)),
      isLink_(isSymbolicLink(path_)),
      asideStart_(path_ + "/" + std::string(asidePrefix) + uniqueSuffix() + "-") {}

std::string RingDirectory::nameFor(const std::string& messageId) {
    std::string name = messageId;
    std::ranges::replace(name, '/', '_');
    name = safeFileName(name);
    // A slash has the name replaced by its digest: what is moved aside has names of this form.
    return name.starts_with(asidePrefix) ? safeFileName("/" + name) : name;
}

std::string RingDirectory::makeFor(const std::string& messageId) {
    const auto name = nameFor(messageId);
    auto directory = path_ + "/" + name;
    const MutexLock lock(mutex_);
    const bool isLeftover = !used_.contains(name) || !isDirectory(directory);
    if (isLeftover && moveAside(directory)) removeLater();
    if (::mkdir(directory.c_str(), 0700) != 0 && errno == ENOENT) {
        makeRoot(path_);
        ::mkdir(directory.c_str(), 0700);
    }
    if (!isDirectory(directory)) failed("mkdir " + directory);
    used_.insert(name);
    return directory;
}

std::string RingDirectory::take(const std::string& original, const std::string& messageId,
                                std::int64_t number, Taking taking,
                                std::function<void()> onBroken) {
    const auto directory = makeFor(messageId);
    auto target = directory + "/" + std::to_string(number) + ".wav";
    ::unlink(target.c_str());
    try {
        if (taking != Taking::move) {
            bringIn(original, target, taking, std::move(onBroken));
        } else if (std::rename(original.c_str(), target.c_str()) != 0) {
            failed("rename " + original);
        }
    } catch (const std::system_error&) {
        removeIfEmpty(directory);
        throw;
    }
    return target;
}

void RingDirectory::bringIn(const std::string& original, const std::string& target, Taking taking,
                            std::function<void()> onBroken) {
    UniqueFd from = openOriginal(original);
    const auto bytes = sizeOfRegular(from.get(), original);
    if (taking == Taking::link && linkTo(from.get(), target)) return;
    if (bytes <= largestCopyAtOnce) return copyInto(from.get(), AT_FDCWD, target);
    if (shareInto(from.get(), target)) return;
    if (!leadTo(from.get(), target)) return copyInto(from.get(), AT_FDCWD, target);
    copyLater(std::move(from), target, std::move(onBroken));
}

void RingDirectory::copyLater(UniqueFd original, const std::string& target,
                              std::function<void()> onBroken) {
    const auto path = fs::path(target);
    UniqueFd directory(::open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory) failed("open " + path.parent_path().string());
    auto copy = std::make_shared<LateCopy>(LateCopy{std::move(original), std::move(directory),
                                                    path.filename().string(), std::move(onBroken)});
    queue_.post([self = shared_from_this(), copy] { self->finishCopy(*copy); });
}

/// The copy takes the place of the link, unless that was thrown away meanwhile.
void RingDirectory::finishCopy(const LateCopy& copy) {
    const int directory = copy.directory.get();
    const auto part = copy.name + ".part";
    bool whole = true;
    try {
        copyInto(copy.original.get(), directory, part);
    } catch (const std::system_error&) {
        whole = false;
    }
    const MutexLock lock(mutex_);
    const bool wanted = isLinkIn(directory, copy.name);
    if (whole && wanted) {
        whole = ::renameat(directory, part.c_str(), directory, copy.name.c_str()) == 0;
    } else {
        ::unlinkat(directory, part.c_str(), 0);
    }
    if (whole || !wanted) return;
    ::unlinkat(directory, copy.name.c_str(), 0);
    copy.onBroken();
}

void RingDirectory::discard(const std::string& messageId) {
    const auto name = nameFor(messageId);
    {
        const MutexLock lock(mutex_);
        used_.erase(name);
        if (!moveAside(path_ + "/" + name)) return;
    }
    removeLater();
}

void RingDirectory::discardFile(const std::string& file) {
    bool moved = false;
    {
        const MutexLock lock(mutex_);
        moved = moveAside(file);
    }
    removeIfEmpty(fs::path(file).parent_path());
    if (moved) removeLater();
}

void RingDirectory::discardAll() {
    {
        const MutexLock lock(mutex_);
        for (const auto& name : used_) moveAside(path_ + "/" + name);
        used_.clear();
    }
    removeLater();
}

void RingDirectory::drain() {
    queue_.sync([] {});
}

void RingDirectory::removeIfEmpty(const std::string& directory) {
    const MutexLock lock(mutex_);
    if (::rmdir(directory.c_str()) == 0) used_.erase(fs::path(directory).filename());
}

bool RingDirectory::moveAside(const std::string& file) {
    if (!isThere(file)) return false;
    const auto aside = asideStart_ + std::to_string(++asideCount_);
    return std::rename(file.c_str(), aside.c_str()) == 0;
}

void RingDirectory::removeLater() {
    queue_.post([self = shared_from_this()] { self->removeUnused(); });
}

/// Names are moved aside under the lock and removed outside of it, so that whoever needs a name
/// waits for a rename at most.
void RingDirectory::removeUnused() {
    std::error_code ignored;
    std::vector<std::string> names;
    for (fs::directory_iterator entry(path_, ignored), end; entry != end; entry.increment(ignored))
        names.push_back(entry->path().filename());
    for (const auto& name : names) {
        const auto file = path_ + "/" + name;
        if (name.starts_with(asidePrefix)) {
            fs::remove_all(file, ignored);
        } else if (!isLink_) {
            removeUnlessUsed(name);
        }
    }
}

void RingDirectory::removeUnlessUsed(const std::string& name) {
    std::string aside;
    {
        const MutexLock lock(mutex_);
        if (used_.contains(name) || !moveAside(path_ + "/" + name)) return;
        aside = asideStart_ + std::to_string(asideCount_);
    }
    std::error_code ignored;
    fs::remove_all(aside, ignored);
}

}  // namespace sonra
