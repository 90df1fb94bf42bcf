#include "ingest/FileTail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace sonra {
namespace {

class Descriptor {
  public:
    /// O_NONBLOCK, so that opening a pipe without a writer returns; for regular files it changes
    /// nothing.
    explicit Descriptor(const std::string& path)
        : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

/// Size of an open regular file; absent for anything else.
std::optional<std::int64_t> regularSize(int fd) {
    struct stat status {};
    if (fd < 0 || ::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return status.st_size;
}

/// Fills `buffer` from `position` on until it is full, the file ends or a read fails; returns the
/// bytes that came.
std::size_t readAt(int fd, char* buffer, std::size_t size, std::int64_t position) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count =
            ::pread(fd, buffer + done, size - done, position + static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

}  // namespace

std::int64_t FileTail::sizeOf(const std::string& path) {
    struct stat status {};
    const bool isFile = ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? status.st_size : 0;
}

std::optional<FileTail> FileTail::read(const std::string& path, std::int64_t start,
                                       std::size_t limit) {
    const Descriptor file(path);
    const auto size = regularSize(file.get());
    if (!size || start < 0 || start >= *size) return std::nullopt;
    const auto wanted = std::min(static_cast<std::size_t>(*size - start), limit);
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[wanted]);
    if (!buffer) return std::nullopt;
    const std::size_t count = readAt(file.get(), buffer.get(), wanted, start);
    if (count == 0) return std::nullopt;
    return FileTail(std::move(buffer), count);
}

}  // namespace sonra
