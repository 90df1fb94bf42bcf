#pragma once

namespace sonra {

/// What is playing at this moment. A value.
struct AudioProbe {
    double position = 0;  ///< seconds into the present chunk
    int chunkIndex = 0;   ///< one-based number of the chunk in its turn
    int totalChunks = 0;  ///< chunks of the turn

    bool operator==(const AudioProbe&) const = default;
};

}  // namespace sonra
