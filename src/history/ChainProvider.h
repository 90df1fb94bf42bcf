#pragma once

#include <memory>
#include <vector>

#include "history/MessageChunkProvider.h"

namespace sonra {

/// Asks several providers in order: the first that has chunks at hand serves a message, else the
/// last. Main thread only; shares its providers. Without any, nothing is ever called back.
class ChainProvider : public MessageChunkProvider {
  public:
    explicit ChainProvider(std::vector<std::shared_ptr<MessageChunkProvider>> providers);

    [[nodiscard]] std::optional<std::vector<AudioChunk>> cachedChunks(
        const std::string& messageId) const override;
    void resolveChunks(Request request) override;

  private:
    const std::vector<std::shared_ptr<MessageChunkProvider>> providers_;
};

}  // namespace sonra
