#include "linux/QtApplicationCall.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QStringList>
#include <QThread>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "linux/PrivateBus.h"
#include "support/TempDir.h"
#include "support/TimeLimit.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

constexpr auto busName = "dev.trelnivorn.sonra";
constexpr auto objectPath = "/dev/trelnivorn/sonra";
constexpr auto connectionName = "test.service";
constexpr auto longEnough = 20s;

/// The session bus of this process. One for all tests: the library reads its address once.
class OwnSessionBus {
  public:
    OwnSessionBus() : bus_("unix:path=" + (dir_ / "bus")) {
        variable_.emplace("DBUS_SESSION_BUS_ADDRESS", bus_.address);
    }

  private:
    const test::TempDir dir_;
    const test::PrivateBus bus_;
    std::optional<test::ScopedEnv> variable_;
};

/// What stands for the service on the bus; on a thread of its own, as the caller blocks.
class FakeService : public QDBusVirtualObject {
  public:
    enum class Manner { answers, refuses, isSilent, goesAway };

    explicit FakeService(Manner manner) : manner_(manner) {
        moveToThread(&thread_);
        thread_.start();
        auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName);
        EXPECT_TRUE(bus.registerVirtualObject(objectPath, this));
        EXPECT_TRUE(bus.registerService(busName));
    }
    ~FakeService() override {
        QDBusConnection::disconnectFromBus(connectionName);
        thread_.quit();
        thread_.wait();
    }

    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& connection) override {
        asked = call.member() + ' ' + call.arguments().value(0).toStringList().join(' ');
        if (manner_ == Manner::answers) return connection.send(call.createReply());
        if (manner_ == Manner::refuses)
            return connection.send(call.createErrorReply(QDBusError::Failed, "not today"));
        if (manner_ == Manner::goesAway) QDBusConnection::disconnectFromBus(connectionName);
        return true;
    }

    QString asked;  ///< read once the thread is over or the answer has come

  private:
    const Manner manner_;
    QThread thread_;
};

class QtApplicationCallTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { bus = std::make_unique<OwnSessionBus>(); }
    static void TearDownTestSuite() { bus.reset(); }

    static UrlDelivery open(std::chrono::milliseconds limit) {
        return QtApplicationCall::open({"tts://session/a", "tts://session/b"}, limit);
    }

    static inline std::unique_ptr<OwnSessionBus> bus;
    const test::TimeLimit limit{90};
    int count = 1;
    char name[6] = "tests";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{count, arguments};
};

using Manner = FakeService::Manner;

TEST_F(QtApplicationCallTest, AServiceThatAnswersHasThem) {
    const FakeService service(Manner::answers);
    EXPECT_EQ(open(longEnough), UrlDelivery::taken);
    EXPECT_EQ(service.asked, "Open tts://session/a tts://session/b");
}

TEST_F(QtApplicationCallTest, AServiceThatRefusesDoesNotHaveThem) {
    const FakeService service(Manner::refuses);
    EXPECT_EQ(open(longEnough), UrlDelivery::notTaken);
}

TEST_F(QtApplicationCallTest, WhereNobodyHasTheNameNobodyHasThem) {
    EXPECT_EQ(open(longEnough), UrlDelivery::notTaken);
}

TEST_F(QtApplicationCallTest, WithoutABusNobodyHasThem) {
    const test::ScopedEnv none("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere");
    EXPECT_EQ(open(longEnough), UrlDelivery::notTaken);
}

TEST_F(QtApplicationCallTest, AServiceThatSaysNothingInTimeMayHaveThem) {
    const FakeService service(Manner::isSilent);
    EXPECT_EQ(open(200ms), UrlDelivery::unanswered);
}

TEST_F(QtApplicationCallTest, AServiceThatIsGoneBeforeItAnswersMayHaveThem) {
    const FakeService service(Manner::goesAway);
    EXPECT_EQ(open(longEnough), UrlDelivery::unanswered);
}

}  // namespace
}  // namespace sonra
