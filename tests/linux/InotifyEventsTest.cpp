#include "linux/InotifyEvents.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <cstring>

namespace sonra {
namespace {

using Bytes = std::vector<std::byte>;

void addRecord(Bytes& bytes, int wd, std::uint32_t mask, std::uint32_t nameLength = 0) {
    const inotify_event header{wd, mask, 0, nameLength};
    const auto at = bytes.size();
    bytes.resize(at + sizeof header + nameLength);
    std::memcpy(bytes.data() + at, &header, sizeof header);
}

TEST(InotifyEvents, ReadsRecordsInOrderAndSkipsNames) {
    Bytes bytes;
    addRecord(bytes, 1, IN_MODIFY);
    addRecord(bytes, 2, IN_CREATE, 16);
    addRecord(bytes, -1, IN_Q_OVERFLOW);
    const std::vector<InotifyEvent> expected{
        {1, IN_MODIFY, false}, {2, IN_CREATE, true}, {-1, IN_Q_OVERFLOW, false}};
    EXPECT_EQ(parseInotifyEvents(bytes), expected);
}

TEST(InotifyEvents, NothingGivesNothing) {
    EXPECT_TRUE(parseInotifyEvents({}).empty());
}

TEST(InotifyEvents, ARecordThatIsCutOffEndsTheList) {
    Bytes bytes;
    addRecord(bytes, 1, IN_MODIFY);
    const auto whole = bytes.size();
    addRecord(bytes, 2, IN_CREATE, 16);
    for (std::size_t length = whole; length < bytes.size(); ++length) {
        const auto events = parseInotifyEvents(std::span(bytes).first(length));
        ASSERT_EQ(events.size(), 1U) << length;
        EXPECT_EQ(events[0].wd, 1);
    }
}

TEST(InotifyEvents, ALengthThatOverflowsIsNotFollowed) {
    Bytes bytes;
    addRecord(bytes, 1, IN_CREATE, 16);
    const std::uint32_t huge = 0xffffffff;
    std::memcpy(bytes.data() + offsetof(inotify_event, len), &huge, sizeof huge);
    EXPECT_TRUE(parseInotifyEvents(bytes).empty());
}

}  // namespace
}  // namespace sonra
