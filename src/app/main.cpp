#include <malloc.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <QApplication>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "app/AppDelegate.h"
#include "app/Desktop.h"
#include "app/RunningService.h"
#include "app/SignalWatch.h"
#include "frame/Home.h"
#include "frame/Log.h"
#include "frame/ServiceLock.h"
#include "frame/TemporaryDirectory.h"
#include "frame/UrlLaunch.h"
#include "linux/JournalLog.h"
#include "linux/QtMainLoop.h"
#include "linux/X11StartupNotice.h"
#include "search/SpotlightIndexer.h"

namespace {

/// Of a command line that can't be understood.
constexpr int usageStatus = 2;

constexpr auto usage =
    "Reads the replies of AI coding agents aloud as they are written.\n"
    "\n"
    "Usage:\n"
    "  sonra                              start the service; a second start leaves the first "
    "alone\n"
    "  sonra --service --socket <path>    start it with its socket at a path of choice\n"
    "  sonra tts://session/<id>           narrate this session of Claude Code's; starts the "
    "service\n"
    "                                     if need be\n"
    "  sonra --captions-serve --socket <path>\n"
    "                                     show captions that other programs send\n"
    "  sonra <sound file> [options]       play one file; --volume <0 to 100>, --title,\n"
    "                                     --artist, --snippet <text>, --captions,\n"
    "                                     --captions-sock <path>\n"
    "  sonra --help                       print this text\n"
    "  sonra --version                    print the version\n"
    "\n"
    "The service listens on $HOME/.claude/tts/service.sock and follows "
    "$HOME/.claude/tts/state.json;\n"
    "it writes its log to $HOME/Library/Logs/Sonra/sonra.ndjson.\n";

/// Answers the two questions that need no service; false for any other command line.
bool answered(const std::vector<std::string>& args) {
    if (args.size() != 2) return false;
    if (args[1] == "--help") return std::fputs(usage, stdout) >= 0;
    if (args[1] == "--version") return std::puts("sonra " SONRA_VERSION) >= 0;
    return false;
}

/// Says which of the addresses stands for nothing; false if each stands for something.
bool saidMeaningless(const std::vector<std::string>& urls) {
    const auto url = std::ranges::find_if(
        urls, [](const auto& each) { return !sonra::SpotlightIndexer::parseURL(each); });
    if (url == urls.end()) return false;
    std::fprintf(stderr,
                 "sonra: the address %s stands for nothing; a session's is tts://session/<id>. "
                 "Nothing was opened.\n",
                 url->c_str());
    return true;
}

/// Without a display the windows have nowhere to go; narration goes on. Floating windows need X11,
/// through Xwayland where the session is Wayland's. A choice of the user's own wins.
void choosePlatform() {
    if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) return;
    qputenv("QT_QPA_PLATFORM",
            qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
                ? "offscreen"
                : "xcb;wayland;offscreen");
}

/// Every way out comes through here. No destructor runs behind it, so none can hang.
[[noreturn]] void endProcess(sonra::AppDelegate& delegate, int status) {
    delegate.shutDown();
    sonra::removeTemporaryDirectory();
    sonra::Log::shared().flush();
    sonra::releaseServiceLock();
    _exit(status);
}

/// A library that gives up calls exit: Qt does when the display goes away.
void endAtExit(int status, void* delegate) {
    endProcess(*static_cast<sonra::AppDelegate*>(delegate), status);
}

/// Qt's own remarks go where the program's go, not to the terminal of whoever started it; but the
/// last words before it aborts are for that person.
void logQtMessage(QtMsgType type, const QMessageLogContext&, const QString& message) {
    const auto log = sonra::Log::shared().child({{"module", "qt"}});
    const auto text = message.toStdString();
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "sonra: %s\n", text.c_str());
        log.fatal(text);
        log.flush();
    } else if (type == QtCriticalMsg) {
        log.error(text);
    } else {
        log.info(text);
    }
}

int runApplication(const sonra::Mode& mode, const std::vector<std::string>& urls,
                   const std::string& startupId, int& argc, char** argv) {
    choosePlatform();
    sonra::Desktop::avoidDeafSessionBus();
    qInstallMessageHandler(logQtMessage);
    QApplication application(argc, argv);
    QApplication::setApplicationName("sonra");
    QApplication::setDesktopFileName("dev.trelnivorn.sonra");
    QApplication::setQuitOnLastWindowClosed(false);

    sonra::QtMainLoop loop;
    std::unique_ptr<sonra::AppDelegate> delegate;
    const auto exit = [&delegate](int status) { endProcess(*delegate, status); };
    const sonra::SignalWatch signals(loop, [&exit](int number) {
        sonra::Log::shared()
            .child({{"module", "main"}})
            .info("sonra shutdown",
                  {{"input", {{"signal", "SIG" + std::string(sigabbrev_np(number))}}}});
        exit(0);
    });
    delegate = std::make_unique<sonra::AppDelegate>(mode, urls, loop, exit);
    on_exit(endAtExit, delegate.get());
    // No window comes with the start.
    sonra::X11StartupNotice::end(startupId);
    delegate->applicationDidFinishLaunching();
    endProcess(*delegate, QApplication::exec());
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv, argv + argc);
    if (answered(args)) return 0;
    // Each thread that allocates would get an arena of its own; few are enough, and memory at rest
    // stays small.
    mallopt(M_ARENA_MAX, 2);
    sonra::SignalWatch::block();

    const auto startupId = sonra::X11StartupNotice::takeFromEnvironment();
    const auto urls = sonra::launchUrls(args);
    if (saidMeaningless(urls)) {
        sonra::X11StartupNotice::end(startupId);
        return usageStatus;
    }
    if (const auto status = sonra::openInRunningService(urls)) {
        sonra::X11StartupNotice::end(startupId);
        return *status;
    }
    const auto decision = urls.empty()
                              ? sonra::parseMode(args)
                              : sonra::Mode(sonra::ServiceMode{sonra::defaultServiceSocketPath()});
    if (const auto* early = std::get_if<sonra::EarlyExit>(&decision)) {
        std::fputs(early->standardError.c_str(), stderr);
        sonra::X11StartupNotice::end(startupId);
        return early->status;
    }
    sonra::Log::setShared(
        sonra::Log(sonra::Log::sharedOptions(std::make_shared<sonra::JournalLog>())));
    sonra::Log::shared()
        .child({{"module", "main"}})
        .info("sonra up", {{"input", {{"pid", getpid()}, {"argv", args}}}});
    return runApplication(std::get<sonra::Mode>(decision), urls, startupId, argc, argv);
}
