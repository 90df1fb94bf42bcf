#include "linux/QtPortalTypes.h"

#include <QDBusArgument>

namespace sonra {

QDBusArgument& operator<<(QDBusArgument& argument, const QtPortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, QtPortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

}  // namespace sonra
