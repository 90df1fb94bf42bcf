#pragma once

#include <functional>
#include <string_view>

namespace sonra {

class UserDefaults;

/// Size of the caption's text and opacity of its window, as the user has set them.
///
/// Main thread only; borrows the settings, which outlive it. A setting that is missing or of
/// another type reads as its default, one out of range as the nearest that is in it. Whoever
/// shows the caption sets the callbacks.
class CaptionAppearance {
  public:
    static constexpr std::string_view fontSizeKey = "TTSCaptionsFontSize";
    static constexpr std::string_view opacityKey = "TTSCaptionsOpacity";
    static constexpr double minFontSize = 14;
    static constexpr double maxFontSize = 34;
    static constexpr double defaultFontSize = 22;
    static constexpr double minOpacity = 0.5;
    static constexpr double maxOpacity = 1.0;
    static constexpr double defaultOpacity = 1.0;

    explicit CaptionAppearance(UserDefaults& defaults) : defaults_(defaults) {}
    CaptionAppearance(const CaptionAppearance&) = delete;
    CaptionAppearance& operator=(const CaptionAppearance&) = delete;

    /// A setting was stored; the caption takes it up at once.
    std::function<void()> appearanceChanged = [] {};
    /// The caption is to go back to where it stands by default. Called by whoever wants that.
    std::function<void()> resetPosition = [] {};

    [[nodiscard]] double fontSize() const;  ///< logical pixels
    [[nodiscard]] double opacity() const;   ///< of the whole window
    void setFontSize(double size);
    void setOpacity(double opacity);

  private:
    UserDefaults& defaults_;
};

}  // namespace sonra
