#pragma once

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QVariantMap>
#include <optional>

namespace sonra {

/// What the desktop's settings portal says about appearance. Main thread only. Asks and listens
/// without ever waiting: until an answer is there, and where no portal is, everything is absent. A
/// portal that comes later is asked then.
class PortalSettings : public QObject {
    Q_OBJECT

  public:
    explicit PortalSettings(const QDBusConnection& bus);

    /// Absent as long as nobody expressed a preference.
    [[nodiscard]] std::optional<bool> prefersDark() const;
    [[nodiscard]] bool highContrast() const;
    [[nodiscard]] bool reducedMotion() const;

  Q_SIGNALS:
    void changed();

  private:
    Q_SLOT void noteSetting(const QString& space, const QString& key, const QDBusVariant& value);
    void ask();
    [[nodiscard]] QVariant value(const char* space, const char* key) const;

    QDBusConnection bus_;
    QMap<QString, QVariantMap> values_;  ///< by namespace, then key
};

}  // namespace sonra
