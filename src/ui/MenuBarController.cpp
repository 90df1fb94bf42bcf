#include "ui/MenuBarController.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "frame/Text.h"
#include "frame/ThreadAffinity.h"
#include "ui/AttachCandidates.h"
#include "ui/LevelSteps.h"
#include "ui/SessionMenuRows.h"
#include "ui/SpeedFormat.h"

namespace sonra {

namespace {

constexpr std::size_t snippetLimit = 48;

using Rows = std::vector<MenuRow>;
using Kind = MenuRow::Kind;
using Image = MenuRow::Image;

std::vector<MenuText> plain(std::string title) {
    return {{std::move(title), MenuText::Role::label, {}}};
}

MenuRow row(Kind kind, std::string id, std::string title = {}) {
    MenuRow made;
    made.kind = kind;
    made.id = std::move(id);
    if (!title.empty()) made.title = plain(std::move(title));
    return made;
}

MenuRow action(std::string id, std::string title, std::function<void()> onClick) {
    auto made = row(Kind::action, std::move(id), std::move(title));
    made.onClick = std::move(onClick);
    return made;
}

MenuRow submenu(std::string id, std::string title, std::function<Rows()> populate) {
    auto made = row(Kind::submenu, std::move(id), std::move(title));
    made.populate = std::move(populate);
    return made;
}

MenuRow placeholder(std::string title) {
    auto made = row(Kind::action, "placeholder", std::move(title));
    made.isEnabled = false;
    return made;
}

MenuRow statusRow(const MenuBarController::Picture& picture) {
    auto made = row(Kind::action, "status", "Sonra  •  idle");
    if (picture.isPlaying)
        made.title = plain("Narrating  •  " +
                           std::string(text::prefix(picture.currentSnippet, snippetLimit)));
    made.isEnabled = false;
    return made;
}

MenuRow playPauseRow(const MenuBarController::Picture& picture, std::function<void()> onClick) {
    const bool paused = picture.state.paused;
    const bool plays = picture.isPlaying && !paused;
    auto made = action("playPause",
                       paused  ? "Resume"
                       : plays ? "Pause"
                               : "Play",
                       std::move(onClick));
    made.image = plays ? Image::pause : Image::play;
    made.isEnabled = paused || plays;
    return made;
}

MenuRow transportRow(std::string id, std::string title, Image image, bool isEnabled,
                     std::function<void()> onClick) {
    auto made = action(std::move(id), std::move(title), std::move(onClick));
    made.image = image;
    made.isEnabled = isEnabled;
    return made;
}

MenuRow checkRow(std::string id, std::string title, bool isChecked, std::function<void()> onClick) {
    auto made = action(std::move(id), std::move(title), std::move(onClick));
    made.isChecked = isChecked;
    return made;
}

MenuRow levelRow(std::string id, std::string title, std::string level,
                 std::function<Rows()> populate) {
    auto made = submenu(std::move(id), std::move(title), std::move(populate));
    made.trailing = std::move(level);
    return made;
}

bool hasCandidates(const MenuBarController::Picture& picture) {
    return !menu::mergedAttachCandidates(picture.discovered, picture.recent, picture.sessions)
                .empty();
}

MenuRow detachRow(const AttachedSession& session, std::function<void()> onClick) {
    auto made = row(Kind::action, "detach:" + session.id);
    made.title = menu::narratingRowTitle(session);
    made.image = Image::detach;
    made.imageDescription = "Detach";
    made.toolTip = "Detach " + session.id + "\n" + session.cwd;
    made.onClick = std::move(onClick);
    return made;
}

void append(Rows& rows, Rows section) {
    if (!rows.empty()) rows.push_back(row(Kind::separator, "before:" + section.front().id));
    std::move(section.begin(), section.end(), std::back_inserter(rows));
}

StatusItem::Icon iconFor(const MenuBarController::Picture& picture) {
    using Icon = StatusItem::Icon;
    if (picture.state.muted) return Icon::muted;
    if (picture.isSynthesizing) return Icon::synthesizing;
    if (picture.state.paused) return Icon::paused;
    return picture.isPlaying ? Icon::narrating : Icon::idle;
}

const char* toolTipFor(const MenuBarController::Picture& picture) {
    if (picture.state.muted) return "Sonra (muted)";
    if (picture.isSynthesizing) return "Sonra (synthesizing)";
    return picture.isPlaying ? "Sonra (narrating)" : "Sonra";
}

}  // namespace

/// What is shown, and what the rows on the screen refer to when they are clicked or opened.
struct MenuBarController::Shown : std::enable_shared_from_this<Shown> {
    Callbacks callbacks;
    Picture picture;
    std::function<double()> wallClockMs;

    [[nodiscard]] Rows rows() const;
    [[nodiscard]] Rows sessionRows() const;
    [[nodiscard]] Rows attachRows() const;

  private:
    [[nodiscard]] Rows transportSection() const;
    [[nodiscard]] Rows levelSection() const;
    [[nodiscard]] Rows sessionSection() const;
    [[nodiscard]] Rows programSection() const;
    [[nodiscard]] MenuRow stopAllRow() const;

    /// Calls what the owner has set at the time of the click; nothing once the owner has gone.
    template <typename Member>
    auto calling(Member callback) const {
        return [weak = weak_from_this(), callback](const auto&... arguments) {
            const auto alive = weak.lock();
            if (!alive) return;
            // A copy, since the callback may have itself replaced.
            if (const auto run = alive->callbacks.*callback) run(arguments...);
        };
    }
    template <typename Make>
    std::function<Rows()> making(Make make) const {
        return [weak = weak_from_this(), make] {
            const auto alive = weak.lock();
            return alive ? make(*alive) : Rows{};
        };
    }
};

Rows MenuBarController::Shown::transportSection() const {
    return {
        playPauseRow(picture, calling(&Callbacks::onPlayPause)),
        transportRow("skip", "Skip", Image::skip, picture.isPlaying, calling(&Callbacks::onSkip)),
        transportRow("stop", "Stop", Image::stop, picture.isPlaying, calling(&Callbacks::onStop)),
        checkRow("mute", "Mute", picture.state.muted, calling(&Callbacks::onToggleMute)),
        checkRow("captions", "Captions", picture.state.captions,
                 calling(&Callbacks::onToggleCaptions))};
}

Rows MenuBarController::Shown::levelSection() const {
    return {levelRow("volume", "Volume", std::to_string(picture.state.volume) + "%",
                     making([](const Shown& shown) {
                         return menu::volumeSteps(shown.picture.state.volume,
                                                  shown.calling(&Callbacks::onVolume));
                     })),
            levelRow("speed", "Speed", menu::formatSpeed(picture.state.speed),
                     making([](const Shown& shown) {
                         return menu::speedSteps(shown.picture.state.speed,
                                                 shown.calling(&Callbacks::onSpeed));
                     }))};
}

Rows MenuBarController::Shown::sessionSection() const {
    const auto count = picture.sessions.size();
    const auto narrating = count == 0 ? "(none)" : std::to_string(count);
    Rows section{
        submenu("sessions", "Narrating: " + narrating,
                making([](const Shown& shown) { return shown.sessionRows(); })),
        submenu("attach", hasCandidates(picture) ? "Attach session…" : "Attach session…  (none)",
                making([](const Shown& shown) { return shown.attachRows(); }))};
    if (callbacks.onSearch)
        section.push_back(action("search", "Search sessions…", calling(&Callbacks::onSearch)));
    return section;
}

Rows MenuBarController::Shown::programSection() const {
    Rows section;
    if (callbacks.onAbout)
        section.push_back(action("about", "About Sonra", calling(&Callbacks::onAbout)));
    if (callbacks.onToggleStartAtLogin)
        section.push_back(
            action("login", picture.isLaunchAgentInstalled ? "✓ Start at login" : "Start at login",
                   calling(&Callbacks::onToggleStartAtLogin)));
    section.push_back(action("quit", "Quit Sonra", calling(&Callbacks::onQuit)));
    return section;
}

Rows MenuBarController::Shown::rows() const {
    Rows made;
    append(made, {statusRow(picture)});
    append(made, transportSection());
    append(made, levelSection());
    append(made, sessionSection());
    append(made, programSection());
    return made;
}

Rows MenuBarController::Shown::sessionRows() const {
    if (picture.sessions.empty()) return {placeholder("Nothing being narrated")};
    const auto detach = calling(&Callbacks::onDetach);
    Rows made;
    for (const auto& session : picture.sessions)
        made.push_back(detachRow(session, [detach, id = session.id] { detach(id); }));
    if (made.size() > 1) append(made, {stopAllRow()});
    return made;
}

MenuRow MenuBarController::Shown::stopAllRow() const {
    std::vector<std::string> ids;
    for (const auto& session : picture.sessions) ids.push_back(session.id);
    return action("stopAll", "Stop narrating all sessions",
                  [detach = calling(&Callbacks::onDetach), ids] {
                      for (const auto& id : ids) detach(id);
                  });
}

Rows MenuBarController::Shown::attachRows() const {
    const auto candidates =
        menu::mergedAttachCandidates(picture.discovered, picture.recent, picture.sessions);
    if (candidates.empty()) return {placeholder("No sessions detected")};
    const auto colliding = menu::collidingFolderSourceKeys(candidates);
    const auto attach = calling(&Callbacks::onAttach);
    Rows made;
    for (const auto& candidate : candidates)
        made.push_back(menu::makeAttachRow(candidate, wallClockMs(),
                                           colliding.contains(menu::folderSourceKey(candidate)),
                                           [attach, candidate] { attach(candidate); }));
    return made;
}

MenuBarController::MenuBarController(StatusItem& item, std::function<double()> wallClockMs)
    : item_(item), shown_(std::make_shared<Shown>()) {
    shown_->wallClockMs = std::move(wallClockMs);
}

MenuBarController::~MenuBarController() = default;

void MenuBarController::setCallbacks(Callbacks callbacks) {
    SONRA_ASSERT_MAIN_THREAD();
    shown_->callbacks = std::move(callbacks);
}

void MenuBarController::reflect(Picture picture) {
    SONRA_ASSERT_MAIN_THREAD();
    shown_->picture = std::move(picture);
    item_.setMenu(shown_->rows());
    updateIcon();
}

void MenuBarController::setPlaying(bool playing, bool muted) {
    SONRA_ASSERT_MAIN_THREAD();
    shown_->picture.isPlaying = playing;
    shown_->picture.state.muted = muted;
    updateIcon();
}

void MenuBarController::setSynthesizing(bool synthesizing) {
    SONRA_ASSERT_MAIN_THREAD();
    shown_->picture.isSynthesizing = synthesizing;
    updateIcon();
}

std::vector<MenuRow> MenuBarController::populateSessionsMenu() const {
    SONRA_ASSERT_MAIN_THREAD();
    return shown_->sessionRows();
}

std::vector<MenuRow> MenuBarController::populateAttachMenu() const {
    SONRA_ASSERT_MAIN_THREAD();
    return shown_->attachRows();
}

void MenuBarController::updateIcon() {
    item_.setIcon(iconFor(shown_->picture));
    item_.setToolTip(toolTipFor(shown_->picture));
}

}  // namespace sonra
