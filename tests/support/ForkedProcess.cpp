#include "support/ForkedProcess.h"

#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace sonra::test {

namespace {

/// At once: nothing of the parent's, a sanitizer's report among it, runs in the copy.
[[noreturn]] void endWith(int status) {
    ::syscall(SYS_exit_group, status);
    std::abort();
}

}  // namespace

ForkedProcess::ForkedProcess(const std::function<void()>& work) : pid_(::fork()) {
    if (pid_ < 0) std::abort();
    if (pid_ > 0) return;
    try {
        work();
    } catch (...) {
        endWith(1);
    }
    endWith(0);
}

ForkedProcess::~ForkedProcess() {
    killNow();
}

void ForkedProcess::killNow() {
    if (reaped_) return;
    ::kill(pid_, SIGKILL);
    finished();
}

bool ForkedProcess::finished() {
    int status = -1;
    reaped_ = ::waitpid(pid_, &status, 0) == pid_ || reaped_;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace sonra::test
