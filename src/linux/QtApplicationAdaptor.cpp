#include "linux/QtApplicationAdaptor.h"

#include <utility>

namespace sonra {

QtApplicationAdaptor::QtApplicationAdaptor(QObject& exported, MainLoop& loop,
                                           QtApplicationInterface::Handlers handlers)
    : QDBusAbstractAdaptor(&exported), loop_(loop), handlers_(std::move(handlers)) {}

void QtApplicationAdaptor::Activate(const QVariantMap& /*platformData*/) {
    if (handlers_.activate) loop_.post(handlers_.activate);
}

void QtApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& /*platformData*/) {
    if (!handlers_.open) return;
    for (const auto& uri : uris)
        loop_.post([open = handlers_.open, text = uri.toStdString()] { open(text); });
}

void QtApplicationAdaptor::ActivateAction(const QString& name, const QVariantList& /*parameter*/,
                                          const QVariantMap& /*platformData*/) {
    if (handlers_.activateAction)
        loop_.post([act = handlers_.activateAction, action = name.toStdString()] { act(action); });
}

}  // namespace sonra
