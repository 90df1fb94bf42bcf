#pragma once

#include <QList>
#include <QString>
#include <QVariantMap>

class QDBusArgument;

namespace sonra {

/// A shortcut as the GlobalShortcuts portal reads and writes it.
struct QtPortalShortcut {
    QString id;
    QVariantMap properties;
};
using QtPortalShortcutList = QList<QtPortalShortcut>;

QDBusArgument& operator<<(QDBusArgument& argument, const QtPortalShortcut& shortcut);
const QDBusArgument& operator>>(const QDBusArgument& argument, QtPortalShortcut& shortcut);

}  // namespace sonra
