#include <benchmark/benchmark.h>

#include <string>

#include "ingest/TextCleaner.h"

namespace {

/// A reply as agents write them, over and over until there is a megabyte of it.
std::string markdown() {
    const std::string reply =
        "## What changed\n"
        "I moved the **parser** into `src/ingest` and *renamed* two functions. See the "
        "[notes](docs/notes.md) and https://example.org/a?b=c for more.\n\n\n\n"
        "- `TextCleaner` now handles images: ![diagram](a.png)\n"
        "* All 214 tests pass, including the ones that were flaky before.\n"
        "+ Nothing else is touched.\n"
        "```cpp\nint main() {\n    return run(\"x\"); // done\n}\n```\n"
        "The rest is plain prose that goes on for a while, as replies do, without any mark at all: "
        "it "
        "only has to be looked at once. Größe, naïve, 漢字 and an emoji 🎉 are in it too.\n";
    std::string text;
    while (text.size() < 1'000'000) text += reply;
    return text;
}

void cleanOneMegabyte(benchmark::State& state) {
    const auto text = markdown();
    for (auto _ : state) benchmark::DoNotOptimize(sonra::TextCleaner::cleanForSpeech(text));
}
BENCHMARK(cleanOneMegabyte)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
