#include "ingest/NativeNarrationSession.h"

#include <utility>

#include "frame/Text.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

constexpr std::size_t labelCharacters = 8;

std::string queueName(const std::string& sessionId) {
    return "sonra.narration." + std::string(text::prefix(sessionId, labelCharacters));
}

}  // namespace

/// Where messages enter: the session's queue, and behind it the pump.
class NativeNarrationSession::Intake {
  public:
    Intake(std::string session, std::shared_ptr<NarrationPump> pump, bool dispatchToMain)
        : sessionId(std::move(session)),
          synthQueue(queueName(sessionId)),
          pump_(std::move(pump)),
          dispatchToMain_(dispatchToMain) {}

    void take(std::string messageId, std::string text) {
        if (!dispatchToMain_) {
            pump_->ingest(sessionId, messageId, text);
            return;
        }
        synthQueue.post([pump = pump_, session = sessionId, id = std::move(messageId),
                         words = std::move(text)] { pump->ingest(session, id, words); });
    }

    const std::string sessionId;
    SerialQueue synthQueue;

  private:
    const std::shared_ptr<NarrationPump> pump_;
    const bool dispatchToMain_;
};

NativeNarrationSession::NativeNarrationSession(MainLoop& loop, FileWatcher& watcher,
                                               const LiveTailReader& reader,
                                               std::shared_ptr<NarrationPump> pump,
                                               SessionTailer::Options tailing, bool dispatchToMain)
    : intake_(std::make_shared<Intake>(tailing.sessionId, std::move(pump), dispatchToMain)),
      tailer_(loop, watcher, reader, feeding(intake_, std::move(tailing))) {}

SessionTailer::Options NativeNarrationSession::feeding(std::shared_ptr<Intake> intake,
                                                       SessionTailer::Options tailing) {
    tailing.sink = [intake = std::move(intake)](const std::string&, HistoryMessage message) {
        intake->take(std::move(message.messageId), std::move(message.text));
    };
    return tailing;
}

void NativeNarrationSession::start() {
    tailer_.start();
}

void NativeNarrationSession::stop() {
    tailer_.stop();
}

void NativeNarrationSession::prime(const std::string& messageId, const std::string& text) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto intake = intake_;
    intake->take(messageId, text);
}

const std::string& NativeNarrationSession::sessionId() const {
    return intake_->sessionId;
}

const SerialQueue& NativeNarrationSession::synthQueue() const {
    return intake_->synthQueue;
}

}  // namespace sonra
