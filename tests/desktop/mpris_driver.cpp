// A media player on the session bus that a test steers line by line on standard input. Prints what
// reaches its handlers.

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>

#include "driver_lines.h"
#include "frame/Log.h"
#include "linux/QtMainLoop.h"
#include "linux/QtMpris.h"

namespace {

using namespace sonra;
using test::DriverLines;
using test::say;

RemoteCommandCenter::Handler saying(const char* command) {
    return [command] {
        say(command);
        return RemoteCommandStatus::success;
    };
}

class Driver {
  public:
    explicit Driver(MainLoop& loop) : mpris_(loop) {
        RemoteCommandCenter::Handlers handlers;
        handlers.play = saying("play");
        handlers.pause = saying("pause");
        handlers.togglePlayPause = saying("toggle");
        handlers.nextTrack = saying("next");
        handlers.previousTrack = saying("previous");
        handlers.stop = saying("stop");
        handlers.seek = [this](double seconds) {
            say("seek " + std::to_string(seconds));
            push(seconds);
        };
        handlers.volume = [this](double gain) {
            say("volume " + std::to_string(gain));
            mpris_.setVolume(gain);
        };
        mpris_.setHandlers(std::move(handlers));
    }

    void obey(const std::string& line) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "begin") begin(words);
        if (command == "at") push(number(words));
        if (command == "pause") setPlaying(false);
        if (command == "resume") setPlaying(true);
        if (command == "idle") idle();
        if (command == "retire") mpris_.retire();
        if (command == "navigable") mpris_.setCanNavigate(number(words) != 0);
        if (command == "volume") mpris_.setVolume(number(words));
        say("done " + command);
    }

  private:
    static double number(std::istringstream& words) {
        double value = 0;
        words >> value;
        return value;
    }
    /// begin DURATION TITLE
    void begin(std::istringstream& words) {
        NowPlayingInfo info;
        info.duration = number(words);
        std::getline(words >> std::ws, info.title);
        info.artist = "TTS";
        info.albumTitle = "All of " + info.title;
        info.rate = 1;
        mpris_.setInfo(info);
        mpris_.setPlaybackState(PlaybackState::playing);
    }
    void push(double elapsed) {
        auto info = mpris_.info().value_or(NowPlayingInfo{});
        info.elapsed = elapsed;
        mpris_.setInfo(info);
    }
    void setPlaying(bool playing) {
        mpris_.setPlaybackState(playing ? PlaybackState::playing : PlaybackState::paused);
        auto info = mpris_.info().value_or(NowPlayingInfo{});
        info.elapsed = static_cast<double>(mpris_.positionUs()) / 1e6;
        info.rate = playing ? 1 : 0;
        mpris_.setInfo(info);
    }
    void idle() {
        mpris_.setInfo(std::nullopt);
        mpris_.setPlaybackState(PlaybackState::stopped);
    }

    QtMpris mpris_;
};

/// At once: what is still owed to a bus that stands still isn't waited for.
[[noreturn]] void end() {
    Log::shared().flush();
    _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    QtMainLoop loop;
    Driver driver(loop);
    const DriverLines input([&driver](const std::string& line) { driver.obey(line); }, end);
    say("ready");
    return QCoreApplication::exec();
}
