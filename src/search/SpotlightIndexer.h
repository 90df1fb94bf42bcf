#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "frame/SerialQueue.h"
#include "platform/DesktopSearchIndex.h"
#include "search/SessionSnapshot.h"

namespace sonra {

class MainLoop;
class UserDefaults;

/// Something that the user went on with from elsewhere on the desktop.
struct UserActivity {
    std::string activityType;
    std::map<std::string, std::string> userInfo;
};

/// Keeps the desktop's own search up with the catalogue, and attaches the session of a result that
/// was chosen there.
///
/// What has been handed over is known on a queue of its own, which alone touches it and hands over
/// in the order of the calls, so that only sessions whose files changed are handed over again. Any
/// thread may call, after the callbacks are set; the ports outlive it. Its end waits for what is
/// being handed over; nothing is afterwards. Errors of the desktop's search go to standard error.
class SpotlightIndexer {
  public:
    /// A chosen result, and the entry of `userInfo` that says which.
    static constexpr std::string_view CSSearchableItemActionType = "CSSearchableItemActionType";
    static constexpr std::string_view CSSearchableItemActivityIdentifier =
        "CSSearchableItemActivityIdentifier";

    struct Address {
        std::string sessionId;
        std::optional<std::string> messageId;

        bool operator==(const Address&) const = default;
    };
    /// Called on the main thread.
    struct Callbacks {
        std::function<std::optional<SessionMeta>(const std::string& sessionId)> lookup = {};
        std::function<void(const std::string& id, const std::string& cwd)> onAttach = {};
    };

    SpotlightIndexer(MainLoop& loop, DesktopSearchIndex& index, UserDefaults& defaults);
    ~SpotlightIndexer();
    SpotlightIndexer(const SpotlightIndexer&) = delete;
    SpotlightIndexer& operator=(const SpotlightIndexer&) = delete;

    void setCallbacks(Callbacks callbacks);

    void reindexAll(const SessionSnapshot& metas);
    /// Hands over what changed since, and takes back what has gone.
    void update(const SessionSnapshot& metas);
    void resetAndReindex(const SessionSnapshot& metas);
    /// Removes what an earlier design left behind.
    void purgeLegacyMessageIndex();

    bool handleActivity(const UserActivity& activity);
    /// True if it names a session, whether the catalogue knows it or not; that is attached a moment
    /// later.
    bool openFromURLString(const std::string& text);
    static std::optional<Address> parseURL(std::string_view text);

  private:
    struct State;

    const std::shared_ptr<State> state_;
};

}  // namespace sonra
