#include "linux/QtMprisRoot.h"

namespace sonra {

QString QtMprisRoot::identity() const {
    return "Sonra";
}

QString QtMprisRoot::desktopEntry() const {
    return "dev.trelnivorn.sonra";
}

}  // namespace sonra
