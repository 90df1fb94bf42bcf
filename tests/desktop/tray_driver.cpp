// The tray on its own, for test_tray.py: reads pictures of the service from standard input, a JSON
// document a line, and prints what the menu calls back.

#include <QApplication>
#include <chrono>
#include <string>

#include "driver_lines.h"
#include "frame/Json.h"
#include "ui/MenuBarController.h"
#include "widgets/TrayItem.h"

namespace {

using sonra::Json;
using sonra::test::DriverLines;
using sonra::test::say;

std::string textOf(const Json& row, const char* key) {
    return sonra::json::stringAt(row, key).value_or("");
}

sonra::MenuBarController::Picture pictureFrom(const Json& document) {
    sonra::MenuBarController::Picture picture;
    picture.state = sonra::ServiceState::from(document);
    picture.isPlaying = sonra::json::boolAt(document, "isPlaying").value_or(false);
    picture.isSynthesizing = picture.state.synthesizing;
    picture.currentSnippet = textOf(document, "snippet");
    for (const auto& row : document.value("sessions", Json::array()))
        picture.sessions.push_back(
            {textOf(row, "id"), textOf(row, "cwd"), textOf(row, "source"), "", ""});
    for (const auto& row : document.value("discovered", Json::array())) {
        sonra::DiscoveredRow found;
        found.id = textOf(row, "id");
        found.cwd = textOf(row, "cwd");
        found.source = textOf(row, "source");
        found.title = textOf(row, "title");
        found.branch = textOf(row, "branch");
        found.mtimeMs = sonra::json::doubleAt(row, "mtimeMs").value_or(0);
        picture.discovered.push_back(found);
    }
    return picture;
}

sonra::MenuBarController::Callbacks printing() {
    const auto print = [](const char* word) { return [word] { say(word); }; };
    return {.onPlayPause = print("playPause"),
            .onSkip = print("skip"),
            .onStop = print("stop"),
            .onToggleMute = print("mute"),
            .onToggleCaptions = print("captions"),
            .onVolume = [](std::int64_t percent) { say("volume " + std::to_string(percent)); },
            .onSpeed = [](double speed) { say("speed " + sonra::Json(speed).dump()); },
            .onAttach = [](const sonra::DiscoveredRow& row) { say("attach " + row.id); },
            .onDetach = [](const std::string& id) { say("detach " + id); },
            .onAbout = print("about"),
            .onToggleStartAtLogin = print("login"),
            .onQuit =
                [] {
                    say("quit");
                    QApplication::quit();
                }};
}

double wallClockMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    sonra::DesktopLook look({});
    sonra::TrayItem item(look);
    sonra::MenuBarController menu(item, wallClockMs);
    menu.setCallbacks(printing());
    menu.reflect({});

    const DriverLines input([&menu](const std::string& line) {
        if (const auto document = sonra::json::parse(line)) menu.reflect(pictureFrom(*document));
        say("reflected");
    });
    return QApplication::exec();
}
