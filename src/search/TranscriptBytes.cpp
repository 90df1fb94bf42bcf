#include "search/TranscriptBytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "search/FileStatus.h"

namespace sonra {

/// O_NONBLOCK, so that opening a pipe without a writer returns.
std::optional<TranscriptBytes> TranscriptBytes::open(const std::string& path) {
    TranscriptBytes bytes;
    struct stat status {};
    bytes.fd_.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    const int failed =
        bytes.fd_ ? ::fstat(bytes.fd_.get(), &status) : ::stat(path.c_str(), &status);
    if (failed != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode)) bytes.fd_.reset();
    bytes.mtime_ = modificationSeconds(status);
    bytes.size_ = status.st_size;
    return bytes;
}

std::optional<std::size_t> TranscriptBytes::read(std::int64_t position, char* buffer,
                                                 std::size_t length) const {
    std::size_t done = 0;
    while (done < length) {
        const auto count = ::pread(fd_.get(), buffer + done, length - done,
                                   static_cast<off_t>(position) + static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

}  // namespace sonra
