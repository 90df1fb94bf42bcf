// The program's place on the session bus: launcher's interface, desktop search and the global
// chords of the session, steered line by line on standard input. Prints what reaches its handlers.

#include <unistd.h>

#include <QCoreApplication>
#include <sstream>
#include <string>

#include "driver_lines.h"
#include "frame/Log.h"
#include "linux/QtApplicationInterface.h"
#include "linux/QtDesktopSearch.h"
#include "linux/QtGlobalHotkeys.h"
#include "linux/QtMainLoop.h"

namespace {

using namespace sonra;
using test::DriverLines;
using test::say;

std::function<void(const std::string&)> saying(const std::string& what) {
    return [what](const std::string& text) { say(what + " " + text); };
}

SearchableItem session(const std::string& id, const std::string& folder,
                       const std::string& description, double date) {
    SearchableItem item;
    item.uniqueIdentifier = "tts://session/" + id;
    item.domainIdentifier = "sessions";
    item.title = folder + " · " + id.substr(0, 8);
    item.contentDescription = description;
    item.keywords = {folder, "/home/ana/" + folder, id, id.substr(0, 8)};
    item.contentModificationDate = date;
    return item;
}

class Driver {
  public:
    explicit Driver(MainLoop& loop)
        : application_(loop, {[] { say("activate"); }, saying("open"), saying("action")}),
          search_(loop, application_.exported(), {saying("open"), saying("search")}),
          shortcuts_(makeGlobalHotkeys(loop)) {
        shortcuts_->setHandlers({[](std::uint32_t id) { say("pressed " + std::to_string(id)); },
                                 [](std::uint32_t id, const std::string& why) {
                                     say("refused " + std::to_string(id) + " " + why);
                                 }});
    }

    void obey(const std::string& line) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "publish") application_.publish();
        if (command == "item") add(words);
        if (command == "many") addMany(words);
        if (command == "delete") remove(words);
        if (command == "chord") chord(words);
        if (command == "drop") drop(words);
        say("done " + command);
    }

  private:
    /// item ID FOLDER DATE DESCRIPTION
    void add(std::istringstream& words) {
        std::string id;
        std::string folder;
        std::string description;
        double date = 0;
        words >> id >> folder >> date;
        std::getline(words >> std::ws, description);
        search_.index().indexSearchableItems({session(id, folder, description, date)}, {});
    }
    void addMany(std::istringstream& words) {
        int count = 0;
        words >> count;
        std::vector<SearchableItem> items;
        for (int i = 0; i < count; ++i)
            items.push_back(session(std::to_string(10'000'000 + i) + "-4f1c-9d2e",
                                    "project" + std::to_string(i % 100),
                                    "The parser reads the next record and the tests for number " +
                                        std::to_string(i) + " pass with the change in place.",
                                    i));
        search_.index().indexSearchableItems(std::move(items), {});
    }
    void remove(std::istringstream& words) {
        std::string id;
        words >> id;
        search_.index().deleteSearchableItems({"tts://session/" + id}, {});
    }
    /// chord ID KEYSYM-NAME TITLE; with Command and Shift
    void chord(std::istringstream& words) {
        std::uint32_t id = 0;
        KeyChord chord;
        std::string title;
        words >> id >> chord.keyName;
        std::getline(words >> std::ws, title);
        chord.command = chord.shift = true;
        say(shortcuts_->registerHotKey(id, chord, title) ? "taken" : "not taken");
    }
    void drop(std::istringstream& words) {
        std::uint32_t id = 0;
        words >> id;
        shortcuts_->unregisterHotKey(id);
    }

    QtApplicationInterface application_;
    QtDesktopSearch search_;
    const std::unique_ptr<GlobalHotkeys> shortcuts_;
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
    // As the bus starts a program: what was asked for is there when the name is taken.
    if (argc > 1) driver.obey(argv[1]);
    say("ready");
    return QCoreApplication::exec();
}
