#include "speech/VoiceCatalog.h"

#include <algorithm>

namespace sonra::VoiceCatalog {

const std::vector<Entry>& all() {
    static const std::vector<Entry> entries{
        {"af_heart", "Heart", "warm American female"},
        {"af_bella", "Bella", "conversational American female"},
        {"af_nicole", "Nicole", "American female"},
        {"af_sarah", "Sarah", "American female"},
        {"af_jessica", "Jessica", "American female"},
        {"af_sky", "Sky", "American female"},
        {"am_adam", "Adam", "American male"},
        {"am_michael", "Michael", "American male"},
        {"am_puck", "Puck", "American male"},
        {"am_eric", "Eric", "American male"},
        {"am_onyx", "Onyx", "American male"},
        {"bf_emma", "Emma", "expressive British female"},
        {"bf_isabella", "Isabella", "British female"},
        {"bf_alice", "Alice", "British female"},
        {"bf_lily", "Lily", "British female"},
        {"bm_george", "George", "British male"},
        {"bm_lewis", "Lewis", "British male"},
        {"bm_daniel", "Daniel", "British male"},
        {"bm_fable", "Fable", "British male"},
    };
    return entries;
}

const std::vector<Entry>& onboarding() {
    static const std::vector<Entry> entries = [] {
        std::vector<Entry> chosen;
        for (const std::string_view id : {"af_heart", "bf_emma", "am_adam", "af_bella"})
            if (const auto found = entry(id)) chosen.push_back(*found);
        return chosen;
    }();
    return entries;
}

std::optional<Entry> entry(std::string_view id) {
    const auto& entries = all();
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const Entry& candidate) { return candidate.id == id; });
    if (found == entries.end()) return std::nullopt;
    return *found;
}

}  // namespace sonra::VoiceCatalog
