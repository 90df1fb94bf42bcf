#include "ingest/QuietFile.h"

#include <sys/stat.h>

namespace sonra {

bool QuietFile::isQuiet(const std::string& path) const {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return true;
    using std::chrono::system_clock;
    const auto sinceEpoch = std::chrono::seconds(status.st_mtim.tv_sec) +
                            std::chrono::nanoseconds(status.st_mtim.tv_nsec);
    const system_clock::time_point written(
        std::chrono::duration_cast<system_clock::duration>(sinceEpoch));
    const auto age = clock_() - written;
    return age >= enough || age <= -enough;
}

}  // namespace sonra
