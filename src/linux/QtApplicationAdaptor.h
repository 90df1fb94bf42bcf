#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>
#include <QVariantMap>

#include "linux/QtApplicationInterface.h"

namespace sonra {

/// The interface org.freedesktop.Application. Main thread only; belongs to the exported object.
/// A start that the platform data say was announced is over with the call: no window comes of it.
class QtApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

  public:
    QtApplicationAdaptor(QObject& exported, MainLoop& loop,
                         QtApplicationInterface::Handlers handlers);

  public Q_SLOTS:
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& name, const QVariantList& parameter,
                        const QVariantMap& platformData);

  private:
    MainLoop& loop_;
    const QtApplicationInterface::Handlers handlers_;
};

}  // namespace sonra
