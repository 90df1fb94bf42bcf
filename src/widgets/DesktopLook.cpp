#include "widgets/DesktopLook.h"

namespace sonra {

void DesktopLook::set(const Look& look) {
    if (look == look_) return;
    look_ = look;
    Q_EMIT changed();
}

}  // namespace sonra
