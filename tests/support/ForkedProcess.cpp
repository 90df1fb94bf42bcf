#include "support/ForkedProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace sonra::test {

ForkedProcess::ForkedProcess(const std::function<void()>& work) : pid_(::fork()) {
    if (pid_ < 0) std::abort();
    if (pid_ > 0) return;
    try {
        work();
    } catch (...) {
        ::_exit(1);
    }
    ::_exit(0);
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
