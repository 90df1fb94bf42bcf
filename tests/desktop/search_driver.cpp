// The search panel on its own, for test_search_panel.py: does what the lines of standard input say
// and prints what the user did.

#include <QApplication>
#include <QClipboard>
#include <sstream>
#include <string>
#include <vector>

#include "driver_lines.h"
#include "widgets/SearchPanelWindow.h"

namespace {

using sonra::SearchPanel;
using sonra::SearchRow;
using sonra::test::DriverLines;
using sonra::test::say;

const char* nameOf(SearchPanel::Command command) {
    switch (command) {
        case SearchPanel::Command::moveUp:
            return "moveUp";
        case SearchPanel::Command::moveDown:
            return "moveDown";
        case SearchPanel::Command::cancel:
            return "cancel";
        case SearchPanel::Command::activate:
            return "activate";
        case SearchPanel::Command::copy:
            return "copy";
    }
    return "";
}

class Driver {
  public:
    Driver() {
        panel_.onQueryChanged = [this] { say("query " + panel_.query()); };
        panel_.onCommand = [this](SearchPanel::Command command) {
            if (command == SearchPanel::Command::cancel) panel_.orderOut();
            say(std::string("command ") + nameOf(command));
        };
        panel_.onSelect = [](std::size_t row) { say("select " + std::to_string(row)); };
        std::vector<SearchRow> rows;
        for (int i = 0; i < 13; ++i) {
            SearchRow row;
            row.pieces = {{"session-" + std::to_string(i), SearchRow::Role::words}};
            rows.push_back(row);
        }
        panel_.setRows(rows);
        panel_.select(0);
        panel_.setFooter("↵ attach · ⌘C copy id · esc dismiss");
    }

    void obey(const std::string& line) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "show") panel_.activate();
        if (command == "hide") panel_.orderOut();
        if (command == "frame") place(words);
        if (command == "copy") panel_.copy(line.substr(command.size() + 1));
        if (command == "clipboard")
            say("clipboard " + QGuiApplication::clipboard()->text().toStdString());
        say("done");
    }

  private:
    void place(std::istringstream& numbers) {
        sonra::Rect frame;
        numbers >> frame.origin.x >> frame.origin.y >> frame.size.width >> frame.size.height;
        panel_.setFrame(frame);
    }

    sonra::SearchPanelWindow panel_;
};

}  // namespace

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    // Two clicks of a script are one double click on a busy machine too.
    QApplication::setDoubleClickInterval(5000);
    Driver driver;
    const DriverLines input([&driver](const std::string& line) { driver.obey(line); });
    say("ready");
    return QApplication::exec();
}
