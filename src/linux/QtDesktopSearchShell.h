#pragma once

#include <QDBusAbstractAdaptor>
#include <QList>
#include <QStringList>
#include <QVariantMap>
#include <functional>
#include <string>

namespace sonra {

class DesktopSearchItems;

/// The interface org.gnome.Shell.SearchProvider2. Main thread only; belongs to the exported object
/// and borrows the items.
class QtDesktopSearchShell : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.gnome.Shell.SearchProvider2")

  public:
    using OnText = std::function<void(const std::string& text)>;

    QtDesktopSearchShell(QObject& exported, const DesktopSearchItems& items, OnText openUrl,
                         OnText search);

  public Q_SLOTS:
    QStringList GetInitialResultSet(const QStringList& terms);
    QStringList GetSubsearchResultSet(const QStringList& previousResults, const QStringList& terms);
    QList<QVariantMap> GetResultMetas(const QStringList& identifiers);
    void ActivateResult(const QString& identifier, const QStringList& terms, uint timestamp);
    void LaunchSearch(const QStringList& terms, uint timestamp);

  private:
    const DesktopSearchItems& items_;
    const OnText openUrl_;
    const OnText search_;
};

}  // namespace sonra
