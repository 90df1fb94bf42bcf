#include "speech/SpeechTextFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "frame/TemporaryDirectory.h"
#include "frame/UniqueFd.h"
#include "frame/UniqueName.h"

namespace sonra {
namespace {

[[noreturn]] void throwErrno() {
    throw std::system_error(errno, std::generic_category());
}

}  // namespace

std::string SpeechTextFile::newPath(std::string_view prefix) {
    const auto parent = temporaryDirectory();
    if (parent.empty())
        throw std::system_error(ENOENT, std::generic_category(), "temporary directory");
    return parent + "/" + std::string(prefix) + uniqueSuffix() + "/text";
}

SpeechTextFile::SpeechTextFile(const std::string& path, std::string_view text)
    : directory_(std::filesystem::path(path).parent_path()) {
    if (mkdir(directory_.c_str(), 0700) != 0) throwErrno();
    try {
        write(path, text);
    } catch (...) {
        removeDirectory();
        throw;
    }
}

SpeechTextFile::~SpeechTextFile() {
    removeDirectory();
}

void SpeechTextFile::write(const std::string& path, std::string_view text) const {
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file) throwErrno();
    while (!text.empty()) {
        const auto written = ::write(file.get(), text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            throwErrno();
        }
    }
}

void SpeechTextFile::removeDirectory() const {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

}  // namespace sonra
