#include "widgets/TrayItem.h"

#include <QCursor>
#include <QGuiApplication>
#include <QSystemTrayIcon>
#include <utility>

#include "frame/ThreadAffinity.h"
#include "widgets/DesktopNotification.h"
#include "widgets/MenuStyle.h"
#include "widgets/SymbolicIcon.h"
#include "widgets/Tokens.h"
#include "widgets/TrayMenu.h"

namespace sonra {
namespace {

const char* nameOf(StatusItem::Icon icon) {
    using Icon = StatusItem::Icon;
    switch (icon) {
        case Icon::idle:
            break;
        case Icon::narrating:
            return "sonra-narrating-symbolic";
        case Icon::paused:
            return "sonra-paused-symbolic";
        case Icon::muted:
            return "sonra-muted-symbolic";
        case Icon::synthesizing:
            return "sonra-synthesizing-symbolic";
        case Icon::recording:
            return "sonra-recording-symbolic";
        case Icon::transcribing:
            return "sonra-transcribing-symbolic";
    }
    return "sonra-idle-symbolic";
}

/// The platforms without a display have nobody to tell that something isn't shown.
bool hasDisplay() {
    const auto platform = QGuiApplication::platformName();
    return platform != u"offscreen" && platform != u"minimal";
}

}  // namespace

TrayItem::TrayItem(DesktopLook& look, const QDBusConnection& bus)
    : look_(look), bus_(bus), host_(bus) {
    connect(&host_, &TrayHost::ready, this, &TrayItem::appear);
    connect(&host_, &TrayHost::missing, this, &TrayItem::tellMissing);
    connect(&look_, &DesktopLook::changed, this, &TrayItem::applyLook);
    if (hasDisplay()) host_.start();
}

TrayItem::~TrayItem() = default;

void TrayItem::setIcon(Icon icon) {
    SONRA_ASSERT_MAIN_THREAD();
    if (std::exchange(icon_, icon) != icon) showIcon();
}

void TrayItem::setToolTip(const std::string& toolTip) {
    SONRA_ASSERT_MAIN_THREAD();
    auto text = QString::fromStdString(toolTip);
    if (text == toolTip_) return;
    toolTip_ = std::move(text);
    if (tray_) tray_->setToolTip(toolTip_);
}

void TrayItem::setMenu(std::vector<MenuRow> rows) {
    SONRA_ASSERT_MAIN_THREAD();
    rows_ = std::move(rows);
    if (panelMenu_) panelMenu_->setRows(rows_);
    if (ownMenu_) ownMenu_->setRows(rows_);
}

void TrayItem::appear(TrayHost::Kind kind) {
    const auto ink = Tokens::of(look_.look()).text;
    ownMenu_ = std::make_unique<TrayMenu>(MenuDrawnBy::qt, ink);
    ownMenu_->setRows(rows_);
    if (kind == TrayHost::Kind::panel) {
        panelMenu_ = std::make_unique<TrayMenu>(MenuDrawnBy::panel, ink);
        panelMenu_->setRows(rows_);
    }
    tray_ = std::make_unique<QSystemTrayIcon>();
    tray_->setContextMenu(panelMenu_ ? panelMenu_.get() : ownMenu_.get());
    tray_->setToolTip(toolTip_);
    connect(tray_.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) popUp();
            });
    applyLook();
    tray_->show();
}

void TrayItem::applyLook() {
    if (!tray_) return;
    const auto ink = Tokens::of(look_.look()).text;
    ownMenu_->setStyleSheet(menuStyleSheet(look_.look()));
    ownMenu_->setInk(ink);
    if (panelMenu_) panelMenu_->setInk(ink);
    showIcon();
}

void TrayItem::showIcon() {
    if (!tray_) return;
    const auto name = QLatin1String(nameOf(icon_));
    tray_->setIcon(symbolicIcon(name, name, Tokens::of(look_.look()).text));
}

void TrayItem::popUp() {
    ownMenu_->popup(QCursor::pos());
}

void TrayItem::tellMissing() const {
    notifyUser(
        bus_, QStringLiteral("Sonra is running without a tray icon"),
        QStringLiteral("This desktop shows no tray icons, so Sonra's menu has no place here. "
                       "Narration goes on as usual."));
}

}  // namespace sonra
