#pragma once

#include <functional>
#include <optional>
#include <string>

#include "speech/EngineDescriptor.h"
#include "speech/Readiness.h"
#include "speech/SpeechConfig.h"
#include "speech/SynthError.h"
#include "speech/SynthesisSink.h"

namespace sonra {

enum class Chunking {
    combined,  ///< one audio file for the whole text
    streaming  ///< the spawned process speaks and plays the text itself
};

/// One piece of finished work.
struct SynthChunk {
    std::optional<std::string> url;  ///< path of the audio file, if there is one
    std::string text;
    int index = 0;

    bool operator==(const SynthChunk&) const = default;
};

/// Turns text into speech. Engines live outside this process; this is how the rest of the program
/// sees them.
///
/// Any thread may call; no call blocks. An engine may be let go while it works: the request goes on
/// to its end.
class SpeechEngine {
  public:
    using ChunkCallback = std::function<void(const SynthChunk&)>;
    using DoneCallback = std::function<void(const std::optional<SynthError>& error)>;

    virtual ~SpeechEngine() = default;

    [[nodiscard]] virtual const EngineDescriptor& descriptor() const = 0;
    /// A cheap look at what is installed; starts nothing.
    [[nodiscard]] virtual Readiness readiness() const = 0;
    /// Gets slow first steps over with, in the background. Failure is silent.
    virtual void warmup() {}
    /// Runs `onChunk` for each finished piece, in order, and then `onDone`, exactly once, with the
    /// error or without. Both run on a worker thread, never inside this call; they must not throw.
    virtual void synthesize(std::string text, SpeechConfig config, SynthesisSink sink,
                            Chunking chunking, ChunkCallback onChunk, DoneCallback onDone) = 0;
};

}  // namespace sonra
