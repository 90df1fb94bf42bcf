#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "frame/Mutex.h"
#include "speech/KokoroSpawnPlan.h"
#include "speech/SpeechEngine.h"

namespace sonra {

class ChildProcess;
class WorkerPool;

/// What the engines that start one short-lived process per request have in common: running a plan.
///
/// Any thread may call. Several requests may run at once, each with a thread of the pool, a process
/// and a temporary directory of its own; a request keeps the engine alive, so engines are made by
/// their `make` functions. The pool is borrowed and must outlive every call.
class SpawnedEngine : public SpeechEngine, public std::enable_shared_from_this<SpawnedEngine> {
  public:
    /// Longest life of a request's process; after it the process is ended and the request fails.
    struct Limits {
        std::chrono::nanoseconds combined = std::chrono::minutes(10);
        std::chrono::nanoseconds streaming = std::chrono::hours(4);  ///< it plays what it speaks
    };

    /// What `synthesize` would start. Throws SynthError.
    [[nodiscard]] KokoroSpawnPlan buildPlan(const std::string& text, const SpeechConfig& config,
                                            const std::string& outURL, Chunking chunking) const;
    void synthesize(std::string text, SpeechConfig config, SynthesisSink sink, Chunking chunking,
                    ChunkCallback onChunk, DoneCallback onDone) final;
    /// Ends the process of the most recent request, also one that is still to start; it then fails.
    void cancelCurrent();

  protected:
    /// As messages call the engine: its type's name, and a short one.
    struct Names {
        std::string type;
        std::string brief;
    };
    SpawnedEngine(WorkerPool& pool, Names names, Limits limits);

    WorkerPool& pool() { return pool_; }

  private:
    struct Job {
        std::uint64_t number;
        std::string text;
        SpeechConfig config;
        SynthesisSink sink;
        Chunking chunking;
    };

    /// Throws SynthError.
    virtual KokoroSpawnPlan planFor(const std::string& textFile, const SpeechConfig& config,
                                    const std::string& outURL, Chunking chunking) const = 0;
    /// What the process is given to speak.
    virtual std::string spokenText(const std::string& text) const { return text; }

    std::string newTextFile() const;
    void perform(const Job& job, const ChunkCallback& onChunk);
    void runPlan(const KokoroSpawnPlan& plan, const std::string& outURL, const Job& job);
    bool isCancelled(std::uint64_t number);
    void finish(ChildProcess& process, const std::string& outURL, Chunking chunking) const;

    WorkerPool& pool_;
    const Names names_;
    const Limits limits_;
    Mutex procLock_;
    std::shared_ptr<ChildProcess> currentProc_ SONRA_GUARDED_BY(procLock_);
    std::uint64_t latest_ SONRA_GUARDED_BY(procLock_) = 0;  ///< number of the last request, from 1
    std::uint64_t cancelled_ SONRA_GUARDED_BY(procLock_) = 0;
};

}  // namespace sonra
