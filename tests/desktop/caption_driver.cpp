// The caption panel on its own, for test_caption_panel.py: does what the lines of standard input
// say and prints what the user did.

#include <QApplication>
#include <QTimer>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "driver_lines.h"
#include "widgets/CaptionPanel.h"

namespace {

using sonra::CaptionPanel;
using sonra::CaptionPanelModel;
using sonra::test::DriverLines;
using sonra::test::say;

std::string asText(const sonra::Rect& frame) {
    return std::to_string(std::lround(frame.origin.x)) + " " +
           std::to_string(std::lround(frame.origin.y)) + " " +
           std::to_string(std::lround(frame.size.width)) + " " +
           std::to_string(std::lround(frame.size.height));
}

/// A voice that speaks as fast as one does: a word in 300 ms, levels every 80 ms.
class Narration {
  public:
    explicit Narration(CaptionPanelModel& model) : model_(model) {
        QObject::connect(&timer_, &QTimer::timeout, [this] { tick(); });
    }
    void start(const std::string& text) {
        model_.chunkText = text;
        model_.status = sonra::NarrationStatus{sonra::NarrationStatus::Phase::playing};
        model_.isPlaying = true;
        words_ = sonra::KaraokeMath::tokenize(text);
        timer_.start(80);
    }
    void stop() { timer_.stop(); }

  private:
    void tick() {
        ++ticks_;
        std::vector<float> levels;
        for (int band = 0; band < 32; ++band)
            levels.push_back(static_cast<float>(
                0.5 + 0.45 * std::sin(ticks_ * 0.9 + band * (0.3 + 0.02 * (ticks_ % 7)))));
        model_.spectrum = levels;
        model_.spectrumPeaks = levels;
        const auto word = static_cast<std::size_t>(ticks_ * 80 / 300) % words_.size();
        model_.activeWordRange = words_[word].range;
        model_.pastEndIndex = words_[word].range.begin;
        model_.progress = double(word) / double(words_.size());
    }

    CaptionPanelModel& model_;
    QTimer timer_;
    std::vector<sonra::KaraokeWord> words_;
    int ticks_ = 0;
};

class Driver {
  public:
    Driver() {
        panel_.onFrameChanged = [this] { say("moved " + asText(panel_.frame())); };
        panel_.onCloseRequested = [] { say("close"); };
        model_.onPrev = [] { say("previous"); };
        model_.onPlayPause = [] { say("playPause"); };
        model_.onNext = [] { say("next"); };
        model_.onScrub = [](double fraction) {
            say("scrub " + std::to_string(std::lround(fraction * 100)));
        };
        model_.chunkText = std::string("Words that wait for their voice.");
    }

    void obey(const std::string& line) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "show") panel_.orderFront();
        if (command == "hide") panel_.orderOut();
        if (command == "quit") QApplication::quit();
        if (command == "frame") place(words);
        if (command == "where") tellPlace(words);
        if (command == "narrate") narration_.start(line.substr(command.size() + 1));
        if (command == "rest") narration_.stop();
        if (command == "tell") return say("frame " + asText(panel_.frame()));
        say("done");
    }

  private:
    void place(std::istringstream& numbers) {
        sonra::Rect frame;
        numbers >> frame.origin.x >> frame.origin.y >> frame.size.width >> frame.size.height;
        panel_.setFrame(frame, false);
    }
    /// The middle of the part with this name, on the desktop.
    void tellPlace(std::istringstream& words) {
        std::string name;
        std::getline(words >> std::ws, name);
        for (const auto* part : panel_.findChildren<QWidget*>()) {
            if (part->accessibleName().toStdString() != name) continue;
            const auto at = part->mapToGlobal(part->rect().center());
            say("at " + std::to_string(at.x()) + " " + std::to_string(at.y()));
        }
    }

    CaptionPanelModel model_{22};
    CaptionPanel panel_{model_};
    Narration narration_{model_};
};

}  // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    Driver driver;
    const DriverLines input([&driver](const std::string& line) { driver.obey(line); });
    say("ready");
    return QApplication::exec();
}
