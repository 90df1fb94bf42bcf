#include "speech/KokoroWorkerCore.h"

#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <utility>

#include "frame/ScriptResolver.h"
#include "frame/Text.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

constexpr std::string_view quitLine = "{\"type\":\"quit\"}\n";
/// Output that may wait for ioQueue; beyond it, the worker waits.
constexpr std::size_t maxUnhandled = 4U << 20U;

Json input(Json fields) {
    return {{"input", std::move(fields)}};
}

}  // namespace

KokoroWorkerEngine::Core::Core(Options options)
    : options_(std::move(options)),
      log_(Log::shared().child({{"class", "KokoroWorkerEngine"}})),
      ioQueue_("sonra.kokoro.worker.io") {}

KokoroWorkerEngine::Core::~Core() {
    // Nobody else is left, so this thread may do what is otherwise ioQueue's. A thread that was
    // waiting may have started a worker after the engine had stopped its own.
    if (proc_) endProcess();
}

std::optional<std::int32_t> KokoroWorkerEngine::Core::pid() const {
    SONRA_ASSERT_ON(ioQueue_);
    if (!proc_) return std::nullopt;
    return proc_->pid();
}

std::shared_ptr<Semaphore> KokoroWorkerEngine::Core::start() {
    SONRA_ASSERT_ON(ioQueue_);
    if (disabled_ || ready_) return nullptr;
    if (!proc_) spawn();
    if (disabled_ || !proc_) return nullptr;
    return readyWaiters_.emplace_back(std::make_shared<Semaphore>());
}

KokoroSpawnPlan KokoroWorkerEngine::Core::plan() const {
    auto plan = KokoroSpawnPlan::underUv(options_.uvResolver(), options_.scriptOverride
                                                                    ? *options_.scriptOverride
                                                                    : options_.scriptLocator());
    plan.arguments.emplace_back("--worker");
    plan.environment["TTS_KOKORO_WORKER"] = "1";
    plan.environment["TTS_PLAYER"] = "none";
    for (const auto& [name, value] : options_.extraEnv) plan.environment[name] = value;
    return plan;
}

void KokoroWorkerEngine::Core::spawn() {
    KokoroSpawnPlan settled;
    try {
        settled = plan();
    } catch (const ScriptResolverError&) {
        log_.warn("tts_kokoro.py not found; worker disabled (per-spawn fallback)");
        disabled_ = true;
        return;
    }
    auto [process, error] = ChildProcess::spawn({.executable = settled.executablePath,
                                                 .arguments = settled.arguments,
                                                 .environment = settled.environment,
                                                 .input = ChildProcess::Stream::pipe,
                                                 .output = ChildProcess::Stream::pipe});
    if (!process) {
        log_.warn("worker spawn failed; disabled (per-spawn fallback)", std::runtime_error(error));
        disabled_ = true;
        return;
    }
    adopt(std::move(process));
}

void KokoroWorkerEngine::Core::adopt(std::shared_ptr<ChildProcess> process) {
    proc_ = std::move(process);
    ++generation_;
    ready_ = false;
    buf_.reset();
    observe(*proc_);
    log_.info("kokoro worker spawned", input({{"pid", proc_->pid()}}));
    armReadyTimer();
}

/// Has the process's thread bring its output and its end here.
void KokoroWorkerEngine::Core::observe(ChildProcess& process) {
    const auto unhandled = std::make_shared<std::atomic<std::size_t>>(0);
    process.watch(
        [weak = weak_from_this(), generation = generation_, unhandled](std::string_view bytes) {
            const auto core = weak.lock();
            if (!core) return;
            *unhandled += bytes.size();
            core->ioQueue_.post([weak, generation, unhandled, copy = std::string(bytes)] {
                *unhandled -= copy.size();
                if (const auto self = weak.lock()) self->received(generation, copy);
            });
            // A worker that floods its output is slowed down to the pace at which it is read.
            if (*unhandled > maxUnhandled) core->ioQueue_.sync([] {});
        },
        [weak = weak_from_this(), generation = generation_](int status) {
            const auto core = weak.lock();
            if (!core) return;
            core->ioQueue_.post([weak, generation, status] {
                if (const auto self = weak.lock()) self->exited(generation, status);
            });
        });
}

void KokoroWorkerEngine::Core::armReadyTimer() {
    readyTimer_ =
        ioQueue_.after(options_.limits.ready, [weak = weak_from_this(), generation = generation_] {
            if (const auto self = weak.lock()) self->readyTimedOut(generation);
        });
}

void KokoroWorkerEngine::Core::received(std::uint64_t generation, std::string_view bytes) {
    SONRA_ASSERT_ON(ioQueue_);
    if (generation != generation_) return;
    buf_.append(bytes, [this](std::string_view line) { handle(line); });
}

void KokoroWorkerEngine::Core::handle(std::string_view line) {
    const auto message = WorkerMessage::parse(line);
    if (!message) return;
    if (message->type == WorkerMessage::Type::ready) {
        becameReady(*message);
    } else {
        answered(*message);
    }
}

void KokoroWorkerEngine::Core::becameReady(const WorkerMessage& message) {
    if (ready_) return;
    ready_ = true;
    readyTimer_.cancel();
    if (message.pid) workerPid_ = *message.pid;
    Json fields{{"pid", message.pid.value_or(-1)}};
    if (!message.backend.empty()) fields["backend"] = text::prefix(message.backend, 64);
    log_.info("kokoro worker ready", input(std::move(fields)));
    failReadyWaiters();
}

void KokoroWorkerEngine::Core::answered(const WorkerMessage& message) {
    // An id that differs is the late answer to a request that nobody waits for any more.
    if (pending_ && (!message.id || *message.id == pending_->id)) settlePending(message);
    removeAbandoned(message);
}

/// Nobody knows of the file that comes with a late answer.
void KokoroWorkerEngine::Core::removeAbandoned(const WorkerMessage& result) {
    const auto abandoned =
        result.id ? abandoned_.extract(*result.id) : decltype(abandoned_)::node_type();
    if (!abandoned.empty()) ::unlink(abandoned.mapped().c_str());
}

void KokoroWorkerEngine::Core::settlePending(const WorkerMessage& result) {
    const auto settled = std::exchange(pending_, nullptr);
    if (!settled || settled->settled) return;
    settled->result = result;
    settled->settled = true;
    settled->sem.signal();
}

/// Lets everybody go who waits for the worker to get ready; each then looks for himself.
void KokoroWorkerEngine::Core::failReadyWaiters() {
    for (const auto& waiter : std::exchange(readyWaiters_, {})) waiter->signal();
}

std::shared_ptr<KokoroWorkerEngine::Core::Pending> KokoroWorkerEngine::Core::submit(
    WorkerRequest request) {
    SONRA_ASSERT_ON(ioQueue_);
    if (!isReady() || !proc_ || pending_) return nullptr;
    request.id = nextId_++;
    auto pending = std::make_shared<Pending>();
    pending->id = request.id;
    pending->file = request.outWav;
    pending_ = pending;
    const auto failure = proc_->writeStdin(request.line(), options_.limits.write);
    if (!failure) return pending;
    pending_ = nullptr;
    log_.warn("worker stdin write failed; falling back", std::runtime_error(*failure));
    // Part of a line may be in the pipe, and would spoil the next one: this process is of no more
    // use.
    stop();
    return nullptr;
}

void KokoroWorkerEngine::Core::abandon(const std::shared_ptr<Pending>& pending) {
    SONRA_ASSERT_ON(ioQueue_);
    if (pending_ == pending) pending_ = nullptr;
    if (!pending->settled) abandoned_[pending->id] = pending->file;
    log_.warn("worker synth timed out; falling back", input({{"id", pending->id}}));
}

void KokoroWorkerEngine::Core::readyTimedOut(std::uint64_t generation) {
    SONRA_ASSERT_ON(ioQueue_);
    if (generation != generation_ || ready_) return;
    log_.warn("worker ready timeout; disabling (per-spawn fallback)");
    disabled_ = true;
    stop();
}

void KokoroWorkerEngine::Core::stop() {
    SONRA_ASSERT_ON(ioQueue_);
    if (proc_) endProcess();
    forgetProcess();
}

void KokoroWorkerEngine::Core::endProcess() {
    // A worker that doesn't read isn't waited for: the signal reaches it anyway.
    proc_->writeStdin(quitLine, Duration::zero());
    proc_->closeStdin();
    proc_->terminateWithin(options_.limits.ending);
    if (workerPid_ >= 1) proc_->terminateMember(workerPid_);
}

/// Back to idle: whoever waits for this process waits in vain.
void KokoroWorkerEngine::Core::forgetProcess() {
    readyTimer_.cancel();
    ++generation_;
    proc_.reset();
    ready_ = false;
    workerPid_ = 0;
    settlePending({.type = WorkerMessage::Type::result, .ok = false});
    for (const auto& [id, file] : std::exchange(abandoned_, {})) ::unlink(file.c_str());
    failReadyWaiters();
}

void KokoroWorkerEngine::Core::exited(std::uint64_t generation, int status) {
    SONRA_ASSERT_ON(ioQueue_);
    if (generation != generation_) {
        log_.info("kokoro worker exited", input({{"status", status}, {"wasReady", false}}));
        return;
    }
    const bool wasReady = ready_;
    forgetProcess();
    log_.warn("kokoro worker exited", input({{"status", status}, {"wasReady", wasReady}}));
}

}  // namespace sonra
