#include "history/TimelineIndex.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

MessageRef ref(const std::string& id) {
    return {id, "s", MessageRef::LiveTail{}};
}

std::vector<MessageRef> refs(const std::vector<std::string>& ids) {
    std::vector<MessageRef> result;
    for (const auto& id : ids) result.push_back(ref(id));
    return result;
}

std::string idAt(const TimelineIndex& index, int back) {
    const auto* found = index.ref(back);
    return found ? found->messageId : "none";
}

std::string order(const TimelineIndex& index) {
    std::string all;
    for (const auto& each : index.refs()) all += each.messageId;
    return all;
}

TEST(TimelineIndex, NewestIsBackZero) {
    const TimelineIndex index(refs({"a", "b", "c"}));
    EXPECT_EQ(idAt(index, 0), "c");
    EXPECT_EQ(idAt(index, 2), "a");
}

TEST(TimelineIndex, PastTheHotTailGivesNoneBeforePaging) {
    TimelineIndex index(refs({"c", "d"}));
    EXPECT_EQ(idAt(index, 2), "none");
    EXPECT_EQ(idAt(index, -1), "none");
    index.prependOlder(refs({"b", "a"}));
    EXPECT_EQ(idAt(index, 2), "b");
    EXPECT_EQ(idAt(TimelineIndex(), 0), "none");
}

TEST(TimelineIndex, OverlappingPagesStayTheUnionOldestToNewest) {
    TimelineIndex index(refs({"d", "e"}));
    index.prependOlder(refs({"e", "d", "c", "b", "c"}));
    index.prependOlder(refs({"b", "a"}));
    EXPECT_EQ(order(index), "abcde");
}

TEST(TimelineIndex, WithFourMessagesBackThreeIsTheOldestAndBackFourIsNone) {
    TimelineIndex index(refs({"d"}));
    index.prependOlder(refs({"c", "b", "a"}));
    EXPECT_EQ(idAt(index, 3), "a");
    EXPECT_EQ(idAt(index, 4), "none");
}

TEST(TimelineIndex, RepeatingAPageChangesNothing) {
    TimelineIndex index(refs({"c"}), 7);
    index.prependOlder(refs({"b", "a"}));
    index.prependOlder(refs({"b", "a"}));
    EXPECT_EQ(order(index), "abc");
    EXPECT_EQ(index.totalKnown(), 7);
}

TEST(TimelineIndex, RemovesOne) {
    TimelineIndex index(refs({"a", "b", "c"}));
    index.remove("b");
    index.remove("x");
    EXPECT_EQ(order(index), "ac");
    EXPECT_FALSE(index.contains("b"));
    index.prependOlder(refs({"b"}));
    EXPECT_EQ(order(index), "bac");
}

}  // namespace
}  // namespace sonra
