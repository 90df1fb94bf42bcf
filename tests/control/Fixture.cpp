#include "control/Fixture.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "frame/AtomicFile.h"
#include "frame/ScriptResolver.h"
#include "frame/StateLock.h"
#include "support/ThreadNames.h"
#include "support/TranscriptLines.h"

namespace sonra::test {

namespace {

/// Whether the queues that post to the loop or write below the home, and end by themselves behind
/// their owner, have ended.
bool queuesHaveEnded() {
    constexpr const char* queues[] = {"sonra.resynth", "sonra.history", "sonra.ring",
                                      "sonra.narration", "sonra.cursors"};
    return std::ranges::none_of(threadNames(), [&](const std::string& name) {
        return std::ranges::any_of(queues,
                                   [&](const char* queue) { return name.starts_with(queue); });
    });
}

}  // namespace

CoordinatorTest::CoordinatorTest() : voiceLauncher(home / "voice") {
    writeFile(voiceLauncher, "#!/bin/sh\n[ -z \"$5\" ] || cp \"$4\" \"$5\"\n");
    chmod(voiceLauncher.c_str(), 0700);
}

CoordinatorTest::~CoordinatorTest() {
    if (coordinator) loop.runUntil([this] { return !coordinator->isSynthesizing(); });
    coordinator.reset();
    // A message on its way may still be spoken, which takes the pool.
    loop.runUntil(queuesHaveEnded);
    pool.drain();
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
    // As everybody does: a cursor on its way to the document must not undo this.
    const auto path = ServiceState::path();
    StateLock::withLock(path, [&] { AtomicFile::write(path, document.dump()); });
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
