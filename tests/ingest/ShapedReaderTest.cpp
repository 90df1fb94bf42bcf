#include "ingest/ShapedReader.h"

#include <gtest/gtest.h>

#include "ingest/ClineMessagesReader.h"
#include "ingest/ClineReader.h"
#include "ingest/CodexItemsReader.h"
#include "ingest/CodexReader.h"
#include "ingest/LineReading.h"
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

const std::string reply =
    R"({"type":"response_item","payload":{"type":"message","role":"assistant","content":[{"type":"output_text","text":"Hello."}]}})"
    "\n";

TEST_F(ShapedReading, OriginalShapeIsReadAsIfItsReaderWereAlone) {
    test::writeFile(path, reply + "{\"line\":\"x\"}\n" + reply + "partial");
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
    const auto reader = shaped<ClineReader>(ClineMessagesReader());
    const auto fresh = reader->readSince(path, TailOffset::byte(0));
    EXPECT_EQ(fresh.records.size(), 2U);
    EXPECT_EQ(fresh.newOffset, TailOffset::messageIndex(2));
    const auto later = reader->readSince(path, TailOffset::byte(1));
    EXPECT_TRUE(later.records.empty());
    EXPECT_EQ(later.newOffset, TailOffset::messageIndex(2));
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
    const auto path = dir / "rollout.jsonl";
    test::writeFile(path, "");
    test::ManualLoop loop;
    test::FakeFileWatcher watcher;
    auto now = std::chrono::system_clock::now();
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
    now = std::chrono::system_clock::now();
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
