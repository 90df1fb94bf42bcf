#include "dictation/GlobalHotkey.h"

#include <map>
#include <utility>

#include "dictation/VirtualKeys.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

struct Callbacks {
    GlobalHotkey::OnPress onPress;
    GlobalHotkey::OnRefused onRefused;
};

/// Of the process; the main thread alone looks at it.
std::map<std::uint32_t, Callbacks>& table() {
    static std::map<std::uint32_t, Callbacks> callbacks;
    return callbacks;
}

std::uint32_t nextId() {
    static std::uint32_t last = 0;
    return ++last;
}

/// A copy: what is called may end its own instance.
Callbacks callbacksOf(std::uint32_t id) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto found = table().find(id);
    return found != table().end() ? found->second : Callbacks{};
}

GlobalHotkeys::Handlers handlers() {
    return {[](std::uint32_t id) {
                if (const auto call = callbacksOf(id).onPress) call();
            },
            [](std::uint32_t id, const std::string& reason) {
                if (const auto call = callbacksOf(id).onRefused) call(reason);
            }};
}

}  // namespace

std::unique_ptr<GlobalHotkey> GlobalHotkey::make(GlobalHotkeys& desktop, std::uint32_t keyCode,
                                                 std::uint32_t modifiers, const std::string& title,
                                                 OnPress onPress, OnRefused onRefused) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto chord = globalChord(keyCode, modifiers);
    if (!chord) return nullptr;
    desktop.setHandlers(handlers());
    const auto id = nextId();
    if (!desktop.registerHotKey(id, *chord, title)) return nullptr;
    table()[id] = {std::move(onPress), std::move(onRefused)};
    return std::unique_ptr<GlobalHotkey>(new GlobalHotkey(desktop, id));
}

void GlobalHotkey::unregister() {
    SONRA_ASSERT_MAIN_THREAD();
    if (auto* const desktop = std::exchange(desktop_, nullptr)) {
        desktop->unregisterHotKey(id_);
        table().erase(id_);
    }
}

}  // namespace sonra
