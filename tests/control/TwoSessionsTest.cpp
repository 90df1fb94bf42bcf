#include "control/Fixture.h"
#include "frame/Semaphore.h"
#include "support/TranscriptLines.h"

namespace sonra {
namespace {

using State = MessageHistoryQueueState;

/// Two sessions, each with messages from before its attach: a1 to a3 and b1 to b3.
class TwoSessions : public test::CoordinatorTest {
  protected:
    void SetUp() override {
        for (const std::string name : {"a", "b"}) {
            auto& transcript = transcripts[name];
            transcript = makeTranscript(name, "/p");
            for (int i = 1; i <= 3; ++i)
                test::appendFile(transcript, test::assistantLine(name + std::to_string(i),
                                                                 "Said in " + name + " before"));
        }
        start();
    }
    void attach(const std::string& name) {
        coordinator->attachSession(name, "/p");
        ASSERT_TRUE(loop.runUntil([&] { return hasHeard(name + "3"); }));
    }
    /// `total` messages are known of the session then.
    void hear(const std::string& name, const std::string& messageId, int total = 4) {
        reply(transcripts[name], messageId, "Said while somebody listens");
        ASSERT_TRUE(loop.runUntil([&] { return hasHeard(messageId); }));
        ASSERT_NO_FATAL_FAILURE(untilRead(name, total));
    }
    /// A move waits only a moment for messages that are still being read.
    void untilRead(const std::string& name, int total) {
        auto& history = coordinator->history();
        ASSERT_TRUE(loop.runUntil([&] { return history.stableTotalKnown() == total; }));
        ASSERT_TRUE(loop.runUntil([&] { return history.historyText(name + "1").has_value(); }));
    }
    [[nodiscard]] bool hasHeard(const std::string& messageId) const {
        const auto& ids = coordinator->history().live().ids();
        return std::find(ids.begin(), ids.end(), messageId) != ids.end();
    }
    /// The ids that going back leads through.
    std::vector<std::string> wayBack() {
        std::vector<std::string> ids;
        for (int index = 1; index <= 3; ++index) {
            coordinator->history().scrubTo(index);
            const auto ref = coordinator->history().currentMessageRef();
            ids.push_back(ref ? ref->messageId : "");
        }
        coordinator->history().scrubTo(0);
        return ids;
    }

    std::map<std::string, std::string> transcripts;
};

TEST_F(TwoSessions, GoingBackStaysInTheSessionThatIsHeard) {
    attach("a");
    attach("b");
    hear("a", "a4");
    EXPECT_EQ(wayBack(), (std::vector<std::string>{"a3", "a2", "a1"}));
    hear("b", "b4");
    EXPECT_EQ(wayBack(), (std::vector<std::string>{"b3", "b2", "b1"}));
    hear("a", "a5", 5);
    EXPECT_EQ(wayBack(), (std::vector<std::string>{"a4", "a3", "a2"}));
}

TEST_F(TwoSessions, AnAttachTearsNobodyOutOfAnotherSessionsHistory) {
    attach("a");
    ASSERT_NO_FATAL_FAILURE(untilRead("a", 3));
    coordinator->history().scrubTo(2);
    attach("b");
    EXPECT_EQ(coordinator->history().currentMessageRef()->messageId, "a1");
    EXPECT_EQ(coordinator->history().stableTotalKnown(), 3);
    coordinator->history().resumeLive();
    hear("b", "b4");
    EXPECT_EQ(wayBack(), (std::vector<std::string>{"b3", "b2", "b1"}));
}

TEST_F(TwoSessions, AMessageBeforeTheAttachThatIsFoundLateIsSpokenAllTheSame) {
    // Nothing can be looked for while the pool is busy; the attach doesn't wait for that.
    const auto freed = std::make_shared<Semaphore>();
    for (int thread = 0; thread < 8; ++thread) pool.post([freed] { freed->wait(); });
    coordinator->attachSession("a", "/p");
    EXPECT_TRUE(coordinator->sessions().isNarrating("a"));
    EXPECT_FALSE(hasHeard("a3"));
    for (int thread = 0; thread < 8; ++thread) freed->signal();
    EXPECT_TRUE(loop.runUntil([&] { return hasHeard("a3"); }));
}

}  // namespace
}  // namespace sonra
