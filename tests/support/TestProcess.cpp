#include "support/TestProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace sonra::test {
namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

TestProcess::TestProcess(std::vector<std::string> arguments, std::vector<std::string> environment) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
    output_.reset(ends[0]);
    const UniqueFd childEnd(ends[1]);
    for (char** entry = environ; *entry != nullptr; ++entry) environment.emplace_back(*entry);
    const auto argv = pointers(arguments);
    const auto envp = pointers(environment);
    pid_ = fork();
    if (pid_ < 0) std::abort();
    if (pid_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(childEnd.get(), STDOUT_FILENO);
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDERR_FILENO);
    execvpe(argv[0], argv.data(), envp.data());
    _exit(127);
}

TestProcess::~TestProcess() {
    kill();
}

void TestProcess::signal(int number) const {
    if (pid_ > 0) ::kill(pid_, number);
}

void TestProcess::kill() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

std::string TestProcess::readAll() {
    std::string all;
    char block[4096];
    for (ssize_t got = 0; (got = read(output_.get(), block, sizeof block)) > 0;)
        all.append(block, static_cast<std::size_t>(got));
    return all;
}

}  // namespace sonra::test
