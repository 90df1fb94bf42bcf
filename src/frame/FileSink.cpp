#include "frame/FileSink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "frame/Home.h"
#include "frame/Json.h"
#include "frame/LogTime.h"
#include "frame/UniqueFd.h"

namespace sonra {
namespace {

constexpr std::int64_t defaultMaxBytes = 10'485'760;
constexpr int defaultKeepCount = 5;

std::string droppedRecord(const std::string& service, std::size_t dropped) {
    return json::dump({{"time", logTime()},
                       {"level", 40},
                       {"service", service},
                       {"msg", "log lines dropped"},
                       {"dropped", dropped}}) +
           "\n";
}

/// Bytes written before the first failure.
std::size_t writeUntilFailure(int fd, std::string_view bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const auto written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        done += static_cast<std::size_t>(written);
    }
    return done;
}

/// True if the file's last line lacks its newline: a writer was killed or the disk was full.
bool endsTorn(int fd, std::int64_t size) {
    char last = '\n';
    return size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

}  // namespace

/// The open file. Lives on the sink's queue alone.
class FileSink::File {
  public:
    File(std::string filePath, std::int64_t maxBytes, int keepCount)
        : filePath_(std::move(filePath)), maxBytes_(maxBytes), keepCount_(keepCount) {}

    /// `lines`: each closed by its newline.
    void write(std::string_view lines) {
        while (!lines.empty()) {
            if (!handle_ && !open()) return;
            const std::size_t length = lengthUntilFull(lines);
            writePart(lines.substr(0, length));
            lines.remove_prefix(length);
            if (currentBytes_ >= maxBytes_) rotate();
        }
    }

  private:
    bool open() {
        handle_.reset(::open(filePath_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        if (!handle_) return false;
        struct stat status {};
        currentBytes_ = ::fstat(handle_.get(), &status) == 0 ? status.st_size : 0;
        if (endsTorn(handle_.get(), currentBytes_)) writePart("\n");
        return static_cast<bool>(handle_);
    }

    /// Whole lines up to the one that fills the file.
    [[nodiscard]] std::size_t lengthUntilFull(std::string_view lines) const {
        const auto room = std::max<std::int64_t>(maxBytes_ - currentBytes_, 1);
        if (static_cast<std::uint64_t>(room) > lines.size()) return lines.size();
        return lines.find('\n', static_cast<std::size_t>(room - 1)) + 1;
    }

    void writePart(std::string_view part) {
        const std::size_t written = writeUntilFailure(handle_.get(), part);
        currentBytes_ += static_cast<std::int64_t>(written);
        // Opening anew finds out what the failure has left behind.
        if (written < part.size()) handle_.reset();
    }

    [[nodiscard]] std::string old(int number) const {
        return filePath_ + "." + std::to_string(number);
    }

    void rotate() {
        handle_.reset();
        ::unlink(old(keepCount_).c_str());
        for (int i = keepCount_ - 1; i >= 1; --i) ::rename(old(i).c_str(), old(i + 1).c_str());
        ::rename(filePath_.c_str(), old(1).c_str());
        currentBytes_ = 0;
    }

    const std::string filePath_;
    const std::int64_t maxBytes_;
    const int keepCount_;
    UniqueFd handle_;
    std::int64_t currentBytes_ = 0;
};

FileSink::FileSink(std::string filePath, std::int64_t maxBytes, int keepCount, std::string service)
    : batcher_("sonra.log",
               [file = std::make_shared<File>(std::move(filePath), maxBytes, keepCount),
                service = std::move(service)](std::string_view batch, std::size_t dropped) {
                   file->write(batch);
                   if (dropped > 0) file->write(droppedRecord(service, dropped));
               }) {}

std::shared_ptr<FileSink> FileSink::defaultMacSink() {
    const std::string directory = homeDirectory() + "/Library/Logs/Sonra";
    std::error_code failure;
    std::filesystem::create_directories(directory, failure);
    if (failure) return nullptr;
    return std::make_shared<FileSink>(directory + "/sonra.ndjson", defaultMaxBytes,
                                      defaultKeepCount);
}

void FileSink::write(std::string_view line) {
    batcher_.add(line);
}

void FileSink::flush() {
    batcher_.flush(flushLimit);
}

}  // namespace sonra
