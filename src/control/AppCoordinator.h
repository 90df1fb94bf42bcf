#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "captions/CaptionWindow.h"
#include "control/CaptionPresenter.h"
#include "control/CommandTable.h"
#include "control/DaemonKeeper.h"
#include "control/HistoryTransport.h"
#include "control/IPCServer.h"
#include "control/NarrationSessions.h"
#include "control/SessionSearch.h"
#include "control/StateTick.h"
#include "frame/WorkerPool.h"
#include "history/MessageHistoryQueue.h"
#include "platform/FilePlayer.h"
#include "platform/FileWatcher.h"
#include "platform/MainLoop.h"
#include "platform/NowPlayingCenter.h"
#include "platform/RemoteCommandCenter.h"
#include "platform/Screens.h"
#include "platform/StatusItem.h"
#include "platform/UserDefaults.h"
#include "playback/AudioQueue.h"
#include "playback/NowPlayingSnapshotWriter.h"
#include "speech/KokoroWorkerEngine.h"
#include "speech/MacSynthesizer.h"
#include "ui/MenuBarController.h"

namespace sonra {

/// The one object of the service that knows all the others: it owns them, joins their callbacks,
/// and makes the running process follow the shared document.
///
/// Main thread only, made once by the application delegate and started once. The platform's ports
/// must outlive it. Work that runs elsewhere holds it weakly.
class AppCoordinator : public std::enable_shared_from_this<AppCoordinator> {
  public:
    struct Platform {
        MainLoop& loop;
        FilePlayerFactory& players;
        FileWatcher& files;
        WorkerPool& pool;
        UserDefaults& defaults;
        Screens& screens;
        StatusItem& statusItem;
        CaptionWindow::PanelFactory makeCaptionPanel;
        SearchPorts search;
        NowPlayingCenter* nowPlaying = nullptr;         ///< null where the desktop has none
        RemoteCommandCenter* remoteCommands = nullptr;  ///< null where the desktop has none
        std::function<void(int status)> exit;           ///< ends the process; may not return
        std::function<void(int status)> exitAtOnce;     ///< any thread; waits for nothing
        std::function<double()> wallClockMs;            ///< milliseconds since the epoch
    };
    struct Speech {
        std::shared_ptr<MacSynthesizer> synthesizer;
        std::shared_ptr<KokoroWorkerEngine> worker;
        /// Speaks messages of the history anew. An engine of its own, so that giving one of them up
        /// never costs a live one.
        std::shared_ptr<SpawnedEngine> resynth;
    };

    static constexpr std::chrono::milliseconds stateInterval{1500};

    AppCoordinator(std::string socketPath, Platform platform, Speech speech);
    ~AppCoordinator();
    AppCoordinator(const AppCoordinator&) = delete;
    AppCoordinator& operator=(const AppCoordinator&) = delete;

    /// Joins everything, opens the socket and begins to follow the shared document. False if the
    /// socket can't be had; the reason has then been reported.
    bool start();
    /// What every way out of the process must still do: the socket's file goes.
    void shutDown();

    /// One reading of the shared document, put into effect.
    void applyState();
    void handleIPC(const Json& message);

    /// A session of Claude Code's, wherever its transcript turns out to be.
    void attachSession(const std::string& id, const std::string& cwd);
    AttachOutcome attachSessionLocal(AttachRequest request);
    void detachSessionLocal(const std::string& id);
    /// Attaches the session that an address of this program's names; false for any other address.
    bool openURL(const std::string& url);
    void openSearchPanel(const std::optional<std::string>& query = {});

    [[nodiscard]] AudioQueue& queue() { return *queue_; }
    [[nodiscard]] NarrationSessions& sessions() { return *sessions_; }
    [[nodiscard]] MessageHistoryQueue& history() { return *messageHistoryQueue_; }
    [[nodiscard]] CaptionWindow& captionWindow() { return *captionWindow_; }
    /// True while speech is being made for any session.
    [[nodiscard]] bool isSynthesizing() const { return synthesesUnderWay_ > 0; }

  private:
    void wireQueue();
    void wireHistory();
    void wireSessions();
    void wireCaptions();
    void wireSearch();
    void wireMenu();
    void installRemoteCommandHandlers();
    void wireTransport();
    void wireHistoryCommands();
    void wireCaptionCommands();
    void wireSessionCommands();
    /// A callback that runs `body` with the coordinator, unless it has gone.
    template <typename... Arguments, typename Body>
    std::function<void(Arguments...)> whileAlive(Body body) {
        return [weak = weak_from_this(), body = std::move(body)](Arguments... arguments) {
            if (const auto self = weak.lock()) body(*self, std::forward<Arguments>(arguments)...);
        };
    }

    void onChunkStart(const AudioChunk& chunk, int index, int total);
    void onIdle();
    void onNewAttach(const AttachRequest& request);
    void onLastDetach();
    void onSynthesisStart();
    void onSynthesisEnd();
    void tellSynthesizing();
    void stopWorkerUnlessAttached();
    void offerSession(const AttachRequest& request);
    void setSession(const AttachRequest& request);
    void recordLive(const AudioChunk& chunk);
    void followFocus();
    void applyPauseState(bool paused);
    void next();
    void noteSkip();
    void applyHistoryState();
    void showWhetherNavigable();
    void setVolume(std::int64_t percent);
    void setSpeed(double speed);
    void toggleMute();
    void seekTo(double fraction);
    void clearEverything();
    void retireRemoteIfOver();
    void refreshMenuBar(const std::optional<StateTick>& tick = {});
    NarrationStatus queueStatus() const;
    void quit();
    void armWatchdog();
    void play(const Json& message);
    void attach(const Json& message);
    void maybeAutoAttachSoleSession(const StateTick& tick);
    void prewarmKokoro();
    NarrationPump::Synth makeSynth();

    const std::string socketPath_;
    Platform platform_;
    Speech speech_;
    std::shared_ptr<NowPlayingSnapshotWriter> nowPlayingSnapshot_;
    std::unique_ptr<AudioQueue> queue_;
    std::unique_ptr<MessageHistoryQueue> messageHistoryQueue_;
    std::unique_ptr<HistoryTransport> transport_;
    std::unique_ptr<CaptionWindow> captionWindow_;
    std::unique_ptr<CaptionPresenter> captions_;
    std::unique_ptr<MenuBarController> menuBar_;
    std::unique_ptr<NarrationSessions> sessions_;
    std::unique_ptr<SessionSearch> search_;
    std::unique_ptr<IPCServer> ipc_;
    DaemonKeeper daemon_;
    CommandTable commands_;
    std::string lastSnippet_;
    std::string pagedSession_;  ///< whose transcript the history's pages come from
    int synthesesUnderWay_ = 0;
    /// Counts attaches; a stop of the worker that is overtaken by one is void.
    std::shared_ptr<std::atomic<int>> attaches_ = std::make_shared<std::atomic<int>>(0);
    std::shared_ptr<std::atomic<bool>> prewarming_ = std::make_shared<std::atomic<bool>>(false);
    /// The candidate of the automatic rule that couldn't be attached.
    std::optional<DiscoveredRow> passedOver_;
    bool passedOverForGood_ = false;  ///< until its row changes
    Log log_;
    LoopHandle stateTimer_;
    LoopHandle synthesizingTeller_;
    std::jthread watchdog_;  ///< of a quit; ends with the coordinator
};

}  // namespace sonra
