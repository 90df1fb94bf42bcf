#include "playback/SpectrumFeed.h"

#include "frame/ThreadAffinity.h"
#include "frame/WorkerPool.h"
#include "platform/MainLoop.h"
#include "playback/SpectrumAnalyzer.h"
#include "playback/SpectrumConfig.h"

namespace sonra {
namespace config = SpectrumConfig;

/// What is known of one file. Work in the background holds it weakly, so that a result finds it
/// gone once another file has taken its place. Its content is touched on the main thread only.
struct SpectrumFeed::Analysis {
    std::shared_ptr<const Spectrogram> spectrogram;
};

SpectrumFeed::SpectrumFeed(MainLoop& loop, WorkerPool& pool)
    : loop_(loop), pool_(pool), smoother_(config::bandCount), zeros_(config::bandCount) {}

void SpectrumFeed::begin(const std::string& path) {
    SONRA_ASSERT_MAIN_THREAD();
    reset();
    analysis_ = std::make_shared<Analysis>();
    pool_.post([&loop = loop_, path, pending = std::weak_ptr(analysis_)] {
        if (pending.expired()) return;
        auto result =
            SpectrumAnalyzer::analyze(path, config::bandCount, config::hopSeconds, config::fftSize);
        if (!result) return;
        auto spectrogram = std::make_shared<const Spectrogram>(std::move(*result));
        loop.post([pending, spectrogram = std::move(spectrogram)] {
            if (const auto analysis = pending.lock()) analysis->spectrogram = spectrogram;
        });
    });
}

void SpectrumFeed::reset() {
    SONRA_ASSERT_MAIN_THREAD();
    analysis_ = nullptr;
    smoother_.reset();
}

SpectrumSmoother::Bars SpectrumFeed::tick(std::optional<double> time) {
    SONRA_ASSERT_MAIN_THREAD();
    if (time && analysis_ && analysis_->spectrogram)
        return smoother_.advance(analysis_->spectrogram->bands(*time));
    return smoother_.advance(zeros_);
}

}  // namespace sonra
