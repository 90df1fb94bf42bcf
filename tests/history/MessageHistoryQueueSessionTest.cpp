#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>

#include "HistoryFixture.h"
#include "frame/Semaphore.h"
#include "history/MessageHistoryQueue.h"

namespace sonra::test {
namespace {

using namespace std::chrono_literals;

constexpr auto longestWait = 50ms;

std::chrono::nanoseconds processorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

template <typename Body>
std::chrono::nanoseconds processorTime(Body body) {
    const auto start = processorTime();
    body();
    return processorTime() - start;
}

using MessageHistoryQueueSessionTest = QueueTest;

TEST_F(MessageHistoryQueueSessionTest, EightMessagesAreCountedAndPagedAcrossTheBorder) {
    hear("m6");
    hear("m7");
    attach(ids(8));
    EXPECT_EQ(queue_.stableTotalKnown(), 8);
    EXPECT_EQ(cursor(), live());
    std::set<std::string> visited;
    for (int i = 0; i < 4; ++i) visited.insert(resolved(queue_.smartPrevious()));
    EXPECT_EQ(visited, (std::set<std::string>{"m6", "m5", "m4", "m3"}));
    EXPECT_EQ(cursor(), inHistory(4, 8));
    const auto ref = queue_.currentMessageRef();
    ASSERT_TRUE(ref);
    EXPECT_TRUE(std::holds_alternative<MessageRef::History>(ref->origin));
    EXPECT_EQ(ref->sessionId, "s");
    EXPECT_EQ(queue_.historyText("m3"), "body of m3");
}

TEST_F(MessageHistoryQueueSessionTest, AllOfALongTranscriptCanBeVisitedOnceEach) {
    hear("m119");
    attach(ids(120));
    std::set<std::string> visited;
    for (int i = 118; i >= 0; --i) {
        const auto id = resolved(queue_.smartPrevious());
        EXPECT_EQ(id, "m" + std::to_string(i));
        visited.insert(id);
        loop_.runPosted();
    }
    EXPECT_EQ(visited.size(), 119U);
    EXPECT_EQ(cursor(), inHistory(119, 120));
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::RestartChunk>());
    for (int i = 1; i < 119; ++i) EXPECT_EQ(resolved(queue_.smartNext()), "m" + std::to_string(i));
    EXPECT_EQ(resolved(queue_.smartNext()), "m119");
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueSessionTest, AScrubFarPastEverythingEndsAtItsBudget) {
    hear("m999");
    attach(ids(1000));
    queue_.scrubTo(10'000);
    EXPECT_EQ(cursor(), inHistory(256, 1000));
    ASSERT_TRUE(loop_.runUntil([this] { return currentId() == "m743"; }));
    queue_.scrubTo(3);
    EXPECT_EQ(currentId(), "m996");
}

TEST_F(MessageHistoryQueueSessionTest, WithoutABackwardReaderTheTotalIsWhatWasHeard) {
    hear("a");
    hear("b");
    fired_.clear();
    queue_.setSession(directory_ / "none.json", HistorySource::opencode);
    EXPECT_EQ(queue_.stableTotalKnown(), 2);
    EXPECT_EQ(fired_.size(), 1U);
    EXPECT_EQ(cursor(), live());
    hear("c");
    queue_.goToPreviousMessage();
    EXPECT_EQ(cursor(), inHistory(1, 3));
}

TEST_F(MessageHistoryQueueSessionTest, MessagesHeardAfterTheCountAreAddedToIt) {
    attach(ids(3));
    hear("m2");
    EXPECT_EQ(queue_.stableTotalKnown(), 3);
    hear("m3");
    EXPECT_EQ(queue_.stableTotalKnown(), 4);
    EXPECT_EQ(queue_.liveTimelineCounts().totalMessages, 4);
    EXPECT_EQ(queue_.liveTimelineCounts().messageIndex, 4);
}

TEST_F(MessageHistoryQueueSessionTest, AMessageThatWasPagedAndIsThenHeardIsListedOnce) {
    hear("x");
    attach({"m0", "m1", "m2"});
    queue_.goToPreviousMessage();
    queue_.resumeLive();
    hear("m2");
    std::vector<std::string> order;
    for (int i = 1; i <= 3; ++i) order.push_back(resolved(queue_.smartPrevious()));
    EXPECT_EQ(order, (std::vector<std::string>{"x", "m1", "m0"}));
    EXPECT_EQ(cursor(), inHistory(3, 4));
}

TEST_F(MessageHistoryQueueSessionTest, ACountOfAnEarlierSessionIsDropped) {
    hear("a");
    queue_.setSession(writeTranscript(ids(50)), HistorySource::claudeCode);
    queue_.setSession(directory_ / "missing.jsonl", HistorySource::claudeCode);
    pool_.drain();
    loop_.runPosted();
    EXPECT_EQ(queue_.stableTotalKnown(), 1);
    queue_.setSession(writeTranscript(ids(50)), HistorySource::claudeCode);
    queue_.clearAll();
    pool_.drain();
    loop_.runPosted();
    EXPECT_FALSE(queue_.stableTotalKnown());
    EXPECT_EQ(queue_.state(), MessageHistoryQueueState());
}

TEST_F(MessageHistoryQueueSessionTest, AMissingTranscriptLeavesWhatWasHeard) {
    hear("a");
    hear("b");
    queue_.setSession(directory_ / "missing.jsonl", HistorySource::claudeCode);
    ASSERT_TRUE(loop_.runUntil([this] { return queue_.stableTotalKnown() == 2; }));
    EXPECT_EQ(resolved(queue_.smartPrevious()), "a");
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::RestartChunk>());
    EXPECT_FALSE(queue_.historyText("unknown"));
}

TEST_F(MessageHistoryQueueSessionTest, AColdMessageOfTheTranscriptIsSpokenAnew) {
    std::string spoken;
    queue_.setSynth([&](const std::string& text, const std::string& path) {
        spoken = text;
        writeFile(path, "speech");
        return true;
    });
    hear("m2");
    attach(ids(3));
    const auto outcome = queue_.smartPrevious();
    ASSERT_EQ(resolved(outcome), "m1");
    std::vector<AudioChunk> emitted;
    bool done = false;
    queue_.chunkProvider().resolveChunks(
        {.ref = outcome.as<SkipOutcome::Resolve>()->ref,
         .generation = 1,
         .isCurrent = [](int) { return true; },
         .onChunk = [&](const AudioChunk& chunk) { emitted.push_back(chunk); },
         .onDone = [&] { done = true; }});
    ASSERT_TRUE(loop_.runUntil([&] { return done; }));
    EXPECT_EQ(spoken, "body of m1");
    EXPECT_EQ(queue_.currentMessageRingChunks(), emitted);
    EXPECT_EQ(queue_.chunkProvider().cachedChunks("m1"), emitted);
}

TEST_F(MessageHistoryQueueSessionTest, AClearingInTheMiddleOfASynthesisLeavesNothing) {
    Semaphore started;
    Semaphore gate;
    queue_.setSynth([&](const std::string&, const std::string& path) {
        started.signal();
        gate.wait();
        std::ofstream(path) << "speech";
        return true;
    });
    std::atomic<int> generation = 0;
    int chunks = 0;
    int ends = 0;
    const auto resolvePrevious = [&] {
        hear("m2");
        attach(ids(3));
        const auto outcome = queue_.smartPrevious();
        ASSERT_EQ(resolved(outcome), "m1");
        queue_.chunkProvider().resolveChunks({.ref = outcome.as<SkipOutcome::Resolve>()->ref,
                                              .generation = ++generation,
                                              .isCurrent = [&](int g) { return g == generation; },
                                              .onChunk = [&](const AudioChunk&) { ++chunks; },
                                              .onDone = [&] { ++ends; }});
    };
    resolvePrevious();
    ASSERT_TRUE(started.waitFor(20s));
    ++generation;
    queue_.clearAll();
    EXPECT_EQ(queue_.state(), MessageHistoryQueueState());
    gate.signal();
    // The next one ends after it.
    gate.signal();
    resolvePrevious();
    ASSERT_TRUE(loop_.runUntil([&] { return ends > 0; }));
    EXPECT_EQ(chunks, 1);
    EXPECT_EQ(queue_.ring().messageIdOrder(), (std::deque<std::string>{"m2", "m1"}));
    queue_.ring().directory()->drain();
    EXPECT_EQ(ringFiles().size(), 2U);
    queue_.clearAll();
    queue_.ring().directory()->drain();
    EXPECT_TRUE(std::filesystem::is_empty(ringDir()));
}

TEST_F(MessageHistoryQueueSessionTest, ASkipEveryTwentyMillisecondsForAMinute) {
    constexpr int there = 240;
    for (const auto* id : {"m496", "m497", "m498", "m499"}) hear(id);
    attach(ids(500));
    std::chrono::nanoseconds longest{};
    int index = 0;
    for (int move = 0; move < 3000; ++move) {
        const bool back = (move / there) % 2 == 0;
        index += back ? 1 : -1;
        SkipOutcome outcome;
        longest = std::max(longest, processorTime([&] {
                               outcome = back ? queue_.smartPrevious() : queue_.smartNext();
                           }));
        ASSERT_EQ(resolved(outcome), "m" + std::to_string(499 - index)) << "move " << move;
        ASSERT_EQ(cursor(), index > 0 ? inHistory(index, 500) : live()) << "move " << move;
        loop_.advance(20ms);
    }
    EXPECT_LT(longest, longestWait);
    EXPECT_EQ(queue_.ring().messageIdOrder().size(), 4U);
}

TEST_F(MessageHistoryQueueSessionTest, TenInterleavedSessionsKeepApartAndLeakNothing) {
    for (int round = 0; round < 20; ++round)
        for (int session = 0; session < 10; ++session)
            hear("m" + std::to_string(round) + "-s" + std::to_string(session),
                 "s" + std::to_string(session));
    EXPECT_EQ(queue_.focusedSessionId(), "s9");
    for (int index = 1; index < 20; ++index) {
        const auto ref = queue_.smartPrevious();
        EXPECT_EQ(resolved(ref), "m" + std::to_string(19 - index) + "-s9");
        hear("late" + std::to_string(index), "s" + std::to_string(index % 9));
        EXPECT_EQ(cursor(), inHistory(index, 20));
    }
    EXPECT_EQ(queue_.state().newLiveMessageCount, 0);
    queue_.ring().directory()->drain();
    EXPECT_EQ(ringNames().size(), 20U);
    EXPECT_EQ(ringFiles().size(), 20U);
    queue_.clearAll();
    queue_.ring().directory()->drain();
    EXPECT_TRUE(std::filesystem::is_empty(ringDir()));
}

}  // namespace
}  // namespace sonra::test
