#include "history/FileCopy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace sonra {
namespace {

constexpr std::size_t blockBytes = 256UL * 1024;

[[noreturn]] void failed(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void writeAll(int to, const char* bytes, std::size_t length) {
    while (length > 0) {
        const auto written = ::write(to, bytes, length);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) failed("write");
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
}

void copyThroughMemory(int from, int to, off_t offset) {
    std::vector<char> block(blockBytes);
    for (;;) {
        const auto got = ::pread(from, block.data(), block.size(), offset);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) failed("read");
        if (got == 0) return;
        writeAll(to, block.data(), static_cast<std::size_t>(got));
        offset += got;
    }
}

}  // namespace

bool FileCopy::share(int from, int to) {
    return ::ioctl(to, FICLONE, from) == 0;
}

void FileCopy::copy(int from, int to) {
    off_t offset = 0;
    for (;;) {
        const auto copied = ::copy_file_range(from, &offset, to, nullptr, blockBytes * 64, 0);
        if (copied > 0) continue;
        if (copied == 0 && offset > 0) return;
        if (copied < 0 && errno == EINTR) continue;
        if (copied < 0 && (errno == ENOSPC || errno == EDQUOT)) failed("copy_file_range");
        // Not between these file systems, or one of those that answer 0 for files with contents.
        return copyThroughMemory(from, to, offset);
    }
}

}  // namespace sonra
