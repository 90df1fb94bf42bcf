#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "frame/AudioChunk.h"

namespace sonra {

/// The chunks that wait to be played, and the count of the present turn: a run of chunks of one
/// session. Main thread only; knows nothing of sound or files.
class TurnQueue {
  public:
    /// Appends. A chunk of another session, or one that comes while nothing waits or is `loaded`,
    /// begins a turn.
    void add(AudioChunk chunk, bool loaded);
    /// Makes `chunks`, of which there is at least one, the present turn, as if those before `start`
    /// had been played.
    void replace(std::vector<AudioChunk> chunks, std::size_t start);
    /// Removes the first chunk and counts it as started. There must be one.
    AudioChunk takeNext();
    /// Empties the queue and returns what was in it; the turn has no chunks any more, but keeps its
    /// session.
    std::deque<AudioChunk> dropAll();

    [[nodiscard]] bool empty() const { return chunks_.empty(); }
    [[nodiscard]] std::size_t size() const { return chunks_.size(); }
    /// Chunks of this turn, played, playing and waiting.
    [[nodiscard]] int totalChunksThisTurn() const { return totalChunksThisTurn_; }
    /// One-based number of the chunk that was started last; 0 before the first.
    [[nodiscard]] int chunkIndexThisTurn() const { return chunkIndexThisTurn_; }

  private:
    std::deque<AudioChunk> chunks_;
    int totalChunksThisTurn_ = 0;
    int chunkIndexThisTurn_ = 0;
    std::string sessionIdThisTurn_;
};

}  // namespace sonra
