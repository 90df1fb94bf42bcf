#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace sonra::fuzz {

/// What must hold whatever the input is.
inline void require(bool holds) {
    if (!holds) std::abort();
}

/// A file in memory that stands in for a transcript. One thread.
class MemoryFile {
  public:
    MemoryFile() : fd_(::memfd_create("transcript", MFD_CLOEXEC)) { require(fd_ >= 0); }
    ~MemoryFile() { ::close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
    void write(std::string_view content) const {
        resize(0);
        const auto written = ::pwrite(fd_, content.data(), content.size(), 0);
        require(written == static_cast<ssize_t>(content.size()));
    }
    void resize(std::size_t size) const {
        require(::ftruncate(fd_, static_cast<off_t>(size)) == 0);
    }

  private:
    int fd_;
};

}  // namespace sonra::fuzz
