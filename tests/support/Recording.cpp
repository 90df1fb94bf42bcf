#include "support/Recording.h"

#include <algorithm>
#include <cmath>

namespace sonra::test {
namespace {

// Half a step of a 16-bit sink, and the rounding of its volume.
constexpr float tolerance = 2.0F / 32768;

bool isAudible(float sample) {
    return std::abs(sample) > Recording::audible;
}

}  // namespace

std::vector<Recording::Utterance> Recording::utterances(std::chrono::milliseconds gap) const {
    const auto quiet = static_cast<std::size_t>(gap.count()) * rate / 1000;
    std::vector<Utterance> found;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (!isAudible(samples[i])) continue;
        if (found.empty() || i - found.back().end >= quiet) found.push_back({i, i});
        found.back().end = i + 1;
    }
    return found;
}

std::vector<float> Recording::sound() const {
    std::vector<float> heard;
    std::copy_if(samples.begin(), samples.end(), std::back_inserter(heard), isAudible);
    return heard;
}

double Recording::rms(std::size_t begin, std::size_t end) const {
    double sum = 0;
    for (std::size_t i = begin; i < end; ++i) sum += static_cast<double>(samples[i]) * samples[i];
    return end > begin ? std::sqrt(sum / static_cast<double>(end - begin)) : 0;
}

std::optional<std::size_t> Recording::find(std::span<const float> pattern, std::size_t from,
                                           float scale) const {
    const auto same = [scale](float heard, float played) {
        return std::abs(heard - played * scale) <= tolerance;
    };
    const bool silent = std::any_of(pattern.begin(), pattern.end(),
                                    [scale](float sample) { return !isAudible(sample * scale); });
    std::vector<std::size_t> places;
    for (std::size_t i = from; i < samples.size(); ++i)
        if (silent || isAudible(samples[i])) places.push_back(i);
    const auto at =
        std::search(places.begin(), places.end(), pattern.begin(), pattern.end(),
                    [&](std::size_t place, float played) { return same(samples[place], played); });
    if (at == places.end()) return std::nullopt;
    return *at;
}

Recording::Clock::time_point Recording::arrivedAt(std::size_t sample) const {
    const auto later = [](std::size_t index, const Arrival& arrival) {
        return index < arrival.end;
    };
    const auto at = std::upper_bound(arrivals.begin(), arrivals.end(), sample, later);
    return at == arrivals.end() ? Clock::time_point::max() : at->at;
}

}  // namespace sonra::test
