#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "frame/Semaphore.h"
#include "frame/WorkerPool.h"
#include "search/SearchPanelController.h"
#include "support/FakeScreens.h"
#include "support/FakeSearchPanel.h"
#include "support/ManualLoop.h"

namespace sonra::test {

/// A session of two hours ago.
inline SessionMeta meta(const std::string& id, const std::string& cwd, const std::string& prompt) {
    SessionMeta session;
    session.sessionId = id;
    session.cwd = cwd;
    session.firstUserPrompt = prompt;
    session.source = "claude-code";
    session.mtime = 1'790'000'000 - 7200;
    return session;
}

/// The panel's controller with a panel, a clock and a catalogue of the test's own.
class ControlledSearchPanel : public testing::Test {
  protected:
    struct Hotkey {
        std::uint32_t keyCode = 0;
        std::uint32_t modifiers = 0;
        std::function<void()> press;
        std::function<void()> refuse;
    };

    ControlledSearchPanel() {
        controller->setCallbacks({
            .currentAttachedIds = [this] { return attached; },
            .snapshot = [this] { return SessionSnapshot(sessions); },
            .reconcileProgress = [this] { return progress; },
            .onAttach =
                [this](const auto& id, const auto& cwd) {
                    attachedWhileShown = panel.isVisible();
                    attaches.push_back(id + " " + cwd);
                },
            .makeHotkey = [this](auto keyCode, auto modifiers, auto press,
                                 auto refuse) -> std::shared_ptr<void> {
                if (!hasHotkeys) return nullptr;
                hotkey = {keyCode, modifiers, press, refuse};
                return std::make_shared<int>();
            },
        });
    }
    ~ControlledSearchPanel() override { pool.drain(); }

    /// Lets searches end and their results arrive.
    void settle() {
        pool.drain();
        loop.runPosted();
    }
    void open() {
        controller->open();
        settle();
    }
    void search(const std::string& query) {
        panel.type(query);
        loop.advance(std::chrono::milliseconds(80));
        settle();
    }
    /// The catalogue loses a session, and the open panel hears of it.
    void vanish(const std::string& id) {
        std::erase_if(sessions, [&](const auto& session) { return session.sessionId == id; });
        controller->refresh();
        settle();
    }
    /// Until `busy` is released, no search begins.
    void occupy() {
        pool.post([this] { busy.wait(); });
    }

    ManualLoop loop;
    FakeScreens screens;
    FakeSearchPanel panel;
    std::set<std::string> attached;
    std::vector<SessionMeta> sessions{meta("11111111-a", "/src/tts", "Release notes"),
                                      meta("22222222-b", "/src/tts", "Fix the tailer"),
                                      meta("33333333-c", "/src/offload", "Write tests for tts")};
    ReconcileProgress progress;
    std::vector<std::string> attaches;
    bool attachedWhileShown = false;
    bool hasHotkeys = true;
    Hotkey hotkey;
    double wallClock = 1'790'000'000;
    Semaphore busy{0};
    WorkerPool pool{1};
    std::optional<SearchPanelController> controller{
        std::in_place, loop, pool, screens, panel, [this] { return wallClock; }};
};

}  // namespace sonra::test
