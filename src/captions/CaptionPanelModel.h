#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "captions/KaraokeMath.h"
#include "captions/LiveIndicator.h"
#include "captions/NarrationStatus.h"
#include "frame/HarnessTheme.h"

namespace sonra {

/// What the caption panel shows, and what its controls do. The caption window writes it, one view
/// reads it and is told of every change. Main thread only; owns nothing but values.
class CaptionPanelModel {
  public:
    /// A value that tells the view when it changes; setting an equal one is no change.
    template <typename T>
    class Published {
      public:
        Published(CaptionPanelModel& model, T value) : model_(model), value_(std::move(value)) {}
        Published(const Published&) = delete;
        Published& operator=(const Published&) = delete;
        ~Published() = default;

        Published& operator=(T value) {
            if (value == value_) return *this;
            value_ = std::move(value);
            if (model_.onChange) model_.onChange(this);
            return *this;
        }
        const T& operator*() const { return value_; }
        const T* operator->() const { return &value_; }

      private:
        CaptionPanelModel& model_;
        T value_;
    };

    explicit CaptionPanelModel(double size) : fontSize(*this, size) {}
    CaptionPanelModel(const CaptionPanelModel&) = delete;
    CaptionPanelModel& operator=(const CaptionPanelModel&) = delete;
    ~CaptionPanelModel() = default;

    /// Called after each change with the address of the field that changed (compare with
    /// `&model.spectrum`, for instance). The view's; empty while there is no view.
    std::function<void(const void* field)> onChange;

    Published<double> fontSize;
    Published<std::string> chunkText{*this, {}};
    Published<std::optional<TextRange>> activeWordRange{*this, {}};
    /// Words that end at or before it have been spoken.
    Published<std::optional<std::size_t>> pastEndIndex{*this, {}};
    Published<int> chunkIndex{*this, 0};
    Published<int> chunkTotal{*this, 0};
    Published<double> elapsed{*this, 0};   ///< seconds
    Published<double> duration{*this, 0};  ///< seconds
    Published<double> progress{*this, 0};  ///< 0 to 1 of the chunk
    Published<bool> isPlaying{*this, false};
    Published<bool> isPaused{*this, false};
    Published<double> speed{*this, 1.0};
    Published<std::vector<float>> spectrum{*this, {}};       ///< levels, 0 to 1
    Published<std::vector<float>> spectrumPeaks{*this, {}};  ///< falling caps, 0 to 1
    Published<HarnessTheme> theme{*this, HarnessTheme::current("")};
    Published<std::string> sessionLabel{*this, {}};  ///< folder and branch of the session
    Published<LiveIndicator> liveIndicator{*this, {}};
    Published<int> newLiveCount{*this, 0};
    Published<NarrationStatus> status{*this, {}};

    std::function<void()> onPrev = [] {};
    std::function<void()> onPlayPause = [] {};
    std::function<void()> onNext = [] {};
    std::function<void()> onJumpToLive = [] {};
    std::function<void(double fraction)> onScrub = [](double) {};
};

}  // namespace sonra
