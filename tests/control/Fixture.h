#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "control/AppCoordinator.h"
#include "search/RecordedDesktopSearch.h"
#include "support/FakeDefaults.h"
#include "support/FakeFileWatcher.h"
#include "support/FakeGlobalHotkeys.h"
#include "support/FakePanel.h"
#include "support/FakePlayer.h"
#include "support/FakeRemoteCommandCenter.h"
#include "support/FakeScreens.h"
#include "support/FakeSearchPanel.h"
#include "support/FakeStatusItem.h"
#include "support/FakeTreeWatcher.h"
#include "support/LogWatch.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra::test {

/// A coordinator on a loop whose clock stands still, with a home of its own, silent players, and a
/// voice that is a tiny script of the test's own: it "speaks" by copying the text to the sound
/// file.
class CoordinatorTest : public testing::Test {
  protected:
    static constexpr double wallClockMs = 1'800'000'000'000;
    static constexpr auto stateTick = AppCoordinator::stateInterval;

    CoordinatorTest();
    /// Synthesis under way posts to the loop, which must still be there.
    ~CoordinatorTest() override;

    /// The test's ports, as a coordinator takes them.
    AppCoordinator::Platform platform();
    SearchPorts searchPorts();
    /// Starts the coordinator on what the shared document says now.
    void start();
    /// Before `start`: the resident worker is a script that stays up and answers nothing.
    void useResidentWorker();
    Json document() const;
    void writeDocument(const Json& document) const;
    /// The rows of `sessions`, null if there is no such key.
    Json rows() const;
    /// A transcript of Claude Code's at the place where the session's is looked for.
    std::string makeTranscript(const std::string& id, const std::string& cwd) const;
    /// A fresh row of `discoveredSessions`.
    Json discovered(const std::string& id, const std::string& transcript) const;
    /// Appends a reply and lets the tailer see it.
    void reply(const std::string& transcript, const std::string& messageId,
               const std::string& text);
    bool waitForPlays(std::size_t count);
    /// A sound file that "play" may take.
    std::string makeWav(const std::string& name) const;
    /// A "play" command for a message, as its sender writes it; the queue removes the file.
    void playMessage(const std::string& messageId, const std::string& text,
                     const std::string& sessionId = "s1");
    [[nodiscard]] const CaptionPanelModel& caption() const {
        return coordinator->captionWindow().viewModel();
    }

    TempHome home;
    ScopedEnv noCtl{"TTS_DISABLE_CTL", "1"};
    /// Where a test allows the control tool and says nothing more, one that does nothing.
    ScopedEnv idleCtl{"TTS_CTL_CMD", "/bin/true ctl.js"};
    ManualLoop loop;
    FakePlayerFactory players{loop};
    FakeFileWatcher files;
    WorkerPool pool;
    FakeDefaults defaults;
    FakeScreens screens;
    FakeStatusItem statusItem;
    FakeRemoteCommandCenter remote;
    FakeTreeWatcher tree;
    RecordedDesktopSearch desktopSearch{loop};
    FakeGlobalHotkeys hotkeys;
    FakePanel* panel = nullptr;              ///< the coordinator's; null before `start`
    FakeSearchPanel* searchPanel = nullptr;  ///< the coordinator's; null before `start`
    bool showsPanels = true;                 ///< before `start`: there is a display
    std::vector<int> exits;
    std::atomic<int> exitsAtOnce{0};
    std::string voiceLauncher;
    std::string workerScript;
    std::shared_ptr<KokoroWorkerEngine> worker;
    std::shared_ptr<AppCoordinator> coordinator;
    std::optional<LogWatch> watch{std::in_place};
    LogWatch& log = *watch;
};

}  // namespace sonra::test
