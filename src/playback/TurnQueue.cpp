#include "playback/TurnQueue.h"

#include <iterator>
#include <utility>

namespace sonra {

void TurnQueue::add(AudioChunk chunk, bool loaded) {
    if (chunk.sessionId != sessionIdThisTurn_ || (chunks_.empty() && !loaded)) {
        sessionIdThisTurn_ = chunk.sessionId;
        totalChunksThisTurn_ = 0;
        chunkIndexThisTurn_ = 0;
    }
    ++totalChunksThisTurn_;
    chunks_.push_back(std::move(chunk));
}

void TurnQueue::replace(std::vector<AudioChunk> chunks, std::size_t start) {
    sessionIdThisTurn_ = chunks[start].sessionId;
    totalChunksThisTurn_ = static_cast<int>(chunks.size());
    chunkIndexThisTurn_ = static_cast<int>(start);
    const auto first = chunks.begin() + static_cast<std::ptrdiff_t>(start);
    chunks_.assign(std::make_move_iterator(first), std::make_move_iterator(chunks.end()));
}

AudioChunk TurnQueue::takeNext() {
    AudioChunk chunk = std::move(chunks_.front());
    chunks_.pop_front();
    ++chunkIndexThisTurn_;
    return chunk;
}

std::deque<AudioChunk> TurnQueue::dropAll() {
    totalChunksThisTurn_ = 0;
    chunkIndexThisTurn_ = 0;
    return std::exchange(chunks_, {});
}

}  // namespace sonra
