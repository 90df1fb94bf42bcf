#pragma once

#include <functional>
#include <memory>
#include <string>

#include "history/MessageChunkProvider.h"

namespace sonra {

class HistoryPager;
class MainLoop;
class RingCacheProvider;
class SerialQueue;

/// Speaks a message of the transcript anew, as one chunk, and leaves it in the ring.
///
/// Main thread only; it never waits there: the text may have to be read first, and the speaking is
/// done on `synthQueue`, one message after the other. Has nothing at hand itself. A message whose
/// text isn't found or can't be spoken gives no chunk. What is superseded, or was begun before the
/// ring was cleared, leaves no file behind. A request that is under way outlives the provider.
class ResynthProvider : public MessageChunkProvider {
  public:
    /// Speaks `text` into a file; blocks, and says whether it worked.
    using Synth = std::function<bool(const std::string& text, const std::string& outputPath)>;

    ResynthProvider(MainLoop& loop, std::shared_ptr<HistoryPager> history,
                    std::shared_ptr<RingCacheProvider> ring, Synth synth,
                    std::shared_ptr<SerialQueue> synthQueue);

    [[nodiscard]] std::optional<std::vector<AudioChunk>> cachedChunks(
        const std::string& messageId) const override;
    void resolveChunks(Request request) override;

  private:
    struct Job;

    MainLoop& loop_;
    const std::shared_ptr<HistoryPager> history_;
    const std::shared_ptr<RingCacheProvider> ring_;
    const Synth synth_;
    const std::shared_ptr<SerialQueue> synthQueue_;
};

}  // namespace sonra
