#pragma once

#include <QDBusAbstractAdaptor>
#include <QList>
#include <QString>
#include <QVariantMap>
#include <functional>
#include <string>

class QDBusArgument;

namespace sonra {

class DesktopSearchItems;

/// A match as KRunner reads it.
struct QtRunnerMatch {
    QString id;
    QString text;
    QString icon;
    int type = 0;
    double relevance = 0;  ///< 0 to 1
    QVariantMap properties;
};
using QtRunnerMatches = QList<QtRunnerMatch>;

/// A further action of matches as KRunner reads it.
struct QtRunnerAction {
    QString id;
    QString text;
    QString icon;
};
using QtRunnerActions = QList<QtRunnerAction>;

QDBusArgument& operator<<(QDBusArgument& argument, const QtRunnerMatch& match);
const QDBusArgument& operator>>(const QDBusArgument& argument, QtRunnerMatch& match);
QDBusArgument& operator<<(QDBusArgument& argument, const QtRunnerAction& action);
const QDBusArgument& operator>>(const QDBusArgument& argument, QtRunnerAction& action);

/// The interface org.kde.krunner1. Main thread only; belongs to the exported object and borrows the
/// items. There is one thing to do with a match, so there are no actions to choose from.
class QtDesktopSearchRunner : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.krunner1")

  public:
    using OnText = std::function<void(const std::string& text)>;

    QtDesktopSearchRunner(QObject& exported, const DesktopSearchItems& items, OnText openUrl);

  public Q_SLOTS:
    sonra::QtRunnerMatches Match(const QString& query);
    sonra::QtRunnerActions Actions();
    void Run(const QString& matchId, const QString& actionId);
    QVariantMap Config();
    void Teardown() {}

  private:
    const DesktopSearchItems& items_;
    const OnText openUrl_;
};

}  // namespace sonra
