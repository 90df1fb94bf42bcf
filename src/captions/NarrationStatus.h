#pragma once

#include <optional>
#include <string>

namespace sonra {

/// What the narration is about, as the caption shows it.
struct NarrationStatus {
    enum class Phase { paused, idle, connecting, warming, synthesizing, playing };

    Phase phase = Phase::idle;
    int queued = 0;  ///< chunks that wait; of a pause only

    static NarrationStatus paused(int queued) { return {Phase::paused, queued}; }
    bool operator==(const NarrationStatus&) const = default;
};

/// Pure functions, any thread.
namespace NarrationStatusFormat {

/// The line shown where the caption has no words; absent while playing.
std::optional<std::string> placeholder(const NarrationStatus& status);
bool showsSpinner(const NarrationStatus& status);

}  // namespace NarrationStatusFormat
}  // namespace sonra
