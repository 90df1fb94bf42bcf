#include "frame/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "frame/Mutex.h"

namespace sonra {
namespace {

using Clock = std::chrono::steady_clock;

/// What a pipe can hold at most, unless its owner is privileged.
constexpr std::size_t largestPipe = 1U << 20U;
/// Reported when something else has reaped the child, so that its status is lost.
constexpr int lostStatus = 255;

std::string errorText(int number) {
    return std::generic_category().message(number);
}

/// Waits until `fd` is ready or has failed; false when the deadline passes first.
bool waitReady(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{fd, events, 0};
        const int ready =
            poll(&entry, 1, static_cast<int>(std::clamp<long long>(left, 0, 3'600'000)));
        if (ready > 0) return true;
        if ((ready == 0 || errno != EINTR) && Clock::now() >= deadline) return false;
    }
}

Clock::time_point deadlineAfter(ChildProcess::Duration limit) {
    const auto now = Clock::now();
    return limit > Clock::time_point::max() - now ? Clock::time_point::max() : now + limit;
}

/// Keeps a write to a pipe without a reader from ending the process, whatever its signal
/// dispositions are.
class SigpipeShield {
  public:
    SigpipeShield() {
        sigemptyset(&sigpipe_);
        sigaddset(&sigpipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &sigpipe_, &before_);
    }
    ~SigpipeShield() {
        const timespec now{};
        if (!wasPending_) sigtimedwait(&sigpipe_, nullptr, &now);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    SigpipeShield(const SigpipeShield&) = delete;
    SigpipeShield& operator=(const SigpipeShield&) = delete;

  private:
    sigset_t sigpipe_{};
    sigset_t before_{};
    bool wasPending_ = false;
};

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

/// Moves a descriptor out of the range of the standard streams, where it would be in the way of the
/// child's own.
UniqueFd aboveStandardStreams(UniqueFd fd) {
    if (fd.get() > STDERR_FILENO) return fd;
    return UniqueFd(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::optional<Pipe> openPipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
    UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    Pipe result{aboveStandardStreams(std::move(readEnd)),
                aboveStandardStreams(std::move(writeEnd))};
    if (!result.readEnd || !result.writeEnd) return std::nullopt;
    return result;
}

void makeNonBlocking(const UniqueFd& fd) {
    if (fd) fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
}

/// The pipes of one child; ends that aren't wanted stay unset.
struct Pipes {
    Pipe input;
    Pipe output;

    bool open(const ChildProcess::Request& request) {
        return openIf(request.input, input) && openIf(request.output, output);
    }

  private:
    static bool openIf(ChildProcess::Stream stream, Pipe& pipe) {
        if (stream != ChildProcess::Stream::pipe) return true;
        auto opened = openPipe();
        if (opened) pipe = std::move(*opened);
        return opened.has_value();
    }
};

/// What the new process does to its descriptors before the program is loaded.
class FileActions {
  public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void setUp(const ChildProcess::Request& request, const Pipes& pipes) {
        using Stream = ChildProcess::Stream;
        using ErrorStream = ChildProcess::ErrorStream;
        if (request.input == Stream::null) openNull(STDIN_FILENO, O_RDONLY);
        if (request.input == Stream::pipe) duplicate(pipes.input.readEnd.get(), STDIN_FILENO);
        if (request.output == Stream::null) openNull(STDOUT_FILENO, O_WRONLY);
        if (request.output == Stream::pipe) duplicate(pipes.output.writeEnd.get(), STDOUT_FILENO);
        if (request.error == ErrorStream::null) openNull(STDERR_FILENO, O_WRONLY);
        if (request.error == ErrorStream::likeOutput) duplicate(STDOUT_FILENO, STDERR_FILENO);
        // Whatever some library left without close-on-exec: a lock held by a child would outlive
        // this process.
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

  private:
    void duplicate(int from, int to) { posix_spawn_file_actions_adddup2(&actions_, from, to); }
    void openNull(int fd, int mode) {
        posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", mode, 0);
    }

    posix_spawn_file_actions_t actions_{};
};

/// Default signals, none blocked, and a session of its own: the child's whole family can then be
/// told by its session, and a signal from the terminal reaches it only through this process.
class Attributes {
  public:
    Attributes() {
        posix_spawnattr_init(&attributes_);
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(
            &attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
    }
    ~Attributes() { posix_spawnattr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (auto& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

/// 0, or the reason why the program didn't start.
int launch(const ChildProcess::Request& request, const Pipes& pipes, pid_t& pid) {
    std::vector<std::string> arguments{request.executable};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    std::vector<std::string> environment;
    environment.reserve(request.environment.size());
    for (const auto& [name, value] : request.environment)
        environment.emplace_back(name).append("=").append(value);
    FileActions actions;
    actions.setUp(request, pipes);
    const Attributes attributes;
    return posix_spawn(&pid, request.executable.c_str(), actions.get(), attributes.get(),
                       pointers(arguments).data(), pointers(environment).data());
}

}  // namespace

struct ChildProcess::State {
    State(pid_t childPid, UniqueFd childPidfd, UniqueFd childOutput)
        : pid(childPid), pidfd(std::move(childPidfd)), output(std::move(childOutput)) {}

    const pid_t pid;
    const UniqueFd pidfd;
    UniqueFd output;
    Mutex mutex;
    std::optional<int> status SONRA_GUARDED_BY(mutex);

    std::optional<int> reap();
    std::optional<int> waitForExit(Clock::time_point deadline);
    void signalGroup(int number);
    ssize_t readSome(std::array<char, 65536>& buffer) const;
    void drain(std::array<char, 65536>& buffer, const OutputCallback& onOutput) const;
    int deliverOutput(const OutputCallback& onOutput);
};

/// The exit status, if the child has ended.
std::optional<int> ChildProcess::State::reap() {
    const MutexLock lock(mutex);
    if (status) return status;
    siginfo_t info{};
    if (waitid(P_PIDFD, static_cast<id_t>(pidfd.get()), &info, WEXITED | WNOHANG) != 0) {
        status = lostStatus;
    } else if (info.si_pid != 0) {
        status = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
    }
    return status;
}

std::optional<int> ChildProcess::State::waitForExit(Clock::time_point deadline) {
    if (auto ended = reap()) return ended;
    if (!waitReady(pidfd.get(), POLLIN, deadline)) return std::nullopt;
    return reap();
}

void ChildProcess::State::signalGroup(int number) {
    const MutexLock lock(mutex);
    // Until it is reaped, the child keeps its number from being given to another group.
    if (!status) ::kill(-pid, number);
}

/// As read(2), but without interruptions; -1 also when nothing is there now.
ssize_t ChildProcess::State::readSome(std::array<char, 65536>& buffer) const {
    for (;;) {
        const auto got = ::read(output.get(), buffer.data(), buffer.size());
        if (got >= 0 || errno != EINTR) return got;
    }
}

/// What is left in the pipe of a child that has ended. Bounded: one of its children may go on
/// writing.
void ChildProcess::State::drain(std::array<char, 65536>& buffer,
                                const OutputCallback& onOutput) const {
    for (std::size_t total = 0; total < largestPipe;) {
        const auto got = readSome(buffer);
        if (got <= 0) return;
        total += static_cast<std::size_t>(got);
        onOutput({buffer.data(), static_cast<std::size_t>(got)});
    }
}

/// Delivers output until the child ends; returns its status.
int ChildProcess::State::deliverOutput(const OutputCallback& onOutput) {
    std::array<char, 65536> buffer;
    std::array<pollfd, 2> entries{{{output.get(), POLLIN, 0}, {pidfd.get(), POLLIN, 0}}};
    for (;;) {
        if (poll(entries.data(), entries.size(), -1) < 0) continue;
        if (entries[0].revents != 0) {
            const auto got = readSome(buffer);
            if (got > 0) onOutput({buffer.data(), static_cast<std::size_t>(got)});
            if (got == 0 || (got < 0 && errno != EAGAIN)) entries[0].fd = -1;
        }
        if (entries[1].revents == 0) continue;
        drain(buffer, onOutput);
        output.reset();
        if (const auto ended = reap()) return *ended;
    }
}

ChildProcess::Spawned ChildProcess::spawn(const Request& request) {
    Pipes pipes;
    if (!pipes.open(request)) return {nullptr, errorText(errno)};
    makeNonBlocking(pipes.input.writeEnd);
    makeNonBlocking(pipes.output.readEnd);
    pid_t pid = 0;
    if (const int failure = launch(request, pipes, pid); failure != 0)
        return {nullptr, errorText(failure)};
    UniqueFd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!pidfd) {
        const int failure = errno;
        ::kill(-pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return {nullptr, errorText(failure)};
    }
    auto state = std::make_shared<State>(pid, std::move(pidfd), std::move(pipes.output.readEnd));
    return {std::unique_ptr<ChildProcess>(
                new ChildProcess(std::move(state), std::move(pipes.input.writeEnd))),
            ""};
}

ChildProcess::ChildProcess(std::shared_ptr<State> state, UniqueFd input)
    : state_(std::move(state)), input_(std::move(input)) {}

ChildProcess::~ChildProcess() {
    if (watched_) return;
    state_->output.reset();
    input_.reset();
    if (state_->reap()) return;
    std::thread([state = state_] { state->waitForExit(Clock::time_point::max()); }).detach();
}

pid_t ChildProcess::pid() const {
    return state_->pid;
}

std::optional<std::string> ChildProcess::writeStdin(std::string_view bytes, Duration limit) {
    const SigpipeShield shield;
    const auto deadline = deadlineAfter(limit);
    while (!bytes.empty()) {
        const auto written = ::write(input_.get(), bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            if (Clock::now() >= deadline || !waitReady(input_.get(), POLLOUT, deadline))
                return errorText(ETIMEDOUT);
        } else if (errno != EINTR) {
            return errorText(errno);
        }
    }
    return std::nullopt;
}

void ChildProcess::closeStdin() {
    input_.reset();
}

void ChildProcess::terminate() {
    state_->signalGroup(SIGTERM);
}

void ChildProcess::terminateWithin(Duration grace) {
    terminate();
    if (state_->reap()) return;
    std::thread([state = state_, deadline = deadlineAfter(grace)] {
        if (!state->waitForExit(deadline)) state->signalGroup(SIGKILL);
    }).detach();
}

void ChildProcess::kill() {
    state_->signalGroup(SIGKILL);
}

void ChildProcess::terminateMember(pid_t member) {
    if (member > 0 && getsid(member) == state_->pid && getpgid(member) != state_->pid)
        ::kill(member, SIGTERM);
}

std::optional<int> ChildProcess::waitForExit(Duration limit) const {
    return state_->waitForExit(deadlineAfter(limit));
}

ChildProcess::Output ChildProcess::readToEnd(Duration limit, std::size_t maxBytes) {
    Output output;
    const auto deadline = deadlineAfter(limit);
    std::array<char, 65536> buffer;
    while (!output.atEnd && Clock::now() < deadline &&
           waitReady(state_->output.get(), POLLIN, deadline)) {
        const auto got = state_->readSome(buffer);
        if (got > 0) output.bytes.append(buffer.data(), static_cast<std::size_t>(got));
        output.atEnd = got == 0 || (got < 0 && errno != EAGAIN);
        if (output.bytes.size() > 2 * maxBytes)
            output.bytes.erase(0, output.bytes.size() - maxBytes);
    }
    if (output.bytes.size() > maxBytes) output.bytes.erase(0, output.bytes.size() - maxBytes);
    return output;
}

void ChildProcess::watch(OutputCallback onOutput, ExitCallback onExit) {
    watched_ = true;
    std::thread([state = state_, onOutput = std::move(onOutput), onExit = std::move(onExit)] {
        pthread_setname_np(pthread_self(), "sonra.child");
        onExit(state->deliverOutput(onOutput));
    }).detach();
}

}  // namespace sonra
