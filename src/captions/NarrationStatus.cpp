#include "captions/NarrationStatus.h"

namespace sonra::NarrationStatusFormat {

std::optional<std::string> placeholder(const NarrationStatus& status) {
    switch (status.phase) {
        case NarrationStatus::Phase::paused:
            return status.queued < 1 ? "Paused"
                                     : "Paused · " + std::to_string(status.queued) + " queued";
        case NarrationStatus::Phase::idle:
            return "Waiting for narration…";
        case NarrationStatus::Phase::connecting:
            return "Connecting to session…";
        case NarrationStatus::Phase::warming:
            return "Warming up voice…";
        case NarrationStatus::Phase::synthesizing:
            return "Synthesizing…";
        case NarrationStatus::Phase::playing:
            break;
    }
    return std::nullopt;
}

bool showsSpinner(const NarrationStatus& status) {
    return status.phase == NarrationStatus::Phase::connecting ||
           status.phase == NarrationStatus::Phase::warming ||
           status.phase == NarrationStatus::Phase::synthesizing;
}

}  // namespace sonra::NarrationStatusFormat
