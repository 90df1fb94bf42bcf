#include "linux/QtDesktopSearch.h"

#include <utility>

#include "linux/QtDesktopSearchRunner.h"
#include "linux/QtDesktopSearchShell.h"

namespace sonra {
namespace {

/// By the loop, so that whoever asked isn't kept waiting.
std::function<void(const std::string&)> posting(MainLoop& loop,
                                                std::function<void(const std::string&)> handler) {
    return [&loop, handler = std::move(handler)](const std::string& text) {
        if (handler) loop.post([handler, text] { handler(text); });
    };
}

}  // namespace

QtDesktopSearch::QtDesktopSearch(MainLoop& loop, QObject& exported, Handlers handlers)
    : items_(loop) {
    const auto openUrl = posting(loop, std::move(handlers.openUrl));
    new QtDesktopSearchShell(exported, items_, openUrl, posting(loop, std::move(handlers.search)));
    new QtDesktopSearchRunner(exported, items_, openUrl);
}

}  // namespace sonra
