// Searches catalogues of made-up sessions, and makes a catalogue of 5,000 transcripts. Prints one
// JSON object; times in milliseconds, the median of all rounds, with the files in the page cache.
// "tokens" has the searches of 10,000 sessions one by one, with the quickest round and what the
// processor took of each as well: these say more on a machine that is busy.
// With a file's name as its argument it also writes the 100,000 sessions that it searches to that
// file, a line each, for other programs to search.

#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "frame/Json.h"
#include "frame/WorkerPool.h"
#include "platform/MainLoop.h"
#include "platform/TreeWatcher.h"
#include "search/FileName.h"
#include "search/Searcher.h"
#include "search/SessionIndex.h"

namespace {

namespace fs = std::filesystem;
using namespace sonra;

constexpr std::size_t transcripts = 5000;
constexpr std::size_t transcriptSize = 200'000;
constexpr std::size_t projects = 60;
constexpr int rounds = 21;
constexpr int reconcileRounds = 5;
const std::string oneToken = "parser";
const std::string threeTokens = "parser fix sonra";
/// From what nearly all sessions hold to what none does.
constexpr std::array queries{"e",     "the",     "parser",           "kokoro",
                             "zebra", "the a e", "parser fix sonra", "search panel release"};
constexpr int queryRounds = 201;

template <typename Work>
double millisecondsOf(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

template <typename Work>
double median(int count, Work work) {
    std::vector<double> values;
    for (int i = 0; i < count; ++i) values.push_back(millisecondsOf(work));
    std::ranges::sort(values);
    return values[values.size() / 2];
}

double processorMilliseconds() {
    timespec used{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

/// Of the work on a snapshot that nobody has searched yet; making it isn't counted.
template <typename Work>
double medianOfFirst(int count, const std::vector<SessionMeta>& sessions, bool isPrepared,
                     Work work) {
    std::vector<double> values;
    for (int i = 0; i < count; ++i) {
        const SessionSnapshot fresh(sessions);
        if (isPrepared) fresh.prepare();
        values.push_back(millisecondsOf([&] { work(fresh); }));
    }
    std::ranges::sort(values);
    return values[values.size() / 2];
}

/// Prompts and replies as people and agents write them.
class Writer {
  public:
    std::string prose(std::size_t size) {
        static const std::array words{"please",       "fix",      "the",
                                      "parser",       "so",       "that",
                                      "it",           "reads",    "each",
                                      "line",         "once",     "and",
                                      "add",          "a",        "test",
                                      "for",          "session",  "index",
                                      "why",          "does",     "build",
                                      "fail",         "on",       "release",
                                      "branch",       "voice",    "queue",
                                      "update",       "README",   "with",
                                      "new",          "options",  "refactor",
                                      "search",       "panel",    "Done.",
                                      "All",          "tests",    "pass",
                                      "now;",         "I",        "moved",
                                      "function",     "into",     "its",
                                      "own",          "file",     "`src/main.cpp`",
                                      "\xE2\x80\x94", "kokoro",   "caption",
                                      "window",       "database", "migration",
                                      "error",        "handling", "don\xE2\x80\x99t",
                                      "write"};
        std::string text;
        while (text.size() < size) text += std::string(words[below(words.size())]) + " ";
        text.resize(text.find_last_of(' '));
        return text;
    }
    std::string hex(std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) text += "0123456789abcdef"[below(16)];
        return text;
    }
    std::string project() {
        static const std::array names{"sonra",      "tts-offload", "web-client",
                                      "parser-lab", "dotfiles",    "api"};
        const auto number = below(projects);
        return std::string(names[number % names.size()]) +
               (number < names.size() ? "" : "-" + std::to_string(number));
    }
    SessionMeta session(std::size_t number) {
        SessionMeta meta;
        meta.sessionId = hex(8) + "-" + hex(4) + "-" + hex(4) + "-" + hex(4) + "-" + hex(12);
        meta.cwd = "/home/somebody/src/" + project();
        meta.projectDir = "/home/somebody/.claude/projects/-home-somebody-src";
        meta.jsonlPath = meta.projectDir + "/" + meta.sessionId + ".jsonl";
        meta.mtime = 1'760'000'000 - static_cast<double>(number) * 60;
        meta.firstUserPrompt = prose(20 + below(180));
        meta.lastAssistantSnippet = prose(100 + below(100));
        meta.source = "claude-code";
        return meta;
    }
    std::vector<SessionMeta> sessions(std::size_t count) {
        std::vector<SessionMeta> all;
        for (std::size_t i = 0; i < count; ++i) all.push_back(session(i));
        return all;
    }

  private:
    std::size_t below(std::size_t limit) { return random_() % limit; }

    std::mt19937 random_{42};
};

/// Nobody listens here.
class DeafLoop : public MainLoop {
  public:
    void post(std::function<void()> /*work*/) override {}
    LoopHandle after(Duration /*delay*/, std::function<void()> /*work*/) override { return {}; }
    LoopHandle every(Duration /*interval*/, std::function<void()> /*work*/) override { return {}; }
    LoopHandle watch(int /*fd*/, Interest /*interest*/, std::function<void()> /*work*/) override {
        return {};
    }
    TimePoint now() const override { return Clock::now(); }
};

class NoWatcher : public TreeWatcher {
  public:
    std::unique_ptr<TreeWatch> watch(const std::string& /*root*/, Callback /*onEvents*/) override {
        return nullptr;
    }
};

/// Transcripts below a directory of their own, removed at the end.
class Scratch {
  public:
    Scratch() {
        const char* base = std::getenv("TMPDIR");
        path_ = std::string(base != nullptr ? base : "/tmp") + "/bench-search-XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) std::abort();
        Writer writer;
        for (std::size_t i = 0; i < transcripts; ++i) write(writer, i);
    }
    ~Scratch() { fs::remove_all(path_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    [[nodiscard]] std::string root() const { return path_ + "/projects"; }
    [[nodiscard]] std::string cache() const { return path_ + "/cache"; }

  private:
    void write(Writer& writer, std::size_t number) const {
        const auto meta = writer.session(number);
        const auto directory = root() + "/-src-" + std::string(FileName::lastComponent(meta.cwd));
        fs::create_directories(directory);
        std::string content = line(meta, "user", Json(meta.firstUserPrompt));
        const auto middle =
            line(meta, "user",
                 Json::array({{{"type", "tool_result"}, {"content", writer.prose(3000)}}}));
        while (content.size() + middle.size() < transcriptSize) content += middle;
        content += line(meta, "assistant",
                        Json::array({{{"type", "text"}, {"text", meta.lastAssistantSnippet}}}));
        std::ofstream(directory + "/" + meta.sessionId + ".jsonl", std::ios::binary) << content;
    }
    static std::string line(const SessionMeta& meta, const std::string& role, const Json& content) {
        return R"({"parentUuid":null,"isSidechain":false,"cwd":")" + meta.cwd +
               R"(","gitBranch":"main","type":")" + role + R"(","message":{"role":")" + role +
               R"(","content":)" + content.dump() + "}}\n";
    }

    std::string path_;
};

/// An index over the scratch directory.
class Index {
  public:
    explicit Index(const Scratch& scratch)
        : root_(scratch.root()),
          index_(loop_, pool_, watcher_, SessionIndexStore(scratch.cache())) {}

    SessionIndex& operator*() { return index_; }
    void reconcile() {
        auto done = std::make_shared<std::promise<void>>();
        auto finished = done->get_future();
        index_.reconcile(root_, [done] { done->set_value(); });
        finished.wait();
    }

  private:
    const std::string root_;
    DeafLoop loop_;
    NoWatcher watcher_;
    WorkerPool pool_;
    SessionIndex index_;
};

template <typename Work>
Json queryFigures(Work work) {
    const double before = processorMilliseconds();
    std::vector<double> values;
    for (int i = 0; i < queryRounds; ++i) values.push_back(millisecondsOf(work));
    const double processor = (processorMilliseconds() - before) / queryRounds;
    std::ranges::sort(values);
    return {{"medianMs", values[values.size() / 2]},
            {"leastMs", values.front()},
            {"processorMs", processor}};
}

Json searchFigures(const std::string& rowsPath) {
    Writer writer;
    const SessionSnapshot small(writer.sessions(10'000));
    const SessionSnapshot large(writer.sessions(100'000));
    std::ofstream rows(rowsPath, std::ios::binary);
    for (const auto& meta : large)
        rows << FileName::lastComponent(meta.cwd) << '\t' << meta.sessionId << '\t'
             << meta.firstUserPrompt << '\t' << meta.lastAssistantSnippet << '\n';
    std::size_t hits = 0;
    const auto search = [&](const SessionSnapshot& snapshot, const std::string& query) {
        hits += Searcher::search(snapshot, query, {}).size();
    };
    const auto medianOf = [&](const SessionSnapshot& snapshot, const std::string& query) {
        return median(rounds, [&] { search(snapshot, query); });
    };
    const auto sessions = writer.sessions(10'000);
    const auto searchOne = [&](const auto& fresh) { search(fresh, oneToken); };
    Json figures{{"token", oneToken},
                 {"firstMs", medianOfFirst(rounds, sessions, true, searchOne)},
                 {"firstUnpreparedMs", medianOfFirst(rounds, sessions, false, searchOne)},
                 {"oneTokenMs", medianOf(small, oneToken)},
                 {"threeTokensMs", medianOf(small, threeTokens)},
                 {"largeMs", medianOf(large, oneToken)}};
    for (const std::string query : queries)
        figures["tokens"][query] = queryFigures([&] { search(small, query); });
    figures["hits"] = hits;
    return figures;
}

Json indexFigures() {
    const Scratch scratch;
    Json figures;
    figures["reconcileMs"] = median(reconcileRounds, [&] {
        fs::remove_all(scratch.cache());
        Index(scratch).reconcile();
    });
    Index warm(scratch);
    (*warm).bootstrap();
    figures["sessions"] = (*warm).snapshot().size();
    figures["unchangedMs"] = median(rounds, [&] { warm.reconcile(); });
    std::size_t hits = 0;
    figures["startMs"] = median(rounds, [&] {
        Index index(scratch);
        (*index).bootstrap();
        hits += Searcher::search((*index).snapshot(), oneToken, {}).size();
    });
    figures["hits"] = hits;
    return figures;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: bench_search ROWS\n";
        return 2;
    }
    std::cout << Json({{"search", searchFigures(argv[1])}, {"index", indexFigures()}}).dump()
              << "\n";
    return 0;
}
