#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/ChildProcess.h"
#include "frame/Log.h"
#include "frame/Semaphore.h"
#include "frame/SerialQueue.h"
#include "speech/KokoroSpawnPlan.h"
#include "speech/KokoroWorkerEngine.h"
#include "speech/WorkerLineReader.h"
#include "speech/WorkerMessage.h"
#include "speech/WorkerRequest.h"

namespace sonra {

/// The worker's state and the life of its process; the engine's other half, kept apart so that
/// threads that wait and callbacks that come late can outlive the engine.
///
/// Everything but the submit gate belongs to `ioQueue`. The process's own thread only posts there,
/// with the number of the generation that it serves: what an earlier process still has to say
/// touches nothing.
class KokoroWorkerEngine::Core : public std::enable_shared_from_this<Core> {
  public:
    /// A request in flight. Settled on ioQueue; the waiting thread reads the result after `sem`.
    struct Pending {
        std::int64_t id = 0;
        std::string file;  ///< that the worker writes
        std::optional<WorkerMessage> result;
        Semaphore sem;
        bool settled = false;
    };

    explicit Core(Options options);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    [[nodiscard]] const Limits& limits() const { return options_.limits; }
    SerialQueue& ioQueue() { return ioQueue_; }
    Semaphore& submitGate() { return submitGate_; }

    // All below on ioQueue.
    [[nodiscard]] bool isReady() const { return ready_ && !disabled_; }
    [[nodiscard]] std::optional<std::int32_t> pid() const;
    /// Starts the worker unless it runs or is given up. Something to wait on if it isn't ready yet.
    std::shared_ptr<Semaphore> start();
    /// Null if the request could not be made; `request.id` is set here.
    std::shared_ptr<Pending> submit(WorkerRequest request);
    void abandon(const std::shared_ptr<Pending>& pending);
    void stop();

  private:
    void spawn();
    KokoroSpawnPlan plan() const;
    void adopt(std::shared_ptr<ChildProcess> process);
    void observe(ChildProcess& process);
    void armReadyTimer();

    void received(std::uint64_t generation, std::string_view bytes);
    void handle(std::string_view line);
    void becameReady(const WorkerMessage& message);
    void answered(const WorkerMessage& message);
    void exited(std::uint64_t generation, int status);
    void readyTimedOut(std::uint64_t generation);

    void endProcess();
    void forgetProcess();
    void settlePending(const WorkerMessage& result);
    void removeAbandoned(const WorkerMessage& result);
    void failReadyWaiters();

    const Options options_;
    const Log log_;
    SerialQueue ioQueue_;
    Semaphore submitGate_{1};

    std::shared_ptr<ChildProcess> proc_;
    std::uint64_t generation_ = 0;  ///< counts processes, and the ends of processes
    bool ready_ = false;
    bool disabled_ = false;
    WorkerLineReader buf_;
    std::int64_t nextId_ = 1;
    std::int32_t workerPid_ = 0;
    std::shared_ptr<Pending> pending_;
    /// Files by request, of requests that nobody waits for any more: the worker may still write
    /// them.
    std::map<std::int64_t, std::string> abandoned_;
    std::vector<std::shared_ptr<Semaphore>> readyWaiters_;
    SerialQueue::Timer readyTimer_;
};

}  // namespace sonra
