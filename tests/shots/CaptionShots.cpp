// Pictures of the caption panel in all its states. At scale 2, only what differs by scale is drawn.
#include <QApplication>
#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "shots/Canvas.h"
#include "shots/Shots.h"
#include "widgets/CaptionPanel.h"
#include "widgets/DesktopLook.h"

namespace {

using sonra::CaptionPanelModel;
using sonra::HarnessTheme;
using sonra::LiveIndicator;
using sonra::Look;
using sonra::NarrationStatus;

constexpr int margin = 48;

constexpr auto reply =
    "I moved the retry loop into its own function, so the tailer no longer blocks while the worker "
    "restarts. All forty tests pass, and the two flaky ones now wait for a condition instead of "
    "sleeping.";
constexpr auto longReply =
    "The transcript reader used to keep the whole file in memory, which was fine for short "
    "sessions and painful for long ones. It now reads backward in blocks, hands out complete lines "
    "only, and remembers where the last block ended. A line that straddles two blocks is joined "
    "before it is parsed, so nothing is spoken twice and nothing is lost. I also removed the "
    "second "
    "cache, since the first one already keeps what the panel shows. Next I would like to look at "
    "the start of playback, where a quarter of a second goes missing on some machines.";

struct Shot {
    std::string name;
    Look look;
    std::function<void(CaptionPanelModel&)> prepare;
    QSize size{820, 260};
    bool alsoLarge = false;
};

std::vector<float> voice(double phase, double loudness) {
    std::vector<float> levels;
    for (int band = 0; band < 32; ++band) {
        const double formants = 0.85 * std::exp(-std::pow((band - 2.5 - phase) / 2.2, 2)) +
                                0.7 * std::exp(-std::pow((band - 13.5) / 2.0, 2)) +
                                0.5 * std::exp(-std::pow((band - 19 + phase) / 2.4, 2)) +
                                0.42 * std::exp(-std::pow((band - 30) / 2.6, 2));
        const double ripple = 0.07 + 0.06 * std::sin(band * 2.1 + phase * 3);
        levels.push_back(static_cast<float>(std::min(1.0, loudness * (formants + ripple))));
    }
    return levels;
}

void activate(CaptionPanelModel& model, std::size_t word) {
    const auto words = sonra::KaraokeMath::tokenize(*model.chunkText);
    const auto range = words.at(std::min(word, words.size() - 1)).range;
    model.activeWordRange = range;
    model.pastEndIndex = range.begin;
    model.progress = double(word + 1) / double(words.size() + 1);
}

/// A narration that is under way.
void play(CaptionPanelModel& model, const std::string& text, std::size_t word) {
    model.chunkText = text;
    activate(model, word);
    model.status = NarrationStatus{NarrationStatus::Phase::playing};
    model.isPlaying = true;
    model.chunkIndex = 2;
    model.chunkTotal = 5;
    model.speed = 1.5;
    model.sessionLabel = std::string("sonra · main");
    model.liveIndicator = LiveIndicator{LiveIndicator::Live{}};
    auto levels = voice(0.4, 0.95);
    auto peaks = levels;
    for (std::size_t i = 0; i < peaks.size(); ++i)
        peaks[i] = std::min(1.F, peaks[i] + (i % 3 == 0 ? 0.02F : 0.07F));
    model.spectrum = levels;
    model.spectrumPeaks = peaks;
}

void rest(CaptionPanelModel& model, NarrationStatus status) {
    model.status = status;
    model.sessionLabel = std::string("sonra · main");
    model.liveIndicator = LiveIndicator{LiveIndicator::Live{}};
}

Look dark() {
    return {};
}
Look light() {
    return {.dark = false};
}

void addStates(std::vector<Shot>& shots) {
    using Phase = NarrationStatus::Phase;
    shots.push_back({"idle", dark(), [](auto& model) { model.sessionLabel = std::string(); }});
    shots.push_back({"connecting", dark(), [](auto& model) { rest(model, {Phase::connecting}); }});
    shots.push_back({"warming-light", light(), [](auto& model) { rest(model, {Phase::warming}); }});
    shots.push_back({"synthesizing", dark(), [](auto& model) {
                         play(model, reply, 60);
                         model.isPlaying = false;
                         model.spectrum = std::vector<float>();
                         model.spectrumPeaks = std::vector<float>();
                         model.status = NarrationStatus{Phase::synthesizing};
                     }});
    shots.push_back(
        {"playing", dark(), [](auto& model) { play(model, reply, 19); }, {820, 260}, true});
    shots.push_back(
        {"playing-light", light(), [](auto& model) { play(model, reply, 19); }, {820, 260}, true});
    shots.push_back({"short", dark(), [](auto& model) {
                         play(model, "Done. All tests pass.", 1);
                         model.chunkTotal = 0;
                     }});
    shots.push_back({"scrolled", dark(), [](auto& model) { play(model, longReply, 52); }});
    shots.push_back({"scrolled-light", light(), [](auto& model) { play(model, longReply, 66); }});
    shots.push_back({"history", dark(), [](auto& model) {
                         play(model, reply, 8);
                         model.liveIndicator = LiveIndicator{LiveIndicator::History{3, 12}};
                         model.newLiveCount = 2;
                     }});
    shots.push_back({"history-light", light(), [](auto& model) {
                         play(model, reply, 8);
                         model.liveIndicator = LiveIndicator{LiveIndicator::History{3, 12}};
                         model.newLiveCount = 2;
                     }});
    shots.push_back({"paused", dark(), [](auto& model) {
                         play(model, reply, 12);
                         model.isPlaying = false;
                         model.isPaused = true;
                         model.status = NarrationStatus::paused(3);
                         model.spectrum = std::vector<float>();
                         model.spectrumPeaks = std::vector<float>();
                     }});
    shots.push_back({"error", dark(), [](auto& model) {
                         rest(model, {Phase::idle});
                         model.chunkText = std::string(
                             "The voice could not be started: no sound server answers.");
                     }});
    shots.push_back({"smallest",
                     dark(),
                     [](auto& model) {
                         play(model, reply, 19);
                         model.liveIndicator = LiveIndicator{LiveIndicator::History{3, 12}};
                         model.newLiveCount = 2;
                     },
                     {420, 180}});
    shots.push_back({"large-type",
                     dark(),
                     [](auto& model) {
                         model.fontSize = 34;
                         play(model, reply, 19);
                     },
                     {1000, 340}});
}

void addScripts(std::vector<Shot>& shots) {
    shots.push_back(
        {"chinese", dark(), [](auto& model) {
             play(model,
                  "我把重试循环移到了单独的函数里， 这样在工作进程重启期间，读取器就不会再阻塞， "
                  "所有四十个测试都通过了。 两个不稳定的测试现在等待条件而不是休眠。",
                  1);
         }});
    shots.push_back({"arabic", dark(), [](auto& model) {
                         play(model,
                              "نقلتُ حلقة إعادة المحاولة إلى دالة مستقلة، فلم يعد القارئ يتوقف "
                              "عند إعادة تشغيل worker process الآن. نجحت كل الاختبارات الأربعين.",
                              6);
                     }});
    shots.push_back({"hebrew-light", light(), [](auto& model) {
                         play(model,
                              "העברתי את לולאת הניסיונות לפונקציה retryLoop() נפרדת, והבדיקות "
                              "עוברות כולן.",
                              4);
                     }});
    shots.push_back(
        {"emoji", dark(), [](auto& model) {
             play(model,
                  "Shipped it 🚀 — all green ✅ on the first try. The family "
                  "👨‍👩‍👧‍👦 "
                  "of "
                  "flaky tests is gone 🎉, thanks to everyone 🙌🏽 who looked at it.",
                  11);
         }});
    shots.push_back(
        {"long-word-light", light(), [](auto& model) {
             play(model,
                  "See /usr/share/applications/dev.trelnivorn.sonra/documentation/"
                  "reference/narration-pipeline/Donaudampfschifffahrtsgesellschaftskapitän"
                  "smützenabzeichen.html for the whole story.",
                  1);
         }});
}

void addLooks(std::vector<Shot>& shots) {
    for (const auto& theme : HarnessTheme::all()) {
        const std::string id(theme.id);
        for (const bool isDark : {true, false})
            shots.push_back(
                {"theme-" + id + (isDark ? "" : "-light"), {.dark = isDark}, [&theme](auto& model) {
                     model.theme = theme;
                     play(model, reply, 19);
                 }});
    }
    for (const bool isDark : {true, false}) {
        const std::string suffix = isDark ? "" : "-light";
        const auto playing = [](auto& model) { play(model, reply, 19); };
        shots.push_back({"no-compositor" + suffix, {.dark = isDark, .composited = false}, playing});
        shots.push_back(
            {"high-contrast" + suffix, {.dark = isDark, .highContrast = true}, playing});
    }
}

bool take(const Shot& shot, const QDir& folder) {
    CaptionPanelModel model(22);
    shot.prepare(model);
    sonra::DesktopLook look(shot.look);
    sonra::CaptionPanel panel(model, look);
    panel.setFrame({{0, 0}, {double(shot.size.width()), double(shot.size.height())}}, false);
    const auto picture = panel.grab();
    sonra::shots::Canvas canvas(shot.size + QSize(2 * margin, 2 * margin), shot.look.dark);
    canvas.put(picture, QPoint(margin, margin) + panel.geometry().topLeft(), panel.mask());
    return canvas.save(folder, "caption-" + shot.name);
}

}  // namespace

bool sonra::shots::drawCaptions(const QDir& folder) {
    std::vector<Shot> shots;
    addStates(shots);
    addScripts(shots);
    addLooks(shots);
    const bool large = qApp->devicePixelRatio() > 1;
    return std::ranges::all_of(
        shots, [&](const Shot& shot) { return (large && !shot.alsoLarge) || take(shot, folder); });
}
