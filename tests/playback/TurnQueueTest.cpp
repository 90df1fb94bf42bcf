#include "playback/TurnQueue.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

AudioChunk chunk(const std::string& session, const std::string& url = "/a.wav") {
    AudioChunk made;
    made.url = url;
    made.sessionId = session;
    return made;
}

TEST(TurnQueue, CountsTheChunksOfATurn) {
    TurnQueue queue;
    queue.add(chunk("s", "/1"), false);
    queue.add(chunk("s", "/2"), false);
    EXPECT_EQ(queue.totalChunksThisTurn(), 2);
    EXPECT_EQ(queue.chunkIndexThisTurn(), 0);
    EXPECT_EQ(queue.takeNext().url, "/1");
    EXPECT_EQ(queue.chunkIndexThisTurn(), 1);
    EXPECT_EQ(queue.size(), 1U);
}

TEST(TurnQueue, AnotherSessionBeginsATurnEvenWhileAChunkPlays) {
    TurnQueue queue;
    queue.add(chunk("s"), false);
    queue.takeNext();
    queue.add(chunk("t"), true);
    EXPECT_EQ(queue.totalChunksThisTurn(), 1);
    EXPECT_EQ(queue.chunkIndexThisTurn(), 0);
    EXPECT_EQ(queue.size(), 1U);
}

TEST(TurnQueue, AChunkAfterTheLastHasEndedBeginsATurn) {
    TurnQueue queue;
    queue.add(chunk("s"), false);
    queue.takeNext();
    queue.add(chunk("s"), true);
    EXPECT_EQ(queue.totalChunksThisTurn(), 2);
    queue.takeNext();
    queue.add(chunk("s"), false);
    EXPECT_EQ(queue.totalChunksThisTurn(), 1);
    EXPECT_EQ(queue.chunkIndexThisTurn(), 0);
}

TEST(TurnQueue, ReplaceStandsAtTheGivenChunk) {
    TurnQueue queue;
    queue.add(chunk("s", "/old"), false);
    queue.replace({chunk("t", "/1"), chunk("t", "/2"), chunk("t", "/3")}, 1);
    EXPECT_EQ(queue.size(), 2U);
    EXPECT_EQ(queue.totalChunksThisTurn(), 3);
    EXPECT_EQ(queue.takeNext().url, "/2");
    EXPECT_EQ(queue.chunkIndexThisTurn(), 2);
    queue.add(chunk("t"), true);
    EXPECT_EQ(queue.totalChunksThisTurn(), 4);
}

TEST(TurnQueue, DropAllKeepsTheSession) {
    TurnQueue queue;
    queue.add(chunk("s", "/1"), false);
    queue.add(chunk("s", "/2"), false);
    EXPECT_EQ(queue.dropAll().size(), 2U);
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.totalChunksThisTurn(), 0);
    EXPECT_EQ(queue.chunkIndexThisTurn(), 0);
    queue.add(chunk("s"), true);  // no new turn begins: the counts go on from zero
    EXPECT_EQ(queue.totalChunksThisTurn(), 1);
}

}  // namespace
}  // namespace sonra
