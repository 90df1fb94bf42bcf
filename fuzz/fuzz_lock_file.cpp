// A lock file with any content: whom it names, and whether it may be taken away. The first two
// bytes are its age.

#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "frame/StateLock.h"

namespace {

using sonra::StateLock;

void require(bool holds) {
    if (!holds) std::abort();
}

/// A process id reads back from its own digits, with whatever white space around it.
void checkReading(std::string_view content) {
    const auto pid = StateLock::holderOf(content);
    require(StateLock::holderOf(std::to_string(pid)) == pid);
    require(StateLock::holderOf(" \t" + std::string(content) + "\r\n") == pid);
    if (pid != 0) require(StateLock::holderOf(std::string(content) + "x") == 0);
}

void checkJudgement(std::string_view content, std::chrono::milliseconds age) {
    const bool isStale = StateLock::isStale(content, age);
    if (age > StateLock::staleAfter) require(isStale);
    if (age <= StateLock::staleAfter && StateLock::holderOf(content) < 1) require(!isStale);
    if (age <= StateLock::staleAfter && StateLock::holderOf(content) == ::getpid())
        require(!isStale);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::chrono::milliseconds age(data[0] * 256 + data[1]);
    const std::string_view content(reinterpret_cast<const char*>(data) + 2, size - 2);
    checkReading(content);
    checkJudgement(content, age);
    return 0;
}
