#include "frame/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "frame/UniqueFd.h"

namespace sonra {
namespace {

constexpr mode_t ownerOnly = 0600;
constexpr std::size_t readStep = std::size_t{64} << 10;

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool writeWhole(const std::string& path, std::string_view bytes) {
    const UniqueFd fd(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, ownerOnly));
    // One that somebody left behind may have another mode.
    return fd && ::fchmod(fd.get(), ownerOnly) == 0 && writeAll(fd.get(), bytes);
}

bool isRegular(int fd, std::size_t& size) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    size = static_cast<std::size_t>(status.st_size);
    return true;
}

}  // namespace

bool AtomicFile::write(const std::string& path, std::string_view bytes) {
    return writeThrough(path + ".tmp", path, bytes);
}

bool AtomicFile::writeThrough(const std::string& temporary, const std::string& path,
                              std::string_view bytes) {
    if (writeWhole(temporary, bytes) && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    const int reason = errno;
    ::unlink(temporary.c_str());
    errno = reason;
    return false;
}

std::optional<std::string> AtomicFile::read(const std::string& path) {
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::size_t size = 0;
    if (!fd || !isRegular(fd.get(), size)) return std::nullopt;
    std::string content(size + 1, '\0');
    std::size_t done = 0;
    for (;;) {
        if (done == content.size()) content.resize(done + readStep);
        const auto got = ::read(fd.get(), content.data() + done, content.size() - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    content.resize(done);
    return content;
}

}  // namespace sonra
