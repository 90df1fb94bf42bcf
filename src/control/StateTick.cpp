#include "control/StateTick.h"

#include "frame/AtomicFile.h"

namespace sonra {

StateTick StateTick::read() {
    const auto bytes = AtomicFile::read(ServiceState::path());
    const auto document = bytes ? json::parseObject(*bytes) : std::nullopt;
    if (!document) return {};
    return {true, ServiceState::from(*document), SessionRows::from(*document)};
}

}  // namespace sonra
