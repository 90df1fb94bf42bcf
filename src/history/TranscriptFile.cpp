#include "history/TranscriptFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace sonra {

/// O_NONBLOCK, so that opening a pipe without a writer returns; for regular files it changes
/// nothing.
TranscriptFile::TranscriptFile(const std::string& path)
    : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    struct stat status {};
    if (!fd_) return;
    if (::fstat(fd_.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        fd_.reset();
        return;
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
}

std::size_t TranscriptFile::readAt(std::uint64_t position, char* buffer, std::size_t length) const {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count =
            ::pread(fd_.get(), buffer + done, length - done, static_cast<off_t>(position + done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

}  // namespace sonra
