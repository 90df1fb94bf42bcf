#include "app/RunningService.h"

#include <sysexits.h>

#include <iostream>

#include "frame/ServiceLock.h"
#include "frame/UrlLaunch.h"
#include "linux/QtApplicationCall.h"

namespace sonra {
namespace {

void say(const UrlHandover& handover, const char* rest) {
    std::cerr << "sonra: the service is running"
              << (handover.holder ? " (process " + std::to_string(*handover.holder) + ")" : "")
              << rest << std::endl;
}

}  // namespace

std::optional<int> openInRunningService(const std::vector<std::string>& urls) {
    if (urls.empty()) return std::nullopt;
    const auto handover =
        handOverUrls(urls, [](const auto& each) { return QtApplicationCall::open(each); });
    using Outcome = UrlHandover::Outcome;
    if (handover.outcome == Outcome::isService) return std::nullopt;
    if (handover.outcome == Outcome::done) return EX_OK;
    // The lock's own words say why it can't be taken; by now it may be possible after all.
    if (handover.outcome == Outcome::noLock)
        return acquireServiceLock() ? std::nullopt : std::optional(EX_UNAVAILABLE);
    say(handover,
        handover.outcome == Outcome::unanswered
            ? " but doesn't answer; it was asked to open this and may yet do so."
            : " but can't be reached over its socket or the session bus; nothing was opened.");
    return EX_UNAVAILABLE;
}

}  // namespace sonra
