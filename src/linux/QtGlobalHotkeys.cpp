#include "linux/QtGlobalHotkeys.h"

#include <QtGlobal>

#include "linux/QtPortalShortcuts.h"
#include "linux/X11Hotkeys.h"

namespace sonra {

std::unique_ptr<GlobalHotkeys> makeGlobalHotkeys(MainLoop& loop) {
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) return std::make_unique<X11Hotkeys>(loop);
    return std::make_unique<QtPortalShortcuts>(loop);
}

}  // namespace sonra
