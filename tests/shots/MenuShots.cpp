// Pictures of the tray's menu in all its states, open as a click opens it.
#include <QApplication>
#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "frame/HarnessTheme.h"
#include "shots/Canvas.h"
#include "shots/Shots.h"
#include "support/FakeStatusItem.h"
#include "ui/MenuBarController.h"
#include "widgets/DesktopLook.h"
#include "widgets/MenuStyle.h"
#include "widgets/Tokens.h"
#include "widgets/TrayMenu.h"

namespace {

using sonra::AttachedSession;
using sonra::DiscoveredRow;
using sonra::Look;
using Picture = sonra::MenuBarController::Picture;

constexpr int menuMargin = 48;
constexpr double nowMs = 1'780'000'000'000;
constexpr double minuteMs = 60'000;
constexpr auto snippet = "I moved the retry loop into its own function, so the tailer no longer";

struct MenuShot {
    std::string name;
    std::function<void(Picture&)> prepare;
    std::string under = {};   ///< the row under the pointer; a submenu is open then
    std::string within = {};  ///< the row under the pointer in that submenu
    bool composited = true;
    bool highContrast = false;
};

AttachedSession attached(const std::string& id, const std::string& folder,
                         const std::string& source, const std::string& branch) {
    return {id, "/home/me/code/" + folder, source, branch, ""};
}

DiscoveredRow found(const std::string& id, const std::string& folder, const std::string& source,
                    const std::string& title, double minutesAgo, const std::string& branch = {}) {
    DiscoveredRow row;
    row.id = id;
    if (!folder.empty()) row.cwd = "/home/me/code/" + folder;
    row.source = source;
    row.title = title;
    row.lastText = title;
    row.branch = branch;
    row.mtimeMs = minutesAgo < 0 ? 0 : nowMs - minutesAgo * minuteMs;
    return row;
}

void haveSessions(Picture& picture) {
    picture.sessions = {attached("0b6f7f1d-aaaa", "sonra", "claude-code", "main"),
                        attached("7c1e22b0-bbbb", "website", "codex", "")};
    picture.discovered = {
        found("a1b2c3d4-1", "notes", "gemini", "Sort the reading list by year", 2, "tidy-up"),
        found("b2c3d4e5-2", "sonra", "claude-code", "Why does the panel flicker on resize?", 9),
        found(
            "c3d4e5f6-3", "sonra", "claude-code",
            "Move the retry loop into its own function and test what it does when the worker dies",
            95, "retry-loop"),
        found("d4e5f6a7-4", "kernel_module", "aider", "Q&A: locks & waits <b>in</b> irq_handler",
              600),
        found("e5f6a7b8-5", "", "opencode", "", 4000),
        found("f6a7b8c9-6", "shop", "cline", "修正结账页面的货币格式", 9000, "修正"),
        found("a7b8c9d0-7", "blog", "pi", "كتابة مقدمة المقال الجديد", -1)};
}

void playMessage(Picture& picture) {
    picture.isPlaying = true;
    picture.currentSnippet = snippet;
    picture.state.captions = true;
    haveSessions(picture);
}

void haveMany(Picture& picture) {
    playMessage(picture);
    const auto themes = sonra::HarnessTheme::all();
    for (std::size_t i = 2; i < 10; ++i)
        picture.sessions.push_back(attached("session" + std::to_string(i) + "-x",
                                            "project-" + std::to_string(i),
                                            std::string(themes[i % themes.size()].id), "main"));
    for (std::size_t i = 0; i < 60; ++i)
        picture.discovered.push_back(found("many" + std::to_string(1000 + i),
                                           "project-" + std::to_string(i % 20),
                                           std::string(themes[i % themes.size()].id),
                                           "Task number " + std::to_string(i) + " of the plan",
                                           20.0 * double(i + 1), i % 3 == 0 ? "feature/menu" : ""));
}

std::vector<MenuShot> allShots() {
    const auto idle = [](Picture&) {};
    std::vector<MenuShot> shots;
    shots.push_back({"idle", idle});
    shots.push_back({"playing", playMessage, "playPause"});
    shots.push_back({"paused",
                     [](Picture& picture) {
                         playMessage(picture);
                         picture.state.paused = true;
                     },
                     "playPause"});
    shots.push_back({"muted",
                     [](Picture& picture) {
                         playMessage(picture);
                         picture.state.muted = true;
                     },
                     "mute"});
    shots.push_back({"synthesizing", [](Picture& picture) {
                         haveSessions(picture);
                         picture.isSynthesizing = true;
                         picture.state.synthesizing = true;
                     }});
    shots.push_back({"start-at-login",
                     [](Picture& picture) { picture.isLaunchAgentInstalled = true; }, "login"});
    shots.push_back({"odd-words", [](Picture& picture) {
                         playMessage(picture);
                         picture.currentSnippet = "أضفتُ R&D_notes <b>🚀</b>\nوالباقي کما هو 修正";
                     }});
    shots.push_back({"volume",
                     [](Picture& picture) {
                         playMessage(picture);
                         picture.state.volume = 70;
                     },
                     "volume", "80%"});
    shots.push_back({"speed", playMessage, "speed", "2x"});
    shots.push_back({"sessions", playMessage, "sessions", "detach:0b6f7f1d-aaaa"});
    shots.push_back({"sessions-none", idle, "sessions"});
    shots.push_back({"sessions-many", haveMany, "sessions"});
    shots.push_back({"attach", playMessage, "attach", "attach:b2c3d4e5-2"});
    shots.push_back({"attach-none", idle, "attach"});
    shots.push_back({"attach-many", haveMany, "attach"});
    shots.push_back({"no-compositor", playMessage, "playPause", "", false});
    shots.push_back({"high-contrast", playMessage, "playPause", "", true, true});
    return shots;
}

QAction* actionOf(const sonra::TrayMenu& menu, const std::vector<sonra::MenuRow>& rows,
                  const std::string& id) {
    const auto at = std::ranges::find(rows, id, &sonra::MenuRow::id);
    if (at == rows.end()) qFatal("the menu has no row %s", id.c_str());
    return menu.actions().at(std::distance(rows.begin(), at));
}

/// The menu as it lies on the screen, with the submenu that is open.
class OpenMenu {
  public:
    OpenMenu(const MenuShot& shot, const Look& look)
        : controller_(item_, [] { return nowMs; }),
          menu_(sonra::MenuDrawnBy::qt, sonra::Tokens::of(look).text) {
        controller_.setCallbacks({.onToggleStartAtLogin = [] {}});
        Picture picture;
        shot.prepare(picture);
        controller_.reflect(picture);
        menu_.setStyleSheet(sonra::menuStyleSheet(look));
        menu_.setRows(item_.rows);
        menu_.popup({100, 100});
        if (!shot.under.empty()) hover(shot);
        QApplication::processEvents();
    }

    [[nodiscard]] bool drawTo(const QDir& folder, const std::string& name, bool isDark) {
        QRect bounds = menu_.geometry();
        if (submenu_ != nullptr) bounds |= submenu_->geometry();
        bounds.adjust(-menuMargin, -menuMargin, menuMargin, menuMargin);
        sonra::shots::Canvas canvas(bounds.size(), isDark);
        canvas.put(menu_.grab(), menu_.pos() - bounds.topLeft());
        if (submenu_ != nullptr) canvas.put(submenu_->grab(), submenu_->pos() - bounds.topLeft());
        return canvas.save(folder, name);
    }

  private:
    void hover(const MenuShot& shot) {
        auto* action = actionOf(menu_, item_.rows, shot.under);
        menu_.setActiveAction(action);
        submenu_ = static_cast<sonra::TrayMenu*>(action->menu());
        if (submenu_ == nullptr) return;
        if (!submenu_->isVisible()) qFatal("%s didn't open", shot.under.c_str());
        submenu_->setActiveAction(shot.within.empty()
                                      ? nullptr
                                      : actionOf(*submenu_, item_.open(shot.under), shot.within));
    }

    sonra::test::FakeStatusItem item_;
    sonra::MenuBarController controller_;
    sonra::TrayMenu menu_;
    sonra::TrayMenu* submenu_ = nullptr;
};

bool takeMenu(const MenuShot& shot, const QDir& folder, bool isDark) {
    const Look look{
        .dark = isDark, .highContrast = shot.highContrast, .composited = shot.composited};
    return OpenMenu(shot, look)
        .drawTo(folder, "menu-" + shot.name + (isDark ? "" : "-light"), isDark);
}

}  // namespace

bool sonra::shots::drawMenus(const QDir& folder) {
    const auto shots = allShots();
    return std::ranges::all_of(shots, [&](const MenuShot& shot) {
        return takeMenu(shot, folder, true) && takeMenu(shot, folder, false);
    });
}
