#include "ingest/SessionTailer.h"

#include <utility>

#include "frame/FileProbe.h"
#include "frame/ThreadAffinity.h"
#include "ingest/FileTail.h"
#include "ingest/LiveTailReader.h"
#include "platform/FileWatcher.h"

namespace sonra {
namespace {

/// The cursor to begin with. A saved position past the end means that the file was replaced. Of
/// other kinds the end doesn't matter, which may be long to find.
TailOffset chooseOffset(std::optional<TailOffset> saved, const LiveTailReader& reader,
                        const std::string& location) {
    const auto byte = TailOffset::Kind::byte;
    if (saved && saved->kind() != byte) return *saved;
    const auto initial = reader.initialOffset(location);
    if (!saved) return initial;
    if (initial.kind() != byte) return *saved;
    const bool within = saved->intValue() >= 0 && saved->intValue() <= initial.intValue();
    return within ? *saved : initial;
}

}  // namespace

/// Kept alive by a step under way, so that a callback may destroy the tailer. Handlers of events
/// and timers hold it weakly.
struct SessionTailer::State : std::enable_shared_from_this<SessionTailer::State> {
    State(MainLoop& mainLoop, FileWatcher& fileWatcher, const LiveTailReader& tailReader,
          Options given)
        : loop(mainLoop),
          watcher(fileWatcher),
          reader(tailReader),
          options(std::move(given)),
          offset(options.startOffset.value_or(TailOffset::byte(0))) {}

    MainLoop& loop;
    FileWatcher& watcher;
    const LiveTailReader& reader;
    const Options options;
    TailOffset offset;
    std::unique_ptr<FileWatch> watch;
    std::optional<std::string> watchedPath;
    std::optional<FileIdentity> watchedFile;
    LoopHandle pollTimer;
    bool started = false;
    unsigned stops = 0;  ///< a step that finds it changed has been stopped meanwhile

    void start();
    void stop();
    void tick();
    void deliver(const LiveTailReader::Reading& reading, unsigned stopsBefore);
    void armWatch(const std::string& path);
    void disarmWatch();
    [[nodiscard]] bool isWatching(const std::string& path) const;
    void rearmWatchIfMoved(const std::string& location);
    void armPollTimer();
    void onEvents(FileEvents events);
    void resetIfTruncated(const std::string& location);
};

void SessionTailer::State::start() {
    if (std::exchange(started, true)) return;
    const auto self = shared_from_this();
    const unsigned stopsBefore = stops;
    const std::string location = options.pathProvider();
    if (stops != stopsBefore) return;
    offset = chooseOffset(options.startOffset, reader, location);
    armWatch(reader.watchPath(location));
    armPollTimer();
}

void SessionTailer::State::stop() {
    ++stops;
    started = false;
    pollTimer.cancel();
    disarmWatch();
}

void SessionTailer::State::armWatch(const std::string& path) {
    // Looked at before it is watched: a file that takes the name in between makes the next step arm
    // once too often rather than never.
    watchedFile = identify(path);
    watch = watcher.watch(path, [weak = weak_from_this()](FileEvents events) {
        if (const auto self = weak.lock()) self->onEvents(events);
    });
    if (watch) watchedPath = path;
}

void SessionTailer::State::disarmWatch() {
    watch.reset();
    watchedPath.reset();
}

/// A watch stays with its file and isn't told when a folder above is renamed, or a link to it leads
/// elsewhere.
bool SessionTailer::State::isWatching(const std::string& path) const {
    return watchedPath == path && watchedFile == identify(path);
}

void SessionTailer::State::rearmWatchIfMoved(const std::string& location) {
    const std::string path = reader.watchPath(location);
    if (!started || isWatching(path)) return;
    disarmWatch();
    armWatch(path);
}

void SessionTailer::State::armPollTimer() {
    pollTimer = loop.every(options.pollInterval, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (self && self->started) self->tick();
    });
}

/// The step comes first, so that what was written just before a rotation is still read.
void SessionTailer::State::onEvents(FileEvents events) {
    if (!started) return;
    const unsigned stopsBefore = stops;
    tick();
    if (stops != stopsBefore || !(events.renamed || events.removed)) return;
    disarmWatch();
    const std::string location = options.pathProvider();
    if (stops == stopsBefore) armWatch(reader.watchPath(location));
}

/// Only positions in a file can lie behind its end; a shrunken document of another kind holds the
/// cursor.
void SessionTailer::State::resetIfTruncated(const std::string& location) {
    if (offset.kind() != TailOffset::Kind::byte) return;
    if (FileTail::sizeOf(location) >= offset.intValue()) return;
    // Nor is a document that took the file's place a file cut short.
    if (reader.cursorKindOf(location) == TailOffset::Kind::byte) offset = TailOffset::byte(0);
}

void SessionTailer::State::tick() {
    const auto self = shared_from_this();
    const unsigned stopsBefore = stops;
    const std::string location = options.pathProvider();
    if (stops != stopsBefore) return;
    rearmWatchIfMoved(location);
    resetIfTruncated(location);
    const auto reading = reader.readSince(location, offset);
    // The cursor moves before the delivery, which isn't acknowledged: nothing is said twice.
    offset = offset.advanced(reading.newOffset);
    deliver(reading, stopsBefore);
    if (stops == stopsBefore) options.offsetPersist(options.sessionId, offset);
}

void SessionTailer::State::deliver(const LiveTailReader::Reading& reading, unsigned stopsBefore) {
    for (const auto& record : reading.records) {
        if (stops != stopsBefore) return;
        auto message = reader.parser().parse(record);
        // Without an id the message couldn't be told from one that was heard before.
        if (!message || message->messageId.empty()) continue;
        options.sink(options.sessionId, std::move(*message));
    }
}

SessionTailer::SessionTailer(MainLoop& loop, FileWatcher& watcher, const LiveTailReader& reader,
                             Options options)
    : state_(std::make_shared<State>(loop, watcher, reader, std::move(options))) {}

SessionTailer::~SessionTailer() {
    stop();
}

void SessionTailer::start() {
    SONRA_ASSERT_MAIN_THREAD();
    state_->start();
}

void SessionTailer::stop() {
    SONRA_ASSERT_MAIN_THREAD();
    state_->stop();
}

void SessionTailer::tickNow() {
    SONRA_ASSERT_MAIN_THREAD();
    state_->tick();
}

TailOffset SessionTailer::offset() const {
    return state_->offset;
}

bool SessionTailer::started() const {
    return state_->started;
}

const std::optional<std::string>& SessionTailer::watchedPath() const {
    return state_->watchedPath;
}

}  // namespace sonra
