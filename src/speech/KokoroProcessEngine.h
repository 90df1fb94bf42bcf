#pragma once

#include <memory>
#include <optional>
#include <string>

#include "speech/KokoroStreamingContext.h"
#include "speech/PathResolver.h"
#include "speech/SpawnedEngine.h"

namespace sonra {

/// Speaks with the local voices by running the Python speech script once per request.
///
/// Slower to answer than the resident worker, and free of any state: it stands in where the worker
/// fails, and serves callers who need cancellation of their own.
class KokoroProcessEngine final : public SpawnedEngine {
  public:
    struct Options {
        std::optional<std::string> scriptOverride;  ///< taken instead of what scriptLocator finds
        PathResolver uvResolver;  ///< by default the launcher that is installed with the program
        ScriptLocator scriptLocator;  ///< by default the companion script
        Limits limits;
    };

    static std::shared_ptr<KokoroProcessEngine> make(WorkerPool& pool);
    static std::shared_ptr<KokoroProcessEngine> make(WorkerPool& pool, Options options);

    [[nodiscard]] const EngineDescriptor& descriptor() const override;
    [[nodiscard]] Readiness readiness() const override;
    /// Starts the script once, so that what it needs is installed before the first request.
    void warmup() override;
    /// For `streaming` requests that begin from now on.
    void setStreamingContext(std::optional<KokoroStreamingContext> context);

  private:
    KokoroProcessEngine(WorkerPool& pool, Options options);

    KokoroSpawnPlan planFor(const std::string& textFile, const SpeechConfig& config,
                            const std::string& outURL, Chunking chunking) const override;
    std::string spokenText(const std::string& text) const override;
    std::string script() const;
    KokoroSpawnPlan scriptPlan() const;

    const Options options_;
    mutable Mutex contextLock_;
    std::optional<KokoroStreamingContext> streamingContext_ SONRA_GUARDED_BY(contextLock_);
};

}  // namespace sonra
