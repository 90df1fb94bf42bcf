#include <filesystem>

#include "control/AgentTranscript.h"
#include "control/Fixture.h"
#include "control/PreviousMessage.h"
#include "ingest/LiveTailReaderRegistry.h"
#include "ingest/QuietFile.h"

/// What of an agent's replies is spoken that were there before its session was attached: the last
/// one, if its transcript can be read from the end, and nothing of the others.
namespace sonra {
namespace {

class Seeding : public test::CoordinatorTest, public testing::WithParamInterface<test::AgentShape> {
  protected:
    void SetUp() override {
        path = home / shape.place;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        shape.begin(path);
        url = path + shape.session;
    }
    void say(const std::string& text) { shape.add(path, ++said, text); }
    /// The ids of all replies, as their reader finds them from the transcript's beginning.
    [[nodiscard]] std::vector<std::string> idsOfAll() const {
        const auto start = TailOffset::of(reader.cursorKindOf(url), 0);
        std::vector<std::string> ids;
        for (const auto& record : reader.readSince(url, start).records)
            if (const auto message = reader.parser().parse(record))
                ids.push_back(message->messageId);
        return ids;
    }
    [[nodiscard]] std::size_t enqueued() const { return log.count("chunk enqueued"); }

    const test::AgentShape& shape = GetParam();
    const LiveTailReader& reader = *LiveTailReaderRegistry::reader(shape.source);
    std::string path;
    std::string url;
    int said = 0;
};

TEST_P(Seeding, TheLastReplyIsKnownAsItsReaderKnowsIt) {
    say("This was said long before");
    say("And **this** was said last");
    const auto all = idsOfAll();
    ASSERT_EQ(all.size(), 2U);
    const auto seed = previousMessageToSeed(url, shape.source);
    ASSERT_EQ(seed.has_value(), shape.hasBackwardReader);
    if (!seed) return;
    EXPECT_EQ(seed->messageId, all[1]);
    EXPECT_EQ(seed->text, "And **this** was said last");
}

TEST_P(Seeding, OfWhatWasThereAtMostTheLastReplyIsSpoken) {
    say("This was said long before");
    say("This was said right before the attach");
    start();
    coordinator->attachSessionLocal({"s1", "/p", url, shape.source, "", ""});
    const std::size_t seeds = shape.hasBackwardReader ? 1 : 0;
    ASSERT_TRUE(loop.runUntil([&] { return enqueued() == seeds; }));
    loop.advance(SessionTailer::defaultPollInterval);
    say("This is spoken because it came later");
    loop.advance(SessionTailer::defaultPollInterval);
    ASSERT_TRUE(loop.runUntil([&] { return enqueued() > seeds; }));
    loop.advance(SessionTailer::defaultPollInterval);
    const auto all = idsOfAll();
    ASSERT_EQ(all.size(), 3U);
    const auto& heard = coordinator->history().live().ids();
    EXPECT_EQ(heard, std::vector(all.end() - 1 - static_cast<std::ptrdiff_t>(seeds), all.end()));
    EXPECT_EQ(enqueued(), seeds + 1);
}

TEST_P(Seeding, NothingIsSpokenOfASessionThatHasSaidNothing) {
    start();
    EXPECT_FALSE(previousMessageToSeed(url, shape.source).has_value());
    coordinator->attachSessionLocal({"s1", "/p", url, shape.source, "", ""});
    say("These are the first words of all");
    loop.advance(SessionTailer::defaultPollInterval);
    ASSERT_TRUE(loop.runUntil([&] { return enqueued() > 0; }));
    EXPECT_EQ(coordinator->history().live().ids(), idsOfAll());
}

const auto nameOf = [](const auto& instance) { return std::string(instance.param.name); };

INSTANTIATE_TEST_SUITE_P(Agents, Seeding, testing::ValuesIn(test::agentShapes()), nameOf);

/// Where the last reply is known at all.
using SeedingFromTheEnd = Seeding;

TEST_P(SeedingFromTheEnd, AStubIsNoSeed) {
    say("This was said long before");
    say("**Done, friend.**");
    ASSERT_TRUE(previousMessageToSeed(url, shape.source).has_value());
    say("**Done.**");
    ASSERT_EQ(idsOfAll().size(), 3U);
    EXPECT_FALSE(previousMessageToSeed(url, shape.source).has_value());
}

std::vector<test::AgentShape> shapesReadFromTheEnd() {
    auto shapes = test::agentShapes();
    std::erase_if(shapes, [](const auto& shape) { return !shape.hasBackwardReader; });
    return shapes;
}

INSTANTIATE_TEST_SUITE_P(Agents, SeedingFromTheEnd, testing::ValuesIn(shapesReadFromTheEnd()),
                         nameOf);

class SeedingOfGemini : public testing::Test {
  protected:
    void write(const std::string& id, const std::string& type, const std::string& text) {
        const Json line = {{"id", id}, {"type", type}, {"content", text}};
        test::appendFile(path, json::dump(line) + "\n");
    }
    void leaveAlone() {
        std::filesystem::last_write_time(
            path, std::filesystem::last_write_time(path) - std::chrono::seconds(2));
    }
    [[nodiscard]] std::string seed() const {
        const auto message = previousMessageToSeed(path, "gemini");
        return message ? message->messageId + ": " + message->text : "none";
    }
    /// The seed of a file that was written just now. A look that took so long that the file may
    /// have become a quiet one meanwhile tells nothing.
    [[nodiscard]] std::string seedWhileWritten() const {
        for (;;) {
            const auto written = std::filesystem::file_time_type::clock::now();
            std::filesystem::last_write_time(path, written);
            auto found = seed();
            if (std::filesystem::file_time_type::clock::now() - written < QuietFile::enough)
                return found;
        }
    }

    test::TempDir dir;
    const std::string path = dir / "session.jsonl";
};

TEST_F(SeedingOfGemini, WhatIsStillBeingWrittenIsNoSeed) {
    test::writeFile(path, R"({"sessionId":"s","projectHash":"p","kind":"main"})"
                          "\n");
    write("g-1", "gemini", "This is only the");
    EXPECT_EQ(seedWhileWritten(), "none");
    write("g-1", "gemini", "This is only the beginning.");
    write("g-2", "gemini", "And this is");
    EXPECT_EQ(seedWhileWritten(), "g-1: This is only the beginning.");
    leaveAlone();
    EXPECT_EQ(seed(), "g-2: And this is") << "nobody writes any longer";
    write("g-2", "gemini", "And this is what follows.");
    EXPECT_EQ(seedWhileWritten(), "g-1: This is only the beginning.");
    write("u-1", "user", "Go on.");
    EXPECT_EQ(seedWhileWritten(), "g-2: And this is what follows.") << "something stands behind it";
}

TEST_F(SeedingOfGemini, WhatStandsBehindARewindIsWhole) {
    test::writeFile(path, R"({"sessionId":"s","projectHash":"p","kind":"main"})"
                          "\n");
    write("g-1", "gemini", "This was said before.");
    write("g-2", "gemini", "This is taken back.");
    test::appendFile(path, R"({"$rewindTo":"g-2"})"
                           "\n");
    EXPECT_EQ(seedWhileWritten(), "g-1: This was said before.");
}

}  // namespace
}  // namespace sonra
