#include "speech/KokoroWorkerEngine.h"

#include <utility>

#include "frame/FileProbe.h"
#include "frame/ScriptResolver.h"
#include "speech/KokoroWorkerCore.h"
#include "speech/Lexicon.h"

namespace sonra {
namespace {

/// Holds the gate that admits one synthesis at a time.
class GateHold {
  public:
    explicit GateHold(Semaphore& gate) : gate_(gate) { gate_.wait(); }
    ~GateHold() { gate_.signal(); }
    GateHold(const GateHold&) = delete;
    GateHold& operator=(const GateHold&) = delete;

  private:
    Semaphore& gate_;
};

}  // namespace

KokoroWorkerEngine::KokoroWorkerEngine() : KokoroWorkerEngine(Options()) {}

KokoroWorkerEngine::KokoroWorkerEngine(Options options) {
    if (!options.uvResolver) options.uvResolver = [] { return ScriptResolver::bundledUv(); };
    if (!options.scriptLocator) options.scriptLocator = ScriptResolver::kokoroScript;
    core_ = std::make_shared<Core>(std::move(options));
}

KokoroWorkerEngine::~KokoroWorkerEngine() {
    core_->ioQueue().post([core = core_] { core->stop(); });
}

bool KokoroWorkerEngine::awaitReady(Core& core) {
    std::shared_ptr<Semaphore> waiter;
    bool ready = false;
    core.ioQueue().sync([&] {
        waiter = core.start();
        ready = core.isReady();
    });
    if (!waiter) return ready;
    // The worker's own timer is to fire first; whether this one did or not, the state tells.
    static_cast<void>(waiter->waitFor(core.limits().ready + core.limits().readySlack));
    core.ioQueue().sync([&] { ready = core.isReady(); });
    return ready;
}

bool KokoroWorkerEngine::startAndWaitReady() {
    const auto core = core_;
    return awaitReady(*core);
}

bool KokoroWorkerEngine::readyNow() const {
    bool ready = false;
    core_->ioQueue().sync([&] { ready = core_->isReady(); });
    return ready;
}

bool KokoroWorkerEngine::synthCombinedToFile(const std::string& text, const std::string& voice,
                                             double speed, const std::string& outURL) {
    const auto core = core_;
    if (!awaitReady(*core)) return false;
    const GateHold hold(core->submitGate());
    WorkerRequest request{
        .text = Lexicon::applyToSynthText(text), .voice = voice, .speed = speed, .outWav = outURL};
    std::shared_ptr<Core::Pending> pending;
    core->ioQueue().sync([&] { pending = core->submit(std::move(request)); });
    if (!pending) return false;
    if (!pending->sem.waitFor(core->limits().synthesis)) {
        core->ioQueue().sync([&] { core->abandon(pending); });
        return false;
    }
    return pending->result && pending->result->ok && fileExists(outURL);
}

std::optional<std::int32_t> KokoroWorkerEngine::currentPid() const {
    std::optional<std::int32_t> pid;
    core_->ioQueue().sync([&] { pid = core_->pid(); });
    return pid;
}

void KokoroWorkerEngine::stop() {
    core_->ioQueue().sync([this] { core_->stop(); });
}

}  // namespace sonra
