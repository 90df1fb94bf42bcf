#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "captions/CaptionAppearance.h"
#include "captions/CaptionPanelModel.h"
#include "platform/Geometry.h"
#include "platform/MainLoop.h"

namespace sonra {

class FloatingPanel;
class Screens;
class UserDefaults;

/// The caption: the text being spoken with its active word, the transport and where the panel
/// stands. It turns calls into the model that the panel paints, and what the user does on the panel
/// into callbacks.
///
/// Main thread only. Owns the model, the appearance and the panel; borrows its ports, which outlive
/// it. Hidden when made; whether it shows is its owner's choice. A stored setting that makes no
/// sense reads as the default; nothing else can fail. A callback must not destroy the window.
class CaptionWindow {
  public:
    /// Makes the panel that paints the model; never null. The model outlives it.
    using PanelFactory = std::function<std::unique_ptr<FloatingPanel>(CaptionPanelModel& model)>;

    static constexpr std::string_view originKey = "TTSCaptionsWindowOrigin";
    static constexpr std::string_view sizeKey = "TTSCaptionsWindowSize";

    CaptionWindow(MainLoop& loop, UserDefaults& defaults, Screens& screens,
                  const PanelFactory& makePanel);
    ~CaptionWindow();
    CaptionWindow(const CaptionWindow&) = delete;
    CaptionWindow& operator=(const CaptionWindow&) = delete;

    /// What the user did; any may be empty.
    std::function<void()> onPlayPause;
    std::function<void()> onSkip;
    std::function<void()> onRestart;
    std::function<void()> onClose;  ///< the panel has been hidden
    std::function<void()> onJumpToLive;
    std::function<void(double fraction)> onSeek;  ///< of the chunk, 0 to 1

    /// Brings the panel up, on a screen that is there, without taking the focus.
    void show();
    void hide();
    [[nodiscard]] bool isVisible() const;

    /// A new text, of which nothing has been spoken yet.
    void setText(const std::string& text);
    /// `progress` is the fraction of the chunk that has been heard, held between 0 and 1.
    void updateProgress(double progress);
    /// Such as "▶ 2/5"; a text without two figures hides the counter.
    void setCounter(std::string_view counter);
    void setPaused(bool paused);
    /// Nothing plays. The text stays on display.
    void setIdle();
    void updateSpectrum(const std::vector<float>& levels, const std::vector<float>& peaks);
    void setSpeed(double speed);
    void setElapsed(double seconds);
    void setDuration(double seconds);
    void setLiveIndicator(const LiveIndicator& indicator);
    void setNewLiveCount(int count);
    void setStatus(const NarrationStatus& status);
    void setTheme(const HarnessTheme& theme);
    void setSessionLabel(const std::string& label);

    /// Back to where it stands by default; what was stored of its place is forgotten.
    void resetPosition();

    [[nodiscard]] CaptionAppearance& appearance() { return appearance_; }
    [[nodiscard]] const CaptionPanelModel& viewModel() const { return viewModel_; }

  private:
    void connectModel();
    void connectPanel();
    void applyAppearance();
    [[nodiscard]] Rect firstFrame() const;
    [[nodiscard]] std::optional<Rect> screenFor(const Rect& frame) const;
    void persistFrame();
    void showActiveWord(int index);
    void scrub(double fraction);

    MainLoop& loop_;
    UserDefaults& defaults_;
    Screens& screens_;
    CaptionAppearance appearance_;
    CaptionPanelModel viewModel_;
    std::unique_ptr<FloatingPanel> window_;

    std::vector<KaraokeWord> words_;  ///< of the text on display
    int lastIndex_ = -2;              ///< last active word, -1 for none; -2 right after a new text
    bool userScrubbing_ = false;      ///< the progress bar is under the user's finger
    LoopHandle scrubResumer_;
};

}  // namespace sonra
