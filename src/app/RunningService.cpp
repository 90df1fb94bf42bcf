#include "app/RunningService.h"

#include <sysexits.h>

#include <chrono>
#include <iostream>

#include "frame/ServiceLock.h"
#include "frame/UrlLaunch.h"
#include "linux/QtApplicationCall.h"

namespace sonra {
namespace {

/// A service is up within a second; on a busy machine it gets its time.
constexpr std::chrono::seconds patience{5};

}  // namespace

std::optional<int> openInRunningService(const std::vector<std::string>& urls) {
    if (urls.empty()) return std::nullopt;
    const auto handover = handOverUrls(urls, QtApplicationCall::open, patience);
    using Outcome = UrlHandover::Outcome;
    if (handover.outcome == Outcome::isService) return std::nullopt;
    if (handover.outcome == Outcome::done) return EX_OK;
    // The lock's own words say why it can't be taken; by now it may be possible after all.
    if (handover.outcome == Outcome::noLock)
        return acquireServiceLock() ? std::nullopt : std::optional(EX_UNAVAILABLE);
    std::cerr << "sonra: the service is running"
              << (handover.holder ? " (process " + std::to_string(*handover.holder) + ")" : "")
              << " but can't be reached over its socket or the session bus; nothing was opened."
              << std::endl;
    return EX_UNAVAILABLE;
}

}  // namespace sonra
