#include "widgets/PortalSettings.h"

#include <gtest/gtest.h>

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QProcess>

#include "PanelFixture.h"
#include "widgets/FollowedLook.h"

namespace sonra::test {
namespace {

using Namespaces = QMap<QString, QVariantMap>;

constexpr auto path = "/org/freedesktop/portal/desktop";
constexpr auto interface = "org.freedesktop.portal.Settings";
constexpr auto name = "org.freedesktop.portal.Desktop";

/// A bus of the test's own.
class PrivateBus {
  public:
    PrivateBus() {
        daemon_.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        if (daemon_.waitForStarted() && daemon_.waitForReadyRead())
            address_ = QString::fromLatin1(daemon_.readLine().trimmed());
    }
    ~PrivateBus() {
        for (const auto& connection : connections_) QDBusConnection::disconnectFromBus(connection);
        daemon_.terminate();
        daemon_.waitForFinished();
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    QDBusConnection connect(const QString& as) {
        connections_ << as;
        return QDBusConnection::connectToBus(address_, as);
    }

  private:
    QProcess daemon_;
    QString address_;
    QStringList connections_;
};

/// Answers as a settings portal does.
class Portal : public QDBusVirtualObject {
  public:
    explicit Portal(const QDBusConnection& bus) : bus_(bus) {
        qDBusRegisterMetaType<Namespaces>();
        bus_.registerVirtualObject(path, this);
        bus_.registerService(name);
    }
    ~Portal() override {
        bus_.unregisterService(name);
        bus_.unregisterObject(path);
    }

    Namespaces values;
    int questions = 0;

    void change(const QString& space, const QString& key, const QVariant& value) {
        auto signal = QDBusMessage::createSignal(path, interface, "SettingChanged");
        signal << space << key << QVariant::fromValue(QDBusVariant(value));
        bus_.send(signal);
    }

  private:
    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override {
        if (message.member() != "ReadAll") return false;
        ++questions;
        return bus.send(message.createReply(QVariant::fromValue(values)));
    }

    QDBusConnection bus_;
};

class PortalSettingsTest : public testing::Test {
  protected:
    PrivateBus bus;
};

TEST_F(PortalSettingsTest, ReadsWhatThePortalSays) {
    Portal portal(bus.connect("portal"));
    portal.values["org.freedesktop.appearance"]["color-scheme"] = 1U;
    portal.values["org.gnome.desktop.interface"]["enable-animations"] = false;
    portal.values["org.gnome.desktop.a11y.interface"]["high-contrast"] = true;
    const PortalSettings settings(bus.connect("reader"));
    EXPECT_EQ(settings.prefersDark(), std::nullopt);
    ASSERT_TRUE(pumpUntil([&] { return settings.prefersDark().has_value(); }));
    EXPECT_EQ(settings.prefersDark(), true);
    EXPECT_TRUE(settings.reducedMotion());
    EXPECT_TRUE(settings.highContrast());
}

TEST_F(PortalSettingsTest, FollowsChanges) {
    Portal portal(bus.connect("portal"));
    portal.values["org.freedesktop.appearance"]["color-scheme"] = 2U;
    const PortalSettings settings(bus.connect("reader"));
    ASSERT_TRUE(pumpUntil([&] { return settings.prefersDark() == false; }));
    portal.change("org.freedesktop.appearance", "color-scheme", 1U);
    EXPECT_TRUE(pumpUntil([&] { return settings.prefersDark() == true; }));
    portal.change("org.kde.kdeglobals.KDE", "AnimationDurationFactor", "0");
    EXPECT_TRUE(pumpUntil([&] { return settings.reducedMotion(); }));
    portal.change("org.freedesktop.appearance", "contrast", 1U);
    EXPECT_TRUE(pumpUntil([&] { return settings.highContrast(); }));
    portal.change("org.freedesktop.appearance", "color-scheme", 0U);
    EXPECT_TRUE(pumpUntil([&] { return !settings.prefersDark().has_value(); }));
}

TEST_F(PortalSettingsTest, APortalThatComesLaterIsAsked) {
    const PortalSettings settings(bus.connect("reader"));
    QCoreApplication::processEvents();
    EXPECT_EQ(settings.prefersDark(), std::nullopt);
    Portal portal(bus.connect("portal"));
    portal.values["org.freedesktop.appearance"]["color-scheme"] = 1U;
    EXPECT_TRUE(pumpUntil([&] { return settings.prefersDark() == true; }));
}

TEST_F(PortalSettingsTest, WithoutABusNothingIsKnown) {
    const PortalSettings settings(QDBusConnection("no such connection"));
    EXPECT_EQ(settings.prefersDark(), std::nullopt);
    EXPECT_FALSE(settings.reducedMotion());
    EXPECT_FALSE(settings.highContrast());
}

TEST_F(PortalSettingsTest, TheLookFallsBackToThePalette) {
    const auto before = QApplication::palette();
    FollowedLook look{QDBusConnection("no such connection")};
    QApplication::setPalette(QPalette(QColor(30, 30, 30)));
    EXPECT_TRUE(pumpUntil([&] { return look.look().dark; }));
    QApplication::setPalette(QPalette(QColor(240, 240, 240)));
    EXPECT_TRUE(pumpUntil([&] { return !look.look().dark; }));
    EXPECT_TRUE(look.look().composited) << "no X server here";
    QApplication::setPalette(before);
}

TEST_F(PortalSettingsTest, ThePortalWinsOverThePalette) {
    Portal portal(bus.connect("portal"));
    portal.values["org.freedesktop.appearance"]["color-scheme"] = 2U;
    FollowedLook look{bus.connect("reader")};
    const auto before = QApplication::palette();
    QApplication::setPalette(QPalette(QColor(30, 30, 30)));
    EXPECT_TRUE(pumpUntil([&] { return portal.questions > 0 && !look.look().dark; }));
    QApplication::setPalette(before);
}

}  // namespace
}  // namespace sonra::test
