// Counts the messages of a transcript of 100 MB and reads its last page, beside what a plain pass
// with the same JSON library takes. Prints one JSON object; times in milliseconds, the median of
// all rounds, with the file in the page cache.

#include <fcntl.h>
#include <simdjson.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "frame/Json.h"
#include "frame/UniqueFd.h"
#include "history/MessageCounter.h"
#include "history/SessionHistory.h"

namespace {

using sonra::Json;

constexpr std::size_t transcriptSize = 100'000'000;
constexpr std::size_t windowSize = std::size_t{1} << 20;
constexpr int rounds = 11;
constexpr int pageSize = 16;

/// A file in a directory of its own, removed at the end.
class ScratchFile {
  public:
    ScratchFile() {
        const char* base = std::getenv("TMPDIR");
        directory_ = std::string(base != nullptr ? base : "/tmp") + "/bench-history-XXXXXX";
        if (::mkdtemp(directory_.data()) == nullptr) std::abort();
    }
    ~ScratchFile() {
        ::unlink(path().c_str());
        ::rmdir(directory_.c_str());
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    [[nodiscard]] std::string path() const { return directory_ + "/session.jsonl"; }

  private:
    std::string directory_;
};

/// Writes turns as agents do: for each reply some thinking, calls of tools, and what the tools
/// printed, which is most of the bytes.
class Writer {
  public:
    explicit Writer(const std::string& path) : file_(path, std::ios::binary) {}

    void writeAll() {
        while (written_ < transcriptSize) {
            put("user", text("Please go on with the next step."));
            for (std::size_t calls = 1 + below(6); calls > 0; --calls) {
                put("assistant", {{"type", "thinking"},
                                  {"thinking", prose(200 + below(1500))},
                                  {"signature", letters(400)}});
                put("assistant", {{"type", "tool_use"},
                                  {"id", "toolu_" + letters(24)},
                                  {"name", "Bash"},
                                  {"input", {{"command", prose(60 + below(400))}}}});
                put("user", {{"type", "tool_result"},
                             {"tool_use_id", "toolu_" + letters(24)},
                             {"content", printed(200 + below(below(8) == 0 ? 40'000 : 4000))}});
            }
            put("assistant", text(prose(100 + below(1500))));
        }
    }

  private:
    static Json text(const std::string& words) { return {{"type", "text"}, {"text", words}}; }

    /// The keys in the order in which the agent writes them, which a sorted object wouldn't keep.
    void put(const std::string& type, const Json& part) {
        const std::string head =
            R"({"parentUuid":")" + uuid() + R"(","isSidechain":false,"userType":"external",)" +
            R"("cwd":"/home/somebody/project","sessionId":"cb2e607c-c758-415a-8b45-c49e4631906a",)" +
            R"("version":"2.0.37","gitBranch":"main","type":")" + type;
        const std::string line = head + R"(","message":{"role":")" + type + R"(","content":[)" +
                                 part.dump() + R"(]},"uuid":")" + uuid() +
                                 R"(","timestamp":"2026-05-01T10:00:00.000Z"})" + "\n";
        file_ << line;
        written_ += line.size();
    }

    std::string prose(std::size_t size) {
        std::string words;
        while (words.size() < size) {
            words += letters(2 + below(9));
            words += below(12) == 0 ? ".\n" : " ";
        }
        return words + "Größe and \"漢字\".";
    }

    std::string printed(std::size_t size) {
        std::string lines;
        while (lines.size() < size) {
            lines += "    " + std::to_string(lines.size()) + "\t" + letters(10 + below(60)) + "\n";
            if (below(20) == 0) lines += "\x1b[31m\"type\": \"x\"\x1b[0m\n";
        }
        return lines;
    }

    std::string letters(std::size_t count) {
        std::string word;
        for (std::size_t i = 0; i < count; ++i) word += static_cast<char>('a' + below(26));
        return word;
    }
    std::string uuid() { return letters(8) + "-" + letters(4) + "-" + letters(4) + letters(18); }
    std::size_t below(std::size_t limit) { return random_() % limit; }

    std::ofstream file_;
    std::size_t written_ = 0;
    std::mt19937 random_{42};
};

/// What anybody would write: the ids of the lines whose type is "assistant", and no more checks.
std::unordered_set<std::string> plainPass(const std::string& path) {
    std::unordered_set<std::string> ids;
    const sonra::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<char> window(windowSize + simdjson::SIMDJSON_PADDING);
    simdjson::ondemand::parser parser;
    std::size_t filled = 0;
    for (;;) {
        const ssize_t count = ::read(fd.get(), window.data() + filled, windowSize - filled);
        if (count <= 0) return ids;
        filled += static_cast<std::size_t>(count);
        std::size_t start = 0;
        for (;;) {
            const auto* feed =
                static_cast<const char*>(std::memchr(window.data() + start, '\n', filled - start));
            if (feed == nullptr) break;
            const auto length = static_cast<std::size_t>(feed - window.data()) - start;
            auto line = parser.iterate(window.data() + start, length, window.size() - start);
            std::string_view type, uuid;
            if (line["type"].get(type) == simdjson::SUCCESS && type == "assistant" &&
                line["uuid"].get(uuid) == simdjson::SUCCESS)
                ids.emplace(uuid);
            start += length + 1;
        }
        std::memmove(window.data(), window.data() + start, filled - start);
        filled -= start;
    }
}

template <typename Work>
double millisecondsOf(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

std::size_t statusKilobytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::size_t value = 0;
        if (word == field + ":" && status >> value) return value;
    }
    return 0;
}

/// How far the process grows beyond what it has while `work` runs.
template <typename Work>
double megabytesGained(Work work) {
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts anew
    const std::size_t before = statusKilobytes("VmRSS");
    work();
    return static_cast<double>(statusKilobytes("VmHWM") - before) / 1024;
}

std::size_t countIds(const std::string& path) {
    const std::atomic<bool> never = false;
    return sonra::MessageCounter::messageIds(path, sonra::HistorySource::claudeCode, never)
        .value()
        .size();
}

std::size_t readLastPage(const std::string& path) {
    sonra::SessionHistory history(path, sonra::HistorySource::claudeCode);
    return history.loadOlder(pageSize).size();
}

}  // namespace

int main() {
    const ScratchFile file;
    Writer(file.path()).writeAll();
    std::size_t ids = 0;
    const double gained = megabytesGained([&] { ids = countIds(file.path()); });
    std::vector<double> counting, plain, paging;
    for (int i = 0; i < rounds; ++i) {
        plain.push_back(millisecondsOf([&] { plainPass(file.path()); }));
        counting.push_back(millisecondsOf([&] { countIds(file.path()); }));
        paging.push_back(millisecondsOf([&] { readLastPage(file.path()); }));
    }
    std::cout << Json({{"messages", ids},
                       {"countMs", median(counting)},
                       {"plainPassMs", median(plain)},
                       {"countToPlain", median(counting) / median(plain)},
                       {"memoryGainedMB", gained},
                       {"pageMessages", readLastPage(file.path())},
                       {"firstPageMs", median(paging)}})
                     .dump()
              << "\n";
    return 0;
}
