#include "linux/X11Hotkeys.h"

#include <algorithm>
#include <chrono>

#include "frame/ThreadAffinity.h"
#include "linux/X11KeyMap.h"
#include "linux/X11Link.h"

namespace sonra {
namespace {

constexpr std::chrono::seconds beforeRetry{1};
constexpr auto takenReason = "already in use";
constexpr auto noServerReason = "the X server can't be reached";
/// The bits of a state that are modifiers and not mouse buttons or layouts.
constexpr unsigned modifierBits = 0xff;

}  // namespace

X11Hotkeys::X11Hotkeys(MainLoop& loop, std::string display, X11Patience patience)
    : loop_(loop),
      display_(std::move(display)),
      patience_(patience),
      log_(Log::shared().child({{"class", "X11Hotkeys"}})) {}

X11Hotkeys::~X11Hotkeys() = default;

bool X11Hotkeys::registerHotKey(std::uint32_t id, const KeyChord& chord,
                                const std::string& /*title*/) {
    SONRA_ASSERT_MAIN_THREAD();
    if (link_ && link_->isBroken()) lose();
    if (!link_ && !connect()) {
        log_.warn("no global hotkeys without an x server",
                  {{"input", {{"display", display_}}}, {"result", {{"reason", noServerReason}}}});
        return false;
    }
    Grab grab{chord, 0, {}};
    if (holdUnanswered() && link_) hold(id, grab);
    if (grab.answer == Answer::taken) {
        log_.warn("global hotkey is taken",
                  {{"input", {{"key", chord.keyName}}}, {"result", {{"reason", takenReason}}}});
        return false;
    }
    if (grab.answer == Answer::none) tryLater();
    grabs_.insert_or_assign(id, std::move(grab));
    return true;
}

void X11Hotkeys::unregisterHotKey(std::uint32_t id) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto found = grabs_.find(id);
    if (found == grabs_.end()) return;
    letGo(found->second);
    grabs_.erase(found);
}

bool X11Hotkeys::connect() {
    bool silent = false;
    auto link = X11Link::open(display_, patience_, &silent);
    if (!link) return silent;
    auto keyMap = X11KeyMap::read(*link);
    if (!keyMap) return !link->isBroken();
    absenceTold_ = false;
    isMappingOld_ = false;
    link_ = std::move(link);
    keyMap_ = std::make_unique<X11KeyMap>(std::move(*keyMap));
    readable_ = loop_.watch(link_->fd(), MainLoop::Interest::readable, [this] { read(); });
    return true;
}

bool X11Hotkeys::isTaken(const Grab& wanted) const {
    // The server gives a client its own keys twice, and one release would free both.
    return std::ranges::any_of(grabs_, [&wanted](const auto& entry) {
        return entry.second.modifiers == wanted.modifiers &&
               std::ranges::find_first_of(entry.second.keys, wanted.keys) !=
                   entry.second.keys.end();
    });
}

void X11Hotkeys::hold(std::uint32_t id, Grab& grab) {
    Grab wanted{grab.chord, keyMap_->modifiersOf(grab.chord), keyMap_->keysOf(grab.chord)};
    grab.answer = Answer::taken;
    if (wanted.keys.empty() || isTaken(wanted)) return;
    std::vector<xcb_void_cookie_t> asked;
    for (const auto key : wanted.keys)
        for (const auto locks : keyMap_->lockStates())
            asked.push_back(xcb_grab_key(link_->get(), 0, link_->root(),
                                         static_cast<std::uint16_t>(wanted.modifiers | locks), key,
                                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    const bool answered = link_->sync();
    const auto failures = std::ranges::count_if(
        asked, [this](xcb_void_cookie_t cookie) { return link_->hasFailed(cookie); });
    readLater();
    wanted.answer = !answered ? Answer::none : failures > 0 ? Answer::taken : Answer::held;
    if (wanted.answer != Answer::held) letGo(wanted);
    grab = std::move(wanted);
    log_.debug("grabbed", {{"input", {{"id", id}}}, {"result", {{"keys", grab.keys.size()}}}});
}

bool X11Hotkeys::holdUnanswered() {
    for (auto& [id, grab] : grabs_) {
        if (grab.answer != Answer::none) continue;
        if (link_) hold(id, grab);
        if (grab.answer == Answer::taken) report(id, takenReason);
        if (grab.answer != Answer::none) continue;
        tryLater();
        return false;
    }
    return true;
}

void X11Hotkeys::tryLater() {
    if (std::exchange(retryPending_, true)) return;
    log_.debug("global hotkeys are taken later");
    retry_ = loop_.after(beforeRetry, [this] {
        retryPending_ = false;
        tryAgain();
    });
}

void X11Hotkeys::tryAgain() {
    if (link_ && link_->isBroken()) return lose();
    if (grabs_.empty()) return;
    if (!link_ && !connect()) {
        if (!std::exchange(absenceTold_, true)) refuseAll();
        return tryLater();
    }
    if (isMappingOld_) return takeAnew();
    holdUnanswered();
}

void X11Hotkeys::letGo(Grab& grab) {
    if (link_)
        for (const auto key : std::exchange(grab.keys, {}))
            for (const auto locks : keyMap_->lockStates())
                xcb_ungrab_key(link_->get(), key, link_->root(),
                               static_cast<std::uint16_t>(grab.modifiers | locks));
    if (link_) xcb_flush(link_->get());
    grab.keys.clear();
}

void X11Hotkeys::readLater() {
    // What came together with an answer makes the descriptor readable no more.
    loop_.post([weak = std::weak_ptr(self_)] {
        if (const auto self = weak.lock(); self && (*self)->link_) (*self)->read();
    });
}

void X11Hotkeys::read() {
    while (const auto event = link_->nextEvent()) {
        const auto* const key = reinterpret_cast<const xcb_key_press_event_t*>(event.get());
        switch (event->response_type) {
            case XCB_KEY_PRESS:
                handlePress(key->detail, key->state, key->time);
                break;
            case XCB_KEY_RELEASE:
                released_ = Release{key->detail, key->time};
                break;
            case XCB_MAPPING_NOTIFY:
                followMapping();
                break;
            default:
                break;
        }
    }
    if (link_->isBroken()) lose();
}

void X11Hotkeys::handlePress(std::uint8_t key, std::uint16_t state, std::uint32_t time) {
    // A key that is held is let go and pressed again in one moment, over and over.
    const bool repeated = released_ && released_->key == key && released_->time == time;
    if (repeated) return;
    const auto modifiers = state & modifierBits & ~unsigned{keyMap_->locks()};
    for (const auto& [id, grab] : grabs_)
        if (grab.modifiers == modifiers && std::ranges::count(grab.keys, key) > 0)
            return report(id, std::nullopt);
}

void X11Hotkeys::followMapping() {
    // One change is announced several times.
    if (std::exchange(mappingPending_, true)) return;
    loop_.post([weak = std::weak_ptr(self_)] {
        if (const auto self = weak.lock()) (*self)->takeAnew();
    });
}

void X11Hotkeys::takeAnew() {
    mappingPending_ = false;
    if (!link_) return;
    auto keyMap = X11KeyMap::read(*link_);
    readLater();
    isMappingOld_ = !keyMap;
    if (!keyMap) return tryLater();
    // Some servers announce a change whenever another keyboard is used.
    if (*keyMap != *keyMap_) {
        for (auto& [id, grab] : grabs_) {
            letGo(grab);
            grab.answer = Answer::none;
        }
        *keyMap_ = std::move(*keyMap);
    }
    holdUnanswered();
}

void X11Hotkeys::lose() {
    if (!std::exchange(lossLogged_, true))
        log_.warn("x server connection lost, global hotkeys are taken anew");
    readable_.cancel();
    link_.reset();
    isMappingOld_ = false;
    for (auto& [id, grab] : grabs_) grab = {grab.chord, 0, {}};
    tryLater();
}

void X11Hotkeys::refuseAll() {
    for (const auto& [id, grab] : grabs_) report(id, noServerReason);
}

void X11Hotkeys::report(std::uint32_t id, std::optional<std::string> refusal) {
    if (refusal)
        log_.warn("global hotkey can't be had", {{"input", {{"key", grabs_.at(id).chord.keyName}}},
                                                 {"result", {{"reason", *refusal}}}});
    loop_.post([weak = std::weak_ptr(self_), id, refusal = std::move(refusal)] {
        const auto self = weak.lock();
        if (!self) return;
        // A copy: what is called may set others.
        const auto handlers = (*self)->handlers_;
        if (!refusal && handlers.pressed) handlers.pressed(id);
        if (refusal && handlers.refused) handlers.refused(id, *refusal);
    });
}

}  // namespace sonra
