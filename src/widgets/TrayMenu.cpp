#include "widgets/TrayMenu.h"

#include <QSet>
#include <iterator>
#include <utility>

#include "widgets/AgentDot.h"
#include "widgets/SymbolicIcon.h"

namespace sonra {
namespace {

using Image = MenuRow::Image;

QIcon imageOf(Image image, const QColor& ink) {
    const auto icon = [&ink](const char* theme, const char* own) {
        return symbolicIcon(QLatin1String(theme), QLatin1String(own), ink);
    };
    switch (image) {
        case Image::none:
            break;
        case Image::play:
            return icon("media-playback-start-symbolic", "play");
        case Image::pause:
            return icon("media-playback-pause-symbolic", "pause");
        case Image::skip:
            return icon("media-skip-forward-symbolic", "skip");
        case Image::stop:
            return icon("media-playback-stop-symbolic", "stop");
        case Image::detach:
            return icon("process-stop-symbolic", "detach");
    }
    return {};
}

/// A row without an image of its own shows its agent.
QIcon iconOf(const MenuRow& row, const QColor& ink) {
    if (row.image != Image::none) return imageOf(row.image, ink);
    const auto dot = agentDotOf(row);
    return dot ? dot->icon() : QIcon();
}

bool showsTheSame(const MenuRow& one, const MenuRow& other) {
    return one.image == other.image && agentDotOf(one) == agentDotOf(other);
}

}  // namespace

/// One row as it is shown. Its action belongs to it and dies later than it, since it may be the one
/// that is being clicked.
struct TrayMenu::Entry {
    MenuRow row;
    QAction* action = nullptr;
    std::unique_ptr<TrayMenu> submenu;

    Entry() = default;
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() {
        if (submenu)
            submenu.release()->deleteLater();
        else if (action)
            action->deleteLater();
    }
};

TrayMenu::TrayMenu(MenuDrawnBy drawer, const QColor& ink, QWidget* parent)
    : QMenu(parent), drawer_(drawer), ink_(ink) {
    setToolTipsVisible(true);
    if (drawer == MenuDrawnBy::qt) {
        // Its style has round corners and no room for another frame.
        setAttribute(Qt::WA_TranslucentBackground);
        setWindowFlags(windowFlags() | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint);
    }
    connect(this, &QMenu::aboutToShow, this, [this] {
        for (const auto& [id, entry] : entries_)
            if (entry->submenu) fill(id);
    });
}

TrayMenu::~TrayMenu() = default;

void TrayMenu::setRows(std::vector<MenuRow> rows) {
    auto old = std::exchange(entries_, {});
    std::vector<QAction*> wanted;
    for (auto& row : rows) {
        if (entries_.contains(row.id)) continue;
        auto kept = old.extract(row.id);
        const bool isNew = kept.empty() || kept.mapped()->row.kind != row.kind;
        auto entry = isNew ? make(row) : std::move(kept.mapped());
        wanted.push_back(entry->action);
        const auto id = row.id;
        update(*entry, std::move(row), isNew);
        entries_[id] = std::move(entry);
    }
    place(wanted);
}

std::unique_ptr<TrayMenu::Entry> TrayMenu::make(const MenuRow& row) {
    auto entry = std::make_unique<Entry>();
    if (row.kind == MenuRow::Kind::submenu) {
        entry->submenu = std::make_unique<TrayMenu>(drawer_, ink_, this);
        entry->action = entry->submenu->menuAction();
        connect(entry->submenu.get(), &QMenu::aboutToShow, this, [this, id = row.id] { fill(id); });
        return entry;
    }
    entry->action = new QAction(this);
    entry->action->setSeparator(row.kind == MenuRow::Kind::separator);
    connect(entry->action, &QAction::triggered, this, [this, id = row.id] { click(id); });
    return entry;
}

void TrayMenu::update(Entry& entry, MenuRow row, bool isNew) const {
    auto& action = *entry.action;
    if (const auto label = menuLabel(row, drawer_); label != action.text()) action.setText(label);
    const auto toolTip = QString::fromStdString(row.toolTip);
    if (toolTip != action.toolTip()) action.setToolTip(toolTip);
    if (isNew || !showsTheSame(row, entry.row)) action.setIcon(iconOf(row, ink_));
    action.setEnabled(row.isEnabled);
    action.setCheckable(row.isChecked.has_value());
    action.setChecked(row.isChecked.value_or(false));
    entry.row = std::move(row);
}

/// Puts the actions in their order and takes the others out; what stands right isn't touched.
void TrayMenu::place(const std::vector<QAction*>& wanted) {
    const QSet<QAction*> kept(wanted.begin(), wanted.end());
    for (auto* action : actions())
        if (!kept.contains(action)) removeAction(action);
    for (qsizetype at = 0; at < std::ssize(wanted); ++at) {
        auto* action = wanted[static_cast<std::size_t>(at)];
        auto* there = actions().value(at);
        if (there != action) insertAction(there, action);
    }
}

void TrayMenu::fill(const std::string& id) {
    const auto found = entries_.find(id);
    if (found == entries_.end() || !found->second->row.populate) return;
    found->second->submenu->setRows(found->second->row.populate());
}

/// The click says what the user wants; what is checked is for the next rows to say.
void TrayMenu::click(const std::string& id) {
    const auto found = entries_.find(id);
    if (found == entries_.end()) return;
    const auto& entry = *found->second;
    entry.action->setChecked(entry.row.isChecked.value_or(false));
    // A copy, since new rows may come out of the click.
    if (const auto onClick = entry.row.onClick) onClick();
}

void TrayMenu::setInk(const QColor& ink) {
    ink_ = ink;
    for (const auto& [id, entry] : entries_) {
        if (entry->row.image != Image::none) entry->action->setIcon(iconOf(entry->row, ink));
        if (entry->submenu) entry->submenu->setInk(ink);
    }
}

}  // namespace sonra
