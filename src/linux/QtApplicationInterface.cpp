#include "linux/QtApplicationInterface.h"

#include <utility>

#include "linux/QtApplicationAdaptor.h"
#include "linux/QtBusName.h"

namespace sonra {
namespace {

constexpr auto busName = "dev.trelnivorn.sonra";
constexpr auto objectPath = "/dev/trelnivorn/sonra";

}  // namespace

/// The object on the bus and its name there.
struct QtApplicationInterface::Exported {
    explicit Exported(MainLoop& loop) : name(loop, busName, objectPath, object, [] {}) {}

    QObject object;
    QtBusName name;
};

QtApplicationInterface::QtApplicationInterface(MainLoop& loop, Handlers handlers)
    : exported_(std::make_unique<Exported>(loop)) {
    new QtApplicationAdaptor(exported_->object, loop, std::move(handlers));
}

QtApplicationInterface::~QtApplicationInterface() = default;

QObject& QtApplicationInterface::exported() {
    return exported_->object;
}

void QtApplicationInterface::publish() {
    exported_->name.take();
}

}  // namespace sonra
