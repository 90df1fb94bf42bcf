#pragma once

#include <memory>
#include <optional>
#include <string>

#include "speech/PathResolver.h"
#include "speech/SpawnedEngine.h"

namespace sonra {

/// Speaks with the cloud voices by running the Node.js client once per request. The text goes out
/// unchanged, and the engine has no speed. Needs a key, Node.js and the script; whatever is missing
/// is named by `readiness`.
class GeminiEngine final : public SpawnedEngine {
  public:
    struct Options {
        PathResolver nodeResolver;    ///< by default where Node.js is usually installed
        PathResolver scriptResolver;  ///< by default the companion script
        PathResolver keyResolver;     ///< by default defaultKeyResolver; may be slow
        Limits limits;
    };

    static std::shared_ptr<GeminiEngine> make(WorkerPool& pool);
    static std::shared_ptr<GeminiEngine> make(WorkerPool& pool, Options options);

    /// The environment variable GOOGLE_API_KEY, if it is set and not empty.
    static std::optional<std::string> defaultKeyResolver();

    [[nodiscard]] const EngineDescriptor& descriptor() const override;
    [[nodiscard]] Readiness readiness() const override;

  private:
    GeminiEngine(WorkerPool& pool, Options options);

    KokoroSpawnPlan planFor(const std::string& textFile, const SpeechConfig& config,
                            const std::string& outURL, Chunking chunking) const override;
    std::optional<std::string> key() const;

    const Options options_;
};

}  // namespace sonra
