#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ingest/FollowedReplies.h"
#include "ingest/OpenCodeDatabaseReader.h"
#include "ingest/OpenCodeStore.h"
#include "support/TempDir.h"

namespace sonra::test {

/// However slow the machine is.
inline constexpr std::chrono::minutes longEnough{1};

/// A store in a folder of the test's own, and the reader that follows a session in it from the
/// beginning.
class OpenCodeDatabaseReading : public testing::Test {
  protected:
    static inline const TailOffset epoch = TailOffset::unixMs(0);

    std::vector<HistoryMessage> follow() { return followedMessages(reader, url, cursor); }
    /// "id: text" of what a read speaks.
    std::vector<std::string> followed() { return asLines(follow()); }
    using Lines = std::vector<std::string>;

    void addReply(OpenCodeStore& store, const std::string& id, std::int64_t ms,
                  const std::string& words) const {
        store.message(id, OpenCodeStore::reply(ms));
        store.part("prt_" + id, id, OpenCodeStore::text(words, ms));
    }
    void expectNothing() {
        const auto before = cursor;
        EXPECT_EQ(followed(), Lines{});
        EXPECT_EQ(cursor, before);
    }
    /// As where nothing of what can't be seen is new.
    void expectEndIsNow() const {
        const auto ms = std::chrono::floor<std::chrono::milliseconds>(now).time_since_epoch();
        EXPECT_EQ(reader.initialOffset(url), TailOffset::unixMs(ms.count() * 1000));
    }
    /// Not at all isn't long enough: the lock may be there for a moment only.
    static void expectShort(std::chrono::microseconds wait) {
        EXPECT_GT(wait.count(), 1'000);
        EXPECT_LE(wait.count(), 25'000);
    }
    std::set<std::string> namesInDir() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            names.insert(entry.path().filename().string());
        return names;
    }

    TempDir dir;
    const std::string path = dir / "opencode.db";
    std::string url = path + "#ses_1";
    std::chrono::system_clock::time_point now{std::chrono::milliseconds(5'000'000)};
    const OpenCodeDatabaseReader reader{[this] { return now; }, longEnough};
    TailOffset cursor = TailOffset::unixMs(0);
};

}  // namespace sonra::test
