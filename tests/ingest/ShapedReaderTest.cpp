#include "ingest/ShapedReader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "ingest/ClineMessagesReader.h"
#include "ingest/ClineReader.h"
#include "ingest/CodexItemsReader.h"
#include "ingest/CodexReader.h"
#include "ingest/FileTime.h"
#include "ingest/LineReading.h"
#include "ingest/LiveTailReaderRegistry.h"
#include "ingest/OpenCodeDatabaseReader.h"
#include "ingest/OpenCodeReader.h"
#include "ingest/OpenCodeStore.h"
#include "ingest/SessionTailer.h"
#include "support/FakeFileWatcher.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

/// Takes transcripts that begin with "new"; says each line twice.
class DoublingReader final : public ShapeReader {
  public:
    class Parser final : public HarnessParser {
      public:
        std::string_view id() const override { return "codex"; }

      protected:
        std::optional<HistoryMessage> parseObject(const Json& object) const override {
            const auto line = json::stringAt(object, "line");
            if (!line) return std::nullopt;
            return HistoryMessage{*line, *line, {}};
        }
    };

    explicit DoublingReader(int* looks = nullptr) : looks_(looks) {}
    std::string_view id() const override { return "codex"; }
    bool recognises(const std::string& url) const override {
        if (looks_ != nullptr) ++*looks_;
        return LineReading::beginning(url, 3) == "new";
    }
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::byte; }
    TailOffset initialOffset(const std::string& url) const override {
        return LineReading::endOf(url);
    }
    Reading readSince(const std::string& url, TailOffset offset) const override {
        Reading reading{{}, offset};
        const auto [lines, end] = LineReading::linesSince(url, offset.intValue());
        for (const auto& line : lines)
            reading.records.push_back(TranscriptRecord::jsonObject({{"line", line.text}}));
        reading.newOffset = TailOffset::byte(end);
        return reading;
    }
    const Parser& parser() const override { return parser_; }
    std::string watchPath(const std::string& url) const override {
        const auto mark = url.find('#');
        return mark == std::string::npos ? url : url.substr(0, mark);
    }

  private:
    Parser parser_;
    int* looks_;
};

template <typename Original, typename... Shapes>
std::unique_ptr<ShapedReader> shaped(Shapes... shapes) {
    std::vector<std::unique_ptr<const ShapeReader>> others;
    (others.push_back(std::make_unique<const Shapes>(std::move(shapes))), ...);
    return std::make_unique<ShapedReader>(std::make_unique<const Original>(), std::move(others));
}

class ShapedReading : public testing::Test {
  protected:
    std::vector<std::string> textsFrom(TailOffset offset) const {
        std::vector<std::string> texts;
        for (const auto& record : reader->readSince(path, offset).records)
            if (const auto message = reader->parser().parse(record)) texts.push_back(message->text);
        return texts;
    }

    test::TempDir dir;
    std::string path = dir / "session.jsonl";
    int looks = 0;
    std::unique_ptr<ShapedReader> reader = shaped<CodexReader>(DoublingReader(&looks));
};

const std::string openCodeReply =
    R"({"type":"response_item","payload":{"type":"message","role":"assistant","content":[{"type":"output_text","text":"Hello."}]}})"
    "\n";

TEST_F(ShapedReading, OriginalShapeIsReadAsIfItsReaderWereAlone) {
    test::writeFile(path, openCodeReply + "{\"line\":\"x\"}\n" + openCodeReply + "partial");
    const CodexReader alone;
    const auto start = TailOffset::byte(0);
    EXPECT_EQ(reader->readSince(path, start).records, alone.readSince(path, start).records);
    EXPECT_EQ(reader->readSince(path, start).newOffset, alone.readSince(path, start).newOffset);
    EXPECT_EQ(reader->initialOffset(path), alone.initialOffset(path));
    EXPECT_EQ(textsFrom(start), (std::vector<std::string>{"Hello.", "Hello."}));
    EXPECT_EQ(reader->id(), "codex");
    EXPECT_EQ(reader->parser().id(), "codex");
}

TEST_F(ShapedReading, RecognisedShapeIsReadByItsOwnReaderAndParser) {
    test::writeFile(path, "new\nlines\n");
    EXPECT_EQ(textsFrom(TailOffset::byte(0)), (std::vector<std::string>{"new", "lines"}));
}

TEST_F(ShapedReading, ShapeIsFoundOutWhenATranscriptComesLate) {
    const auto start = reader->initialOffset(path);
    EXPECT_EQ(start, TailOffset::byte(0));
    EXPECT_TRUE(textsFrom(start).empty());
    test::writeFile(path, "new\n");
    EXPECT_EQ(textsFrom(start), std::vector<std::string>{"new"});
}

TEST_F(ShapedReading, NothingIsLookedAtWhileTheCursorStandsAtTheEnd) {
    test::writeFile(path, "new\n");
    const auto end = reader->initialOffset(path);
    looks = 0;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(reader->readSince(path, end).newOffset, end);
        EXPECT_EQ(reader->watchPath(path), path);
    }
    EXPECT_EQ(looks, 0);
    test::appendFile(path, "more\n");
    EXPECT_EQ(textsFrom(end), std::vector<std::string>{"more"});
}

TEST_F(ShapedReading, PathToWatchIsTheShapesWhereItIsAnother) {
    EXPECT_EQ(reader->watchPath(dir / "store.db#ses_1"), dir / "store.db");
    EXPECT_EQ(reader->watchPath(path), path);
}

TEST(ShapedCursor, OfAnotherKindMeansTheBeginningOrTheEnd) {
    const test::TempDir dir;
    const auto path = dir / "session.json";
    test::writeFile(path, R"({"messages":[{"role":"user"},{"role":"user"}]})");
    std::vector<std::unique_ptr<const ShapeReader>> others;
    others.push_back(std::make_unique<const ClineMessagesReader>());
    const auto reader =
        std::make_unique<ShapedReader>(std::make_unique<const ClineReader>(), std::move(others));
    const auto fresh = reader->readSince(path, TailOffset::byte(0));
    EXPECT_EQ(fresh.records.size(), 2U);
    EXPECT_EQ(fresh.newOffset, TailOffset::messageIndex(2));
    const auto later = reader->readSince(path, TailOffset::byte(1));
    EXPECT_TRUE(later.records.empty());
    EXPECT_EQ(later.newOffset, TailOffset::messageIndex(2));
}

TEST(ShapedCursor, OfAnotherKindMeansTheEndToTheOriginalReaderToo) {
    const test::TempDir dir;
    const auto& gemini = *LiveTailReaderRegistry::reader("gemini");
    const std::string line = R"({"type":"gemini","content":"Old."})"
                             "\n";
    const auto lines = dir / "session.jsonl";
    test::writeFile(lines, line);
    const auto atLines = gemini.readSince(lines, TailOffset::messageIndex(5));
    EXPECT_TRUE(atLines.records.empty());
    EXPECT_EQ(atLines.newOffset, TailOffset::byte(static_cast<std::int64_t>(line.size())));
    const auto document = dir / "session.json";
    test::writeFile(document, R"({"messages":[{},{},{}]})");
    const auto atDocument = gemini.readSince(document, TailOffset::byte(1));
    EXPECT_TRUE(atDocument.records.empty());
    EXPECT_EQ(atDocument.newOffset, TailOffset::messageIndex(3));
}

/// OpenCode's tree counts milliseconds, its store thousandths of them.
class OpenCodeMoving : public testing::Test {
  protected:
    OpenCodeMoving() {
        std::filesystem::create_directory(tree);
        writeMessage("a", "In the tree.");
        cursor = reader.initialOffset(tree);
    }
    void writeMessage(const std::string& name, const std::string& words) const {
        test::writeFile(tree + "/" + name + ".json",
                        R"({"id":")" + name +
                            R"(","role":"assistant","parts":[{"type":"text","text":")" + words +
                            R"("}]})");
    }
    void addToStore(const std::string& id, std::int64_t ms) {
        store.message(id, test::OpenCodeStore::reply(ms));
        store.part("prt_" + id, id, test::OpenCodeStore::text("In the store.", ms));
    }
    std::size_t follow(const std::string& transcript) {
        const auto reading = reader.readSince(transcript, cursor);
        cursor = cursor.advanced(reading.newOffset);
        return reading.records.size();
    }
    /// However slow the machine is, a look sees the store.
    static std::vector<std::unique_ptr<const ShapeReader>> shapes() {
        std::vector<std::unique_ptr<const ShapeReader>> others;
        others.push_back(std::make_unique<const OpenCodeDatabaseReader>(
            std::chrono::system_clock::now, std::chrono::minutes(1)));
        return others;
    }
    static std::int64_t nowMs() {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return std::chrono::floor<std::chrono::milliseconds>(now).count();
    }

    test::TempDir dir;
    const std::string tree = dir / "ses_1";
    const std::string url = dir / "opencode.db#ses_1";
    test::OpenCodeStore store{dir / "opencode.db"};
    const ShapedReader reader{std::make_unique<const OpenCodeReader>(), shapes()};
    TailOffset cursor = TailOffset::unixMs(0);
};

TEST_F(OpenCodeMoving, FromTheTreeToTheStoreOnlyWhatIsNewIsSaid) {
    addToStore("msg_old", cursor.intValue());
    addToStore("msg_older", cursor.intValue() - 60'000);
    EXPECT_EQ(follow(url), 0U);
    addToStore("msg_new", cursor.intValue() + 1000);
    EXPECT_EQ(follow(url), 1U);
    EXPECT_EQ(follow(url), 0U);
    EXPECT_EQ(cursor, reader.initialOffset(url));
}

TEST_F(OpenCodeMoving, FromTheStoreToTheTreeOnlyWhatIsNewIsSaid) {
    addToStore("msg_a", nowMs());
    cursor = reader.initialOffset(url);
    const auto atStore = cursor;
    EXPECT_EQ(follow(tree), 0U);
    EXPECT_EQ(cursor, atStore);
    writeMessage("b", "New.");
    std::filesystem::last_write_time(
        tree + "/b.json", std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_EQ(follow(tree), 1U);
    EXPECT_EQ(cursor, reader.initialOffset(tree));
    EXPECT_EQ(follow(tree), 0U);
}

TEST(ShapedTailing, ADocumentInTheFilesPlaceIsNotReplayed) {
    const test::TempDir dir;
    auto path = dir / "session.jsonl";
    test::writeFile(path, std::string(500, 'x') + "\n");
    test::ManualLoop loop;
    test::FakeFileWatcher watcher;
    std::vector<std::string> heard;
    const auto& reader = *LiveTailReaderRegistry::reader("gemini");
    SessionTailer tailer(loop, watcher, reader,
                         {.sessionId = "s",
                          .startOffset = std::nullopt,
                          .pathProvider = [&] { return path; },
                          .sink = [&](const auto&, const auto& m) { heard.push_back(m.text); },
                          .offsetPersist = [](const auto&, auto) {}});
    tailer.start();
    path = dir / "session.json";
    const std::string old = R"({"id":"1","type":"gemini","content":"Old."})";
    test::writeFile(path, R"({"messages":[)" + old + "]}");
    tailer.tickNow();
    EXPECT_TRUE(heard.empty());
    test::writeFile(path,
                    R"({"messages":[)" + old + R"(,{"id":"2","type":"gemini","content":"New."}]})");
    tailer.tickNow();
    EXPECT_EQ(heard, std::vector<std::string>{"New."});
}

TEST(ShapedTailing, WatchesThePathThatTheReaderNames) {
    const test::TempDir dir;
    test::writeFile(dir / "store.db", "");
    test::ManualLoop loop;
    test::FakeFileWatcher watcher;
    const auto reader = shaped<CodexReader>(DoublingReader());
    SessionTailer tailer(loop, watcher, *reader,
                         {.sessionId = "s",
                          .startOffset = std::nullopt,
                          .pathProvider = [&] { return dir / "store.db#ses_1"; },
                          .sink = [](const auto&, const auto&) {},
                          .offsetPersist = [](const auto&, auto) {}});
    tailer.start();
    EXPECT_EQ(tailer.watchedPath(), dir / "store.db");
    tailer.tickNow();
    tailer.tickNow();
    EXPECT_EQ(watcher.armings(), 1U);
}

/// A reply that may still change, and a clock.
TEST(ShapedTailing, APollWithNothingNewDeliversWhatQuietHasEnded) {
    const test::TempDir dir;
    std::string path = dir / "rollout.jsonl";
    test::writeFile(path, "");
    test::ManualLoop loop;
    test::FakeFileWatcher watcher;
    std::chrono::system_clock::time_point now;
    const auto reader = shaped<CodexReader>(CodexItemsReader(QuietFile([&] { return now; })));
    std::vector<std::string> heard;
    SessionTailer tailer(loop, watcher, *reader,
                         {.sessionId = "s",
                          .startOffset = std::nullopt,
                          .pathProvider = [&] { return path; },
                          .sink = [&](const auto&, const auto& m) { heard.push_back(m.text); },
                          .offsetPersist = [](const auto&, auto) {}});
    tailer.start();
    test::appendFile(
        path,
        R"({"type":"event_msg","payload":{"type":"item_completed","item":{"type":"AgentMessage","content":[{"type":"Text","text":"Hello."}]}}})"
        "\n");
    now = test::writtenAt(path);
    loop.advance(SessionTailer::defaultPollInterval);
    EXPECT_TRUE(heard.empty());
    EXPECT_EQ(tailer.offset(), TailOffset::byte(0));
    now += QuietFile::enough;
    loop.advance(SessionTailer::defaultPollInterval);
    EXPECT_EQ(heard, std::vector<std::string>{"Hello."});
    EXPECT_EQ(tailer.offset(), reader->initialOffset(path));
    loop.advance(10 * SessionTailer::defaultPollInterval);
    EXPECT_EQ(heard.size(), 1U);
}

}  // namespace
}  // namespace sonra
