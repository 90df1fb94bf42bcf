#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>

#include "ingest/GoldenMessages.h"
#include "ingest/OpenCodeDatabaseReader.h"
#include "ingest/OpenCodePartsReader.h"
#include "ingest/OpenCodeReader.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

const TailOffset storeStart = TailOffset::unixMs(0);

/// The directories of messages, by the name of each session.
std::map<std::string, std::string> sessions() {
    std::map<std::string, std::string> found;
    for (const auto& file : test::transcripts("opencode", ".json")) {
        const auto dir = fs::path(file.path).parent_path();
        if (dir.parent_path().filename() == "message") found[dir.filename().string()] = dir;
    }
    return found;
}

std::vector<std::string> stores() {
    std::vector<std::string> paths;
    for (const auto& file : test::transcripts("opencode", ".db")) paths.push_back(file.path);
    return paths;
}

/// In the order of their ids: the files of the tree were written in any order.
std::vector<HistoryMessage> sorted(std::vector<HistoryMessage> messages) {
    std::ranges::sort(messages, {}, &HistoryMessage::messageId);
    return messages;
}

TEST(OpenCodeGolden, MessagesOfRealTreesAreTheKnownOnes) {
    const auto dirs = sessions();
    if (dirs.empty()) GTEST_SKIP();
    const OpenCodePartsReader reader;
    Json found = Json::object();
    for (const auto& [session, dir] : dirs) {
        EXPECT_TRUE(reader.recognises(dir)) << session;
        EXPECT_TRUE(test::followed(OpenCodeReader(), dir, storeStart).empty()) << session;
        found[session] = test::summaryOf(sorted(test::followed(reader, dir, storeStart)));
    }
    test::expectGolden("opencode-tree.json", found);
}

TEST(OpenCodeGolden, MessagesOfARealStoreAreTheKnownOnes) {
    const auto paths = stores();
    const auto dirs = sessions();
    if (paths.empty() || dirs.empty()) GTEST_SKIP();
    // The agent's files are nobody's to write beside.
    const test::TempDir dir;
    const auto copy = dir / "opencode.db";
    fs::copy_file(paths.front(), copy);
    const OpenCodeDatabaseReader reader(std::chrono::system_clock::now, std::chrono::minutes(1));
    Json found = Json::object();
    std::size_t alike = 0;
    for (const auto& [session, tree] : dirs) {
        const auto messages = test::followed(reader, copy + "#" + session, storeStart);
        if (messages.empty()) continue;
        found[session] = test::summaryOf(messages);
        EXPECT_EQ(sorted(messages),
                  sorted(test::followed(OpenCodePartsReader(), tree, storeStart)));
        ++alike;
    }
    EXPECT_GE(alike, 5U) << "the store holds what the trees hold";
    test::expectGolden("opencode-store.json", found);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 1);
}

}  // namespace
}  // namespace sonra
