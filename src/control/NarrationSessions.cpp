#include "control/NarrationSessions.h"

#include <algorithm>
#include <filesystem>

#include "control/PreviousMessage.h"
#include "control/StateTick.h"
#include "frame/FileProbe.h"
#include "frame/HarnessTheme.h"
#include "frame/Home.h"
#include "frame/Semaphore.h"
#include "frame/ServiceState.h"
#include "frame/Text.h"
#include "frame/ThreadAffinity.h"
#include "ingest/LiveTailReaderRegistry.h"

namespace sonra {
namespace {

constexpr auto defaultSource = "claude-code";
/// How long an attach waits for the transcript's last message, so that it comes before newer ones.
constexpr std::chrono::milliseconds seedPatience{40};

std::string shortId(const std::string& id) {
    return std::string(text::prefix(id, 8));
}

Json knownSources() {
    std::vector<std::string> ids;
    for (const auto& theme : HarnessTheme::all()) ids.emplace_back(theme.id);
    std::sort(ids.begin(), ids.end());
    return ids;
}

/// The array `sessions` of the document, made if it isn't there.
Json& sessionArray(Json& document) {
    Json& sessions = document["sessions"];
    if (!sessions.is_array()) sessions = Json::array();
    return sessions;
}

bool hasId(const Json& row, const std::string& id) {
    return json::stringAt(row, "id") == id;
}

void removeRows(Json& document, const std::string& id) {
    const auto sessions = document.find("sessions");
    if (sessions == document.end() || !sessions->is_array()) return;
    sessions->erase(std::remove_if(sessions->begin(), sessions->end(),
                                   [&](const Json& row) { return hasId(row, id); }),
                    sessions->end());
}

Json rowFor(const AttachRequest& request, std::int64_t offset, std::int64_t attachedAt) {
    Json row{{"id", request.id},         {"cwd", request.cwd}, {"transcript", request.transcript},
             {"source", request.source}, {"offset", offset},   {"attachedAt", attachedAt}};
    if (!request.branch.empty()) row["branch"] = request.branch;
    if (!request.title.empty()) row["title"] = request.title;
    return row;
}

}  // namespace

/// What was said just before an attach, being looked for. Main thread, but for what the search
/// writes before `done`.
struct NarrationSessions::Seed {
    Semaphore done;
    std::optional<HistoryMessage> message;
    bool taken = false;
};

NarrationSessions::NarrationSessions(MainLoop& loop, FileWatcher& watcher, WorkerPool& pool,
                                     Callbacks callbacks)
    : loop_(loop),
      watcher_(watcher),
      pool_(pool),
      callbacks_(std::move(callbacks)),
      log_(Log::shared().child({{"class", "AppCoordinator"}})) {}

/// Completes the request with what can be derived; a text if it can't be served.
std::optional<std::string> NarrationSessions::problemWith(AttachRequest& request, Json& input) {
    const auto id = shortId(request.id);
    if (request.id.empty()) return "attach: empty session id";
    if (!request.cwd.empty() &&
        (request.cwd.front() != '/' || request.cwd.find("..") != std::string::npos)) {
        input = {{"id", id}, {"cwd", request.cwd}};
        return "attach: invalid cwd, expected absolute path without '..'";
    }
    if (request.source.empty()) request.source = defaultSource;
    if (!HarnessTheme::isKnown(request.source)) {
        input = {{"id", id}, {"source", request.source}, {"known", knownSources()}};
        return "attach: unknown source";
    }
    if (request.transcript.empty() && (request.source != defaultSource || request.cwd.empty())) {
        input = {{"id", id}, {"source", request.source}};
        return "attach: no transcript and no cwd to derive one";
    }
    if (request.transcript.empty())
        request.transcript = homeDirectory() + "/.claude/projects/" +
                             SessionRows::sanitizeCwd(request.cwd) + "/" + request.id + ".jsonl";
    const auto* reader = LiveTailReaderRegistry::reader(request.source);
    if (fileExists(reader == nullptr ? request.transcript : reader->watchPath(request.transcript)))
        return std::nullopt;
    input = {{"id", id}, {"transcript", request.transcript}};
    return "attach: transcript missing on disk";
}

bool NarrationSessions::canServe(AttachRequest request) {
    Json input;
    return !problemWith(request, input);
}

/// True if the request can be served; otherwise the reason has been logged.
bool NarrationSessions::complete(AttachRequest& request) const {
    Json input = Json::object();
    const auto problem = problemWith(request, input);
    if (problem) log_.child({{"method", "attachSessionLocal"}}).warn(*problem, {{"input", input}});
    return !problem;
}

/// True if a row was added; `updated` tells whether the document could be written.
bool NarrationSessions::addRow(const AttachRequest& request, std::int64_t offset, bool& updated) {
    bool added = false;
    const auto now = static_cast<std::int64_t>(callbacks_.wallClockMs());
    updated = ServiceState::update([&](Json& document) {
        Json& sessions = sessionArray(document);
        if (std::any_of(sessions.begin(), sessions.end(),
                        [&](const Json& row) { return hasId(row, request.id); }))
            return;
        sessions.push_back(rowFor(request, offset, now));
        added = true;
    });
    return added;
}

AttachOutcome NarrationSessions::attach(AttachRequest request) {
    SONRA_ASSERT_MAIN_THREAD();
    if (!complete(request)) return AttachOutcome::refused;
    std::error_code unreadable;
    const auto size = std::filesystem::file_size(request.transcript, unreadable);
    const auto offset = unreadable ? 0 : static_cast<std::int64_t>(size);
    // Taken before the row is written, which may have to wait: what is said meanwhile is new.
    const auto end = endOf(request);
    bool updated = false;
    const bool newAttach = addRow(request, offset, updated);
    log_.child({{"method", "attachSessionLocal"}})
        .info(
            "attach",
            {{"input",
              {{"sessionId", shortId(request.id)}, {"source", request.source}, {"offset", offset}}},
             {"result", {{"wrote", updated}, {"newAttach", newAttach}}}});
    if (!newAttach) return updated ? AttachOutcome::unchanged : AttachOutcome::notWritten;
    noteAttached(request.id);
    transcripts_[request.id] = request.transcript;
    offsets_.seed(request.id, offset);
    callbacks_.onNewAttach(request);
    start(request, end, findSeed(request, end));
    return AttachOutcome::added;
}

/// A failure to write goes unreported, so the document is asked.
void NarrationSessions::noteAttached(const std::string& id) {
    if (StateTick::read().sessions.attachedIds().contains(id)) {
        lastKnownAttachedIds_.insert(id);
        return;
    }
    withoutRow_.insert(id);
    log_.child({{"method", "attachSessionLocal"}})
        .warn("attach: the row couldn't be written; narrating until the service ends",
              {{"input", {{"id", shortId(id)}}}});
}

bool NarrationSessions::resume(const std::string& id) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto rows = StateTick::read().sessions;
    const auto row = std::find_if(rows.attached.begin(), rows.attached.end(),
                                  [&](const AttachedSession& session) { return session.id == id; });
    if (row == rows.attached.end()) return false;
    AttachRequest request{id, row->cwd, row->transcript, row->source};
    if (!complete(request)) return true;
    transcripts_[id] = request.transcript;
    if (!tailers_.contains(id)) callbacks_.onResume(request);
    // What was said before the restart has been heard.
    start(request, endOf(request), nullptr);
    return true;
}

/// The transcript that the session's row names now, so that a session which moves to a new file is
/// followed.
std::string NarrationSessions::transcriptPath(const std::string& id,
                                              const std::string& fallback) const {
    const auto found = transcripts_.find(id);
    return found == transcripts_.end() || found->second.empty() ? fallback : found->second;
}

std::optional<AttachRequest> NarrationSessions::narrated(const std::string& id) const {
    const auto found = tailers_.find(id);
    if (found == tailers_.end()) return std::nullopt;
    auto request = found->second.request;
    request.transcript = transcriptPath(id, request.transcript);
    return request;
}

NativeNarration::SessionOptions NarrationSessions::optionsFor(const AttachRequest& request) {
    NativeNarration::SessionOptions options;
    options.sessionId = request.id;
    options.pathProvider = [this, id = request.id, transcript = request.transcript] {
        return transcriptPath(id, transcript);
    };
    options.synth = callbacks_.synth;
    options.recordLive = callbacks_.recordLive;
    options.enqueue = callbacks_.enqueue;
    options.offsetPersist = [this](const std::string& session, const TailOffset& offset) {
        offsets_.report(session, offset.intValue());
    };
    options.onSynthesisStart = callbacks_.onSynthesisStart;
    options.dispatchToMain = true;
    return options;
}

/// Looks for the transcript's last message elsewhere: the attach mustn't hang on a slow disk. What
/// lies behind `end` is the tailer's to find.
std::shared_ptr<NarrationSessions::Seed> NarrationSessions::findSeed(
    const AttachRequest& request, const std::optional<TailOffset>& end) {
    auto seed = std::make_shared<Seed>();
    pool_.post([seed, &loop = loop_, self = std::weak_ptr(self_), request, end] {
        seed->message = previousMessageToSeed(request.transcript, request.source);
        if (end != endOf(request)) seed->message.reset();
        seed->done.signal();
        loop.post([seed, self, id = request.id] {
            if (const auto sessions = self.lock()) (*sessions)->primeLate(id, *seed);
        });
    });
    return seed;
}

/// The last message was found, maybe after the tailer had to start without it.
void NarrationSessions::primeLate(const std::string& id, const Seed& seed) {
    const auto tailer = tailers_.find(id);
    if (seed.taken || !seed.message || tailer == tailers_.end()) return;
    tailer->second.session->prime(seed.message->messageId, seed.message->text);
}

/// Absent where nobody can read the agent's transcripts live.
std::optional<TailOffset> NarrationSessions::endOf(const AttachRequest& request) {
    const auto* reader = LiveTailReaderRegistry::reader(request.source);
    return reader ? std::optional(reader->initialOffset(request.transcript)) : std::nullopt;
}

void NarrationSessions::start(const AttachRequest& request, const std::optional<TailOffset>& from,
                              const std::shared_ptr<Seed>& seed) {
    const auto& id = request.id;
    if (tailers_.contains(id)) return;
    if (!from) {
        log_.info("no live reader for source; skipping native tailer",
                  {{"input", {{"sessionId", id}, {"source", request.source}}}});
        return;
    }
    const auto attachBytePos = from->intValue();
    auto options = optionsFor(request);
    options.startOffset = from;
    auto session = NativeNarration::makeSession(
        loop_, watcher_, *LiveTailReaderRegistry::reader(request.source), std::move(options));
    if (seed && seed->done.waitFor(seedPatience)) {
        seed->taken = true;
        if (seed->message) session->prime(seed->message->messageId, seed->message->text);
    }
    session->start();
    tailers_[id] = {request, std::move(session)};
    log_.info(
        "native tailer started (forward-only)",
        {{"input",
          {{"sessionId", id}, {"source", request.source}, {"attachBytePos", attachBytePos}}}});
}

void NarrationSessions::stop(const std::string& id) {
    const auto found = tailers_.find(id);
    if (found != tailers_.end()) {
        found->second.session->stop();
        tailers_.erase(found);
    }
    transcripts_.erase(id);
    withoutRow_.erase(id);
    offsets_.forget(id);
}

void NarrationSessions::detach(const std::string& id) {
    SONRA_ASSERT_MAIN_THREAD();
    if (id.empty()) return;
    ServiceState::update([&](Json& document) { removeRows(document, id); });
    log_.child({{"method", "detachSessionLocal"}}).info("detach", {{"input", {{"sessionId", id}}}});
    stop(id);
    userDetachedThisRun_ = true;
    lastKnownAttachedIds_.erase(id);
    callbacks_.onDetach();
    if (StateTick::read().sessions.attached.empty()) callbacks_.onLastDetach();
}

/// A row that vanished by another's hand is a detach by the user.
void NarrationSessions::noteVanished(const std::set<std::string>& current) {
    if (!SessionRows::shouldLatchStateLevelDetach(lastKnownAttachedIds_, current)) return;
    if (!userDetachedThisRun_) {
        userDetachedThisRun_ = true;
        log_.child({{"method", "observeStateLevelDetach"}})
            .info("state-level detach observed; auto-attach stands down for this run");
    }
    callbacks_.onDetach();
    if (current.empty()) callbacks_.onLastDetach();
}

void NarrationSessions::follow(const SessionRows& rows) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto current = rows.attachedIds();
    std::vector<std::string> gone;
    for (const auto& [id, tailer] : tailers_)
        if (!current.contains(id) && !withoutRow_.contains(id)) gone.push_back(id);
    for (const auto& id : gone) stop(id);
    for (const auto& id : current) withoutRow_.erase(id);
    transcripts_.clear();
    for (const auto& session : rows.attached) transcripts_[session.id] = session.transcript;
    noteVanished(current);
    lastKnownAttachedIds_ = current;
}

}  // namespace sonra
