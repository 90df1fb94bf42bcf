#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/Environment.h"
#include "frame/UniqueFd.h"

namespace sonra {

/// One child process, in a session of its own, with default signals and no descriptor but its three
/// streams.
///
/// A passive object: it acts only when it is called, but for the thread that `watch` starts. Any
/// thread may signal the child or ask for its exit; its input and its output belong to one thread
/// each. Destroying the object closes the streams and lets the child run on; it is reaped whenever
/// it ends. An exit status is the child's own code, or 128 plus the number of the signal that ended
/// it.
class ChildProcess {
  public:
    using Duration = std::chrono::nanoseconds;

    enum class Stream { null, inherit, pipe };
    enum class ErrorStream { null, inherit, likeOutput };
    struct Request {
        std::string executable;                ///< a path: PATH isn't searched
        std::vector<std::string> arguments{};  ///< without the program's own name
        Environment environment{};             ///< all of it
        Stream input = Stream::null;
        Stream output = Stream::null;
        ErrorStream error = ErrorStream::inherit;
    };
    struct Spawned {
        std::unique_ptr<ChildProcess> process;  ///< null on failure
        std::string error;                      ///< the system's reason, when process is null
    };
    using OutputCallback = std::function<void(std::string_view bytes)>;
    using ExitCallback = std::function<void(int status)>;

    /// Returns when the program has been loaded or couldn't be.
    static Spawned spawn(const Request& request);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] pid_t pid() const;
    [[nodiscard]] bool isRunning() const { return !waitForExit(Duration::zero()); }

    /// Writes everything within `limit`. On failure returns the reason; part of the bytes may be in
    /// the pipe then.
    std::optional<std::string> writeStdin(std::string_view bytes, Duration limit);
    void closeStdin();

    /// Signal 15 to the child and to the processes of its group; nothing once the child has been
    /// reaped.
    void terminate();
    /// As `terminate`, and `kill` if the child still runs after `grace`. Doesn't wait, and holds
    /// for a child whose object is gone by then.
    void terminateWithin(Duration grace);
    /// Signal 9, as `terminate`.
    void kill();
    /// Signal 15 to a process that the child started in its session, but outside its group. Nothing
    /// for any other.
    void terminateMember(pid_t member);

    /// The exit status; absent if the child still runs after `limit`.
    std::optional<int> waitForExit(Duration limit) const;

    struct Output {
        std::string bytes;
        bool atEnd = false;  ///< false if the limit passed first
    };
    /// Reads the output until it ends. Of more than `maxBytes` the last are kept. Not with `watch`.
    Output readToEnd(Duration limit, std::size_t maxBytes = 1U << 20U);

    /// Starts a thread that delivers the output as it comes, then the exit status, once; both
    /// callbacks run on it. Everything that the child itself wrote before its end is delivered. The
    /// thread sleeps while nothing happens, and outlives this object until the child has ended. At
    /// most once.
    void watch(OutputCallback onOutput, ExitCallback onExit);

  private:
    struct State;
    ChildProcess(std::shared_ptr<State> state, UniqueFd input);

    std::shared_ptr<State> state_;  ///< shared with the thread
    UniqueFd input_;
    bool watched_ = false;
};

}  // namespace sonra
