#include "linux/QtApplicationAdaptor.h"

#include <utility>

#include "frame/SerialQueue.h"
#include "linux/X11StartupNotice.h"

namespace sonra {
namespace {

/// On a thread that ends with it: the X server may be slow to answer.
void endStartup(const QVariantMap& platformData) {
    auto id = platformData.value("desktop-startup-id").toString();
    if (id.isEmpty()) id = platformData.value("activation-token").toString();
    if (id.isEmpty()) return;
    SerialQueue("sonra.startup").post([text = id.toStdString()] { X11StartupNotice::end(text); });
}

}  // namespace

QtApplicationAdaptor::QtApplicationAdaptor(QObject& exported, MainLoop& loop,
                                           QtApplicationInterface::Handlers handlers)
    : QDBusAbstractAdaptor(&exported), loop_(loop), handlers_(std::move(handlers)) {}

void QtApplicationAdaptor::Activate(const QVariantMap& platformData) {
    endStartup(platformData);
    if (handlers_.activate) loop_.post(handlers_.activate);
}

void QtApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& platformData) {
    endStartup(platformData);
    if (!handlers_.open) return;
    for (const auto& uri : uris)
        loop_.post([open = handlers_.open, text = uri.toStdString()] { open(text); });
}

void QtApplicationAdaptor::ActivateAction(const QString& name, const QVariantList& /*parameter*/,
                                          const QVariantMap& platformData) {
    endStartup(platformData);
    if (handlers_.activateAction)
        loop_.post([act = handlers_.activateAction, action = name.toStdString()] { act(action); });
}

}  // namespace sonra
