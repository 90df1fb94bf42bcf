#include "search/SpotlightIndexer.h"

#include <atomic>
#include <cstdio>
#include <unordered_map>
#include <utility>
#include <vector>

#include "frame/Text.h"
#include "frame/ThreadAffinity.h"
#include "platform/MainLoop.h"
#include "platform/UserDefaults.h"
#include "search/FileName.h"

namespace sonra {
namespace {

constexpr std::string_view addressStart = "tts://session/";
constexpr std::string_view sessionDomain = "sessions";
constexpr std::string_view legacyDomain = "messages";
constexpr std::string_view legacyDefault = "tts.search.indexMessages";

/// What was handed over for an id: another file of the same time is another item.
struct Indexed {
    double mtime;
    std::string path;

    bool operator==(const Indexed&) const = default;
};
using AllIndexed = std::map<std::string, Indexed>;

std::string identifierOf(const std::string& sessionId) {
    return std::string(addressStart) + sessionId;
}

SearchableItem itemOf(const SessionMeta& session) {
    const std::string folder(FileName::lastComponent(session.cwd));
    const std::string shortId(text::prefix(session.sessionId, 8));
    SearchableItem item;
    item.uniqueIdentifier = identifierOf(session.sessionId);
    item.domainIdentifier = sessionDomain;
    item.title = folder + " · " + shortId;
    item.contentDescription = session.lastAssistantSnippet;
    item.keywords = {folder, session.cwd, session.sessionId, shortId};
    item.contentModificationDate = session.mtime;
    return item;
}

/// Without sub-agents, and each id once, which is what the desktop's search knows: of several
/// transcripts the newest.
std::vector<const SessionMeta*> itemsAmong(const SessionSnapshot& metas) {
    std::vector<const SessionMeta*> sessions;
    std::unordered_map<std::string_view, std::size_t> places;
    for (const auto& session : metas) {
        if (session.isOfSubAgent()) continue;
        const auto [place, isFirst] = places.try_emplace(session.sessionId, sessions.size());
        if (isFirst)
            sessions.push_back(&session);
        else if (sessions[place->second]->mtime < session.mtime)
            sessions[place->second] = &session;
    }
    return sessions;
}

Indexed indexed(const SessionMeta& session) {
    return {session.mtime, session.jsonlPath};
}

AllIndexed indexed(const std::vector<const SessionMeta*>& sessions) {
    AllIndexed all;
    for (const auto* session : sessions) all.emplace(session->sessionId, indexed(*session));
    return all;
}

void report(const char* operation, const std::optional<std::string>& error) {
    if (error) std::fprintf(stderr, "[spotlight] %s error: %s\n", operation, error->c_str());
}

std::optional<int> hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    const char lower = static_cast<char>(digit | 0x20);
    if (lower >= 'a' && lower <= 'f') return lower - 'a' + 10;
    return std::nullopt;
}

/// A per cent sign that doesn't begin an escape stands for itself.
std::string decoded(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto high =
            text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : std::nullopt;
        const auto low = high ? hexDigit(text[i + 2]) : std::nullopt;
        plain += low ? static_cast<char>(*high * 16 + *low) : text[i];
        if (low) i += 2;
    }
    return plain;
}

/// The parts of a path that aren't empty.
std::vector<std::string> componentsOf(std::string_view path) {
    std::vector<std::string> components;
    while (!path.empty()) {
        const auto part = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(path.size(), part.size() + 1));
        if (!part.empty()) components.push_back(decoded(part));
    }
    return components;
}

/// Without user and port.
std::string_view hostOf(std::string_view authority) {
    const auto at = authority.rfind('@');
    if (at != std::string_view::npos) authority.remove_prefix(at + 1);
    return authority.substr(0, authority.find(':'));
}

}  // namespace

/// Work on the queue is over before it goes; work on the loop holds it weakly.
struct SpotlightIndexer::State {
    State(MainLoop& mainLoop, DesktopSearchIndex& desktop, UserDefaults& userDefaults)
        : loop(mainLoop), index(desktop), defaults(userDefaults) {}

    ~State() {
        isGone = true;
        // What is being handed over just now still uses the ports and this.
        queue.sync([] {});
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// `body` on the queue, with this, unless it is to go by then.
    template <typename Body>
    void onQueue(Body body) {
        queue.post([this, body = std::move(body)] {
            if (!isGone) body(*this);
        });
    }
    void handOverAll(const SessionSnapshot& metas);
    /// Takes back what was handed over and isn't there any more.
    void replaceIndexed(AllIndexed now, DesktopSearchIndex::Completion complete);
    void update(const SessionSnapshot& metas);
    void open(const std::string& sessionId) const;

    MainLoop& loop;
    DesktopSearchIndex& index;
    UserDefaults& defaults;
    Callbacks callbacks;
    SerialQueue queue{"tts.spotlight.indexer"};
    AllIndexed lastIndexed;  ///< the queue's
    std::atomic<bool> isGone = false;
};

SpotlightIndexer::SpotlightIndexer(MainLoop& loop, DesktopSearchIndex& index,
                                   UserDefaults& defaults)
    : state_(std::make_shared<State>(loop, index, defaults)) {}

SpotlightIndexer::~SpotlightIndexer() = default;

void SpotlightIndexer::setCallbacks(Callbacks callbacks) {
    state_->callbacks = std::move(callbacks);
}

void SpotlightIndexer::State::handOverAll(const SessionSnapshot& metas) {
    SONRA_ASSERT_ON(queue);
    const auto sessions = itemsAmong(metas);
    std::vector<SearchableItem> items;
    items.reserve(sessions.size());
    for (const auto* session : sessions) items.push_back(itemOf(*session));
    index.indexSearchableItems(std::move(items),
                               [](const auto& error) { report("reindex", error); });
    replaceIndexed(indexed(sessions), [](const auto& error) { report("reindex", error); });
}

/// Not when the desktop has answered: an update that is asked for meanwhile builds upon this.
void SpotlightIndexer::State::replaceIndexed(AllIndexed now,
                                             DesktopSearchIndex::Completion complete) {
    std::vector<std::string> removed;
    for (const auto& [id, before] : lastIndexed)
        if (!now.contains(id)) removed.push_back(identifierOf(id));
    if (!removed.empty()) index.deleteSearchableItems(removed, std::move(complete));
    lastIndexed = std::move(now);
}

void SpotlightIndexer::State::update(const SessionSnapshot& metas) {
    SONRA_ASSERT_ON(queue);
    const auto sessions = itemsAmong(metas);
    std::vector<SearchableItem> changed;
    for (const auto* session : sessions) {
        const auto known = lastIndexed.find(session->sessionId);
        if (known == lastIndexed.end() || known->second != indexed(*session))
            changed.push_back(itemOf(*session));
    }
    const auto complete = [](const auto& error) { report("update", error); };
    if (!changed.empty()) index.indexSearchableItems(std::move(changed), complete);
    replaceIndexed(indexed(sessions), complete);
}

void SpotlightIndexer::State::open(const std::string& sessionId) const {
    const auto known = callbacks.lookup ? callbacks.lookup(sessionId) : std::nullopt;
    if (callbacks.onAttach) callbacks.onAttach(sessionId, known ? known->cwd : "");
}

void SpotlightIndexer::reindexAll(const SessionSnapshot& metas) {
    state_->onQueue([metas](State& state) { state.handOverAll(metas); });
}

void SpotlightIndexer::update(const SessionSnapshot& metas) {
    state_->onQueue([metas](State& state) { state.update(metas); });
}

void SpotlightIndexer::resetAndReindex(const SessionSnapshot& metas) {
    // The desktop keeps the order of the calls.
    state_->onQueue([metas](State& state) {
        state.index.deleteAllSearchableItems([](const auto& error) { report("reset", error); });
        state.lastIndexed.clear();
        state.handOverAll(metas);
    });
}

void SpotlightIndexer::purgeLegacyMessageIndex() {
    state_->onQueue([](State& state) {
        state.index.deleteSearchableItemsInDomains(
            {std::string(legacyDomain)}, [](const auto& error) { report("purge", error); });
    });
    // Defaults are the main thread's.
    state_->loop.post([weak = std::weak_ptr(state_)] {
        if (const auto self = weak.lock()) self->defaults.remove(legacyDefault);
    });
}

std::optional<SpotlightIndexer::Address> SpotlightIndexer::parseURL(std::string_view text) {
    constexpr std::string_view scheme = "tts://";
    if (text::lowered(text.substr(0, scheme.size())) != scheme) return std::nullopt;
    text.remove_prefix(scheme.size());
    text = text.substr(0, text.find_first_of("?#"));
    const auto authority = text.substr(0, text.find('/'));
    if (hostOf(authority) != "session") return std::nullopt;
    auto components = componentsOf(text.substr(authority.size()));
    if (components.empty()) return std::nullopt;
    Address address{components[0], std::nullopt};
    if (components.size() >= 3 && components[1] == "message") address.messageId = components[2];
    return address;
}

bool SpotlightIndexer::openFromURLString(const std::string& text) {
    auto address = parseURL(text);
    if (!address) return false;
    state_->loop.post([weak = std::weak_ptr(state_), id = std::move(address->sessionId)] {
        if (const auto self = weak.lock()) self->open(id);
    });
    return true;
}

bool SpotlightIndexer::handleActivity(const UserActivity& activity) {
    if (activity.activityType != CSSearchableItemActionType) return false;
    const auto identifier = activity.userInfo.find(std::string(CSSearchableItemActivityIdentifier));
    return identifier != activity.userInfo.end() && openFromURLString(identifier->second);
}

}  // namespace sonra
