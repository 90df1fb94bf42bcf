#include "history/ChainProvider.h"

#include <utility>

#include "frame/ThreadAffinity.h"

namespace sonra {

ChainProvider::ChainProvider(std::vector<std::shared_ptr<MessageChunkProvider>> providers)
    : providers_(std::move(providers)) {}

std::optional<std::vector<AudioChunk>> ChainProvider::cachedChunks(
    const std::string& messageId) const {
    SONRA_ASSERT_MAIN_THREAD();
    for (const auto& provider : providers_)
        if (auto chunks = provider->cachedChunks(messageId)) return chunks;
    return std::nullopt;
}

void ChainProvider::resolveChunks(Request request) {
    SONRA_ASSERT_MAIN_THREAD();
    if (providers_.empty()) return;
    // A copy, since what is called back may let go of the chain.
    auto chosen = providers_.back();
    for (const auto& provider : providers_) {
        if (!provider->cachedChunks(request.ref.messageId)) continue;
        chosen = provider;
        break;
    }
    chosen->resolveChunks(std::move(request));
}

}  // namespace sonra
