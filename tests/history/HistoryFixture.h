#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/AudioChunk.h"
#include "frame/WorkerPool.h"
#include "history/MessageHistoryQueue.h"
#include "support/LogWatch.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra::test {

/// A loop, a ring directory and sound files to put into it.
class HistoryTest : public testing::Test {
  protected:
    /// A file with this much in it, and the chunk of it.
    AudioChunk chunk(const std::string& messageId, const std::string& sessionId = "s",
                     std::size_t bytes = 10);

    [[nodiscard]] std::string ringDir() const { return directory_ / "ring"; }
    /// Names in the ring directory, sorted; what is being removed doesn't count.
    [[nodiscard]] std::vector<std::string> ringNames() const;
    /// Paths of all files below the ring directory.
    [[nodiscard]] std::vector<std::string> ringFiles() const;

    TempDir directory_;
    ManualLoop loop_;

  private:
    int files_ = 0;
};

/// A history queue, with what it reports and what it is told is playing.
class QueueTest : public HistoryTest {
  protected:
    using State = MessageHistoryQueueState;

    explicit QueueTest(OpenHistoryPages openPages = openSessionHistory);
    ~QueueTest() override {
        pool_.drain();
        // The directory goes, in which it may still remove what is left over.
        queue_.ring().directory()->drain();
    }

    void hear(const std::string& messageId, const std::string& sessionId = "s") {
        queue_.recordLive(chunk(messageId, sessionId));
    }
    /// Attaches a transcript with these messages and waits until they are counted, and as many read
    /// as one scrub can want.
    void attach(const std::vector<std::string>& ids);
    std::string writeTranscript(const std::vector<std::string>& ids);
    [[nodiscard]] const State::Cursor& cursor() const { return queue_.state().cursor; }
    [[nodiscard]] std::string currentId() {
        const auto ref = queue_.currentMessageRef();
        return ref ? ref->messageId : "";
    }

    WorkerPool pool_;
    AudioProbe probe_;
    std::vector<State> fired_;
    MessageHistoryQueue queue_;
};

inline MessageHistoryQueueState::Cursor inHistory(int messageIndex, int totalKnown) {
    return MessageHistoryQueueState::History{messageIndex, totalKnown};
}
inline MessageHistoryQueueState::Cursor live() {
    return MessageHistoryQueueState::Live{};
}
inline MessageHistoryQueueState::Cursor idle() {
    return MessageHistoryQueueState::Idle{};
}

/// "m0", "m1" and so on.
std::vector<std::string> ids(int count, const std::string& prefix = "m");
std::vector<std::string> messageIds(const std::vector<AudioChunk>& chunks);
/// The id in a Resolve, empty for any other outcome.
std::string resolved(const SkipOutcome& outcome);

}  // namespace sonra::test
