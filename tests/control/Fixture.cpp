#include "control/Fixture.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "frame/ScriptResolver.h"
#include "support/TranscriptLines.h"

namespace sonra::test {

namespace {

/// The name of a thread; empty for one that has ended, perhaps just now.
std::string threadName(const std::filesystem::path& task) {
    std::ifstream in(task / "comm");
    std::string name;
    std::getline(in, name);
    return name;
}

/// Whether the history's queues, which end by themselves behind their owner, have ended.
bool historyQueuesHaveEnded() {
    std::error_code error;
    for (std::filesystem::directory_iterator task("/proc/self/task", error), end;
         !error && task != end; task.increment(error)) {
        const auto name = threadName(task->path());
        for (const auto* queue : {"sonra.resynth", "sonra.history", "sonra.ring"})
            if (name.starts_with(queue)) return false;
    }
    return true;
}

}  // namespace

CoordinatorTest::CoordinatorTest() : voiceLauncher(home / "voice") {
    writeFile(voiceLauncher, "#!/bin/sh\n[ -z \"$5\" ] || cp \"$4\" \"$5\"\n");
    chmod(voiceLauncher.c_str(), 0700);
}

CoordinatorTest::~CoordinatorTest() {
    if (coordinator) loop.runUntil([this] { return !coordinator->isSynthesizing(); });
    coordinator.reset();
    pool.drain();
    // What they still do, they post to the loop.
    loop.runUntil(historyQueuesHaveEnded);
}

void CoordinatorTest::useResidentWorker() {
    workerScript = home / "worker";
    writeFile(
        workerScript,
        "#!/bin/sh\n[ \"$4\" = --worker ] || exit 0\necho '{\"type\":\"ready\"}'\nread quit\n");
    chmod(workerScript.c_str(), 0700);
}

SearchPorts CoordinatorTest::searchPorts() {
    if (!showsPanels) return {tree, desktopSearch};
    const auto makePanel = [this] {
        auto made = std::make_unique<FakeSearchPanel>();
        searchPanel = made.get();
        return made;
    };
    return {tree, desktopSearch, makePanel, &hotkeys};
}

AppCoordinator::Platform CoordinatorTest::platform() {
    const auto makePanel = [this](CaptionPanelModel&) {
        auto made = std::make_unique<FakePanel>();
        panel = made.get();
        return made;
    };
    return {loop,
            players,
            files,
            pool,
            defaults,
            screens,
            statusItem,
            makePanel,
            searchPorts(),
            nullptr,
            &remote,
            [this](int status) { exits.push_back(status); },
            [this](int) { ++exitsAtOnce; },
            [] { return wallClockMs; }};
}

void CoordinatorTest::start() {
    const auto launcher = [path = voiceLauncher] { return std::optional<std::string>(path); };
    KokoroProcessEngine::Options spawned;
    spawned.scriptOverride = voiceLauncher;
    spawned.uvResolver = launcher;
    KokoroWorkerEngine::Options resident;
    if (workerScript.empty()) {
        log.expect("tts_kokoro.py not found; worker disabled (per-spawn fallback)");
        resident.scriptLocator = []() -> std::string {
            throw ScriptResolverError("tts_kokoro.py", {});
        };
    } else {
        resident.scriptOverride = workerScript;
        resident.uvResolver = [path = workerScript] { return std::optional<std::string>(path); };
    }
    AppCoordinator::Speech speech{
        std::make_shared<MacSynthesizer>(KokoroProcessEngine::make(pool, spawned),
                                         GeminiEngine::make(pool)),
        std::make_shared<KokoroWorkerEngine>(resident), KokoroProcessEngine::make(pool, spawned)};
    worker = speech.worker;
    // Without a script it is given up for good, and the warning stands in every test.
    if (workerScript.empty()) worker->startAndWaitReady();
    coordinator =
        std::make_shared<AppCoordinator>(home.shared() + "/service.sock", platform(), speech);
    ASSERT_TRUE(coordinator->start());
    loop.runPosted();
}

Json CoordinatorTest::document() const {
    return json::parse(readFile(ServiceState::path())).value_or(Json::object());
}

void CoordinatorTest::writeDocument(const Json& document) const {
    writeFile(ServiceState::path(), document.dump());
}

Json CoordinatorTest::rows() const {
    return document().value("sessions", Json());
}

std::string CoordinatorTest::makeTranscript(const std::string& id, const std::string& cwd) const {
    const auto directory = home / (".claude/projects/" + SessionRows::sanitizeCwd(cwd));
    std::filesystem::create_directories(directory);
    writeFile(directory + "/" + id + ".jsonl", "{\"type\":\"user\"}\n");
    return directory + "/" + id + ".jsonl";
}

Json CoordinatorTest::discovered(const std::string& id, const std::string& transcript) const {
    return {{"sessionId", id},
            {"cwd", "/p"},
            {"transcript", transcript},
            {"mtimeMs", wallClockMs - 1000}};
}

void CoordinatorTest::reply(const std::string& transcript, const std::string& messageId,
                            const std::string& text) {
    appendFile(transcript, assistantLine(messageId, text));
    files.fire(transcript, {.written = true});
}

bool CoordinatorTest::waitForPlays(std::size_t count) {
    return loop.runUntil([&] {
        return static_cast<std::size_t>(std::count_if(
                   players.calls().begin(), players.calls().end(),
                   [](const auto& call) { return call.starts_with("play "); })) >= count;
    });
}

std::string CoordinatorTest::makeWav(const std::string& name) const {
    auto path = home / name;
    writeFile(path, "RIFF");
    return path;
}

void CoordinatorTest::playMessage(const std::string& messageId, const std::string& text,
                                  const std::string& sessionId) {
    coordinator->handleIPC({{"cmd", "play"},
                            {"wav", makeWav(messageId + ".wav")},
                            {"text", text},
                            {"sessionId", sessionId},
                            {"messageId", messageId}});
    loop.runPosted();
}

}  // namespace sonra::test
