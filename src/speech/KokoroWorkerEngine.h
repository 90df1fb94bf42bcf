#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "frame/Environment.h"
#include "speech/PathResolver.h"

namespace sonra {

/// Keeps one speech process running, so that its model is loaded once, and has it write one sound
/// file at a time.
///
/// Any thread may call; what blocks is for background threads. Callers are served one after the
/// other. Every failure is a false result and one line in the log, and the caller then speaks that
/// text by other means; a worker that died is started again at the next use, while one that can't
/// be started, or doesn't get ready, is given up for good. `stop` and destruction fail the request
/// in flight at once.
class KokoroWorkerEngine {
  public:
    using Duration = std::chrono::nanoseconds;

    static constexpr std::chrono::seconds readyTimeout{120};

    struct Limits {
        Duration ready = readyTimeout;  ///< from the start of the process to "ready"
        Duration readySlack = std::chrono::seconds(5);  ///< that waiters allow on top of it
        Duration synthesis = readyTimeout;              ///< from the request to its result
        Duration write = std::chrono::seconds(5);       ///< of one request into the pipe
        Duration ending =
            std::chrono::seconds(5);  ///< from the request to end until the process is killed
    };
    struct Options {
        std::optional<std::string> scriptOverride;  ///< taken instead of what scriptLocator finds
        PathResolver uvResolver;  ///< by default the launcher that is installed with the program
        Environment extraEnv;     ///< overrides all else
        ScriptLocator scriptLocator;  ///< by default the companion script
        Limits limits;
    };

    /// Nothing is started yet.
    KokoroWorkerEngine();
    explicit KokoroWorkerEngine(Options options);
    ~KokoroWorkerEngine();
    KokoroWorkerEngine(const KokoroWorkerEngine&) = delete;
    KokoroWorkerEngine& operator=(const KokoroWorkerEngine&) = delete;

    /// Starts the worker if there is none, and blocks until it is ready or given up.
    bool startAndWaitReady();
    [[nodiscard]] bool readyNow() const;
    /// Blocks; true when the WAV file is at `outURL`. `voice` is the id alone.
    bool synthCombinedToFile(const std::string& text, const std::string& voice, double speed,
                             const std::string& outURL);
    /// Of the process that was started; absent when there is none.
    [[nodiscard]] std::optional<std::int32_t> currentPid() const;
    /// Ends the worker, if there is one. The next use starts another.
    void stop();

  private:
    class Core;
    static bool awaitReady(Core& core);

    std::shared_ptr<Core> core_;
};

}  // namespace sonra
