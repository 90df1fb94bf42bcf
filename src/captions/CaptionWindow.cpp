#include "captions/CaptionWindow.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "captions/CaptionFrame.h"
#include "frame/ThreadAffinity.h"
#include "platform/FloatingPanel.h"
#include "platform/Screens.h"
#include "platform/UserDefaults.h"

namespace sonra {
namespace {

constexpr std::chrono::milliseconds scrubResumeDelay{250};
constexpr int noIndex = -2;
constexpr std::string_view digits = "0123456789";
constexpr auto waitingText = "Waiting for narration…";

/// 0 for a value that is no number.
double heldFraction(double value) {
    return value > 0 ? std::min(value, 1.0) : 0.0;
}

/// 0 without digits, or with more of them than a counter can have.
int figure(std::string_view text) {
    int value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

void call(const std::function<void()>& callback) {
    if (callback) callback();
}

}  // namespace

CaptionWindow::CaptionWindow(MainLoop& loop, UserDefaults& defaults, Screens& screens,
                             const PanelFactory& makePanel)
    : loop_(loop),
      defaults_(defaults),
      screens_(screens),
      appearance_(defaults),
      viewModel_(appearance_.fontSize()),
      window_(makePanel(viewModel_)) {
    SONRA_ASSERT_MAIN_THREAD();
    window_->setFrame(firstFrame(), false);
    window_->setOpacity(appearance_.opacity());
    connectModel();
    connectPanel();
    appearance_.appearanceChanged = [this] { applyAppearance(); };
    appearance_.resetPosition = [this] { resetPosition(); };
}

CaptionWindow::~CaptionWindow() = default;

void CaptionWindow::connectModel() {
    viewModel_.onPrev = [this] { call(onRestart); };
    viewModel_.onPlayPause = [this] { call(onPlayPause); };
    viewModel_.onNext = [this] { call(onSkip); };
    viewModel_.onJumpToLive = [this] { call(onJumpToLive); };
    viewModel_.onScrub = [this](double fraction) { scrub(fraction); };
}

void CaptionWindow::connectPanel() {
    window_->onFrameChanged = [this] { persistFrame(); };
    window_->onCloseRequested = [this] {
        hide();
        call(onClose);
    };
}

void CaptionWindow::applyAppearance() {
    window_->setOpacity(appearance_.opacity());
    viewModel_.fontSize = appearance_.fontSize();
}

Rect CaptionWindow::firstFrame() const {
    const auto origin = CaptionFrame::pointFrom(defaults_.string(originKey).value_or(""));
    const auto size = CaptionFrame::sizeFrom(defaults_.string(sizeKey).value_or(""));
    const Rect stored{origin.value_or(Point()), size.value_or(Size())};
    const bool isStored = origin && size;
    const auto screen = isStored ? screenFor(stored) : screens_.mainVisibleFrame();
    const Rect visible = screen.value_or(CaptionFrame::assumedScreen);
    return isStored ? CaptionFrame::held(stored, visible) : CaptionFrame::standard(visible);
}

/// The screen on which a frame stands, or the primary one if that screen has gone.
std::optional<Rect> CaptionWindow::screenFor(const Rect& frame) const {
    const auto own = screens_.visibleFrameOf(frame);
    return own ? own : screens_.mainVisibleFrame();
}

void CaptionWindow::persistFrame() {
    SONRA_ASSERT_MAIN_THREAD();
    const Rect frame = window_->frame();
    defaults_.set(originKey, CaptionFrame::text(frame.origin));
    defaults_.set(sizeKey, CaptionFrame::text(frame.size));
}

void CaptionWindow::resetPosition() {
    SONRA_ASSERT_MAIN_THREAD();
    defaults_.remove(originKey);
    defaults_.remove(sizeKey);
    const Rect visible = screens_.mainVisibleFrame().value_or(CaptionFrame::assumedScreen);
    window_->setFrame(CaptionFrame::standard(visible), window_->isVisible());
}

void CaptionWindow::show() {
    SONRA_ASSERT_MAIN_THREAD();
    // The screen on which it was left may have gone.
    if (const auto visible = screenFor(window_->frame())) {
        const Rect frame = CaptionFrame::held(window_->frame(), *visible);
        if (frame != window_->frame()) window_->setFrame(frame, false);
    }
    if (words_.empty()) setText(waitingText);
    window_->orderFront();
}

void CaptionWindow::hide() {
    SONRA_ASSERT_MAIN_THREAD();
    window_->orderOut();
}

bool CaptionWindow::isVisible() const {
    return window_->isVisible();
}

void CaptionWindow::setText(const std::string& text) {
    SONRA_ASSERT_MAIN_THREAD();
    words_ = KaraokeMath::tokenize(text);
    lastIndex_ = noIndex;
    if (!userScrubbing_) viewModel_.progress = 0;
    // Before the text, so that the view never sees a range that isn't of the text it has.
    viewModel_.activeWordRange = std::nullopt;
    viewModel_.pastEndIndex = 0;
    viewModel_.chunkText = text;
}

void CaptionWindow::updateProgress(double progress) {
    SONRA_ASSERT_MAIN_THREAD();
    const double held = heldFraction(progress);
    if (!userScrubbing_) viewModel_.progress = held;
    if (words_.empty()) return;
    const int index = KaraokeMath::wordIndex(held, words_.size());
    if (index == lastIndex_) return;
    lastIndex_ = index;
    showActiveWord(index);
}

void CaptionWindow::showActiveWord(int index) {
    if (index < 0) {
        viewModel_.activeWordRange = std::nullopt;
        viewModel_.pastEndIndex = 0;
        return;
    }
    const TextRange range = words_[static_cast<std::size_t>(index)].range;
    viewModel_.activeWordRange = range;
    viewModel_.pastEndIndex = range.begin;
}

void CaptionWindow::setCounter(std::string_view counter) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto slash = std::min(counter.find('/'), counter.size());
    const auto before = counter.substr(0, slash);
    const auto after = counter.substr(std::min(slash + 1, counter.size()));
    const auto begin = before.find_last_not_of(digits) + 1;  // 0 where there are only digits
    viewModel_.chunkIndex = slash == counter.size() ? 0 : figure(before.substr(begin));
    viewModel_.chunkTotal = figure(after.substr(0, after.find_first_not_of(digits)));
}

void CaptionWindow::setPaused(bool paused) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.isPaused = paused;
    viewModel_.isPlaying = !paused;
}

void CaptionWindow::setIdle() {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.progress = 0;
    viewModel_.chunkIndex = 0;
    viewModel_.chunkTotal = 0;
    updateSpectrum({}, {});
    viewModel_.status = NarrationStatus{};
}

void CaptionWindow::updateSpectrum(const std::vector<float>& levels,
                                   const std::vector<float>& peaks) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.spectrum = levels;
    viewModel_.spectrumPeaks = peaks;
}

void CaptionWindow::setSpeed(double speed) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.speed = speed;
}

void CaptionWindow::setElapsed(double seconds) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.elapsed = seconds;
}

void CaptionWindow::setDuration(double seconds) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.duration = seconds;
}

void CaptionWindow::setLiveIndicator(const LiveIndicator& indicator) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.liveIndicator = indicator;
}

void CaptionWindow::setNewLiveCount(int count) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.newLiveCount = std::max(count, 0);
}

void CaptionWindow::setStatus(const NarrationStatus& status) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.status = status;
}

void CaptionWindow::setTheme(const HarnessTheme& theme) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.theme = theme;
}

void CaptionWindow::setSessionLabel(const std::string& label) {
    SONRA_ASSERT_MAIN_THREAD();
    viewModel_.sessionLabel = label;
}

void CaptionWindow::scrub(double fraction) {
    SONRA_ASSERT_MAIN_THREAD();
    const double held = heldFraction(fraction);
    userScrubbing_ = true;
    viewModel_.progress = held;
    if (onSeek) onSeek(held);
    // A drag seeks many times; the bar follows the sound again some time after the last one.
    scrubResumer_ = loop_.after(scrubResumeDelay, [this] { userScrubbing_ = false; });
}

}  // namespace sonra
