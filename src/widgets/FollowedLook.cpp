#include "widgets/FollowedLook.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

namespace sonra {
namespace {

bool paletteIsDark() {
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
}

}  // namespace

FollowedLook::FollowedLook(const QDBusConnection& bus) : DesktopLook(Look{}), portal_(bus) {
    connect(&portal_, &PortalSettings::changed, this, [this] { refresh(); });
    connect(&compositor_, &Compositor::changed, this, [this] { refresh(); });
    qGuiApp->installEventFilter(this);
    refresh();
}

bool FollowedLook::eventFilter(QObject* watched, QEvent* event) {
    if (watched == qGuiApp && event->type() == QEvent::ApplicationPaletteChange) refresh();
    return false;
}

void FollowedLook::refresh() {
    set({.dark = portal_.prefersDark().value_or(paletteIsDark()),
         .reducedMotion = portal_.reducedMotion(),
         .highContrast = portal_.highContrast(),
         .composited = compositor_.isRunning()});
}

}  // namespace sonra
