#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "MemoryFile.h"
#include "frame/Text.h"
#include "ingest/OpenCodeDatabaseReader.h"
#include "ingest/OpenCodePartsReader.h"
#include "ingest/OpenCodeReader.h"

namespace {

using namespace sonra;
using fuzz::require;
namespace fs = std::filesystem;

/// A home for one session's files; the process's own.
const std::string& home() {
    // Never destroyed: what removes it runs after the destructors.
    static const auto* const dir = [] {
        std::string name = (fs::temp_directory_path() / "sonra-fuzz-XXXXXX").string();
        require(::mkdtemp(name.data()) != nullptr);
        fs::create_directories(name + "/storage/message/ses");
        fs::create_directories(name + "/storage/part/msg");
        std::atexit([] { fs::remove_all(home()); });
        return new std::string(name);
    }();
    return *dir;
}

void write(const std::string& name, std::string_view content) {
    std::FILE* file = std::fopen((home() + name).c_str(), "wb");
    require(file != nullptr);
    require(std::fwrite(content.data(), 1, content.size(), file) == content.size());
    std::fclose(file);
}

void check(const std::optional<HistoryMessage>& message) {
    if (!message) return;
    require(!message->text.empty() && text::trimmed(message->text) == message->text);
}

/// A second read finds nothing.
void follow(const LiveTailReader& reader, const std::string& url) {
    const auto reading = reader.readSince(url, TailOffset::unixMs(0));
    require(reading.newOffset.intValue() >= 0);
    for (const auto& record : reading.records) check(reader.parser().parse(record));
    const auto again = reader.readSince(url, reading.newOffset);
    require(again.records.empty() && again.newOffset == reading.newOffset);
}

void readFiles(std::string_view message, std::string_view part) {
    write("/storage/message/ses/msg.json", message);
    write("/storage/part/msg/prt.json", part);
    const std::string session = home() + "/storage/message/ses";
    follow(OpenCodeReader(), session);
    // By this clock no file is of this moment.
    const OpenCodePartsReader parts([] { return std::chrono::system_clock::time_point{}; });
    require(parts.recognises(session));
    follow(parts, session);
}

void readStore(std::string_view bytes) {
    write("/store.db", bytes);
    const std::string url = home() + "/store.db#ses";
    const OpenCodeDatabaseReader reader;
    reader.initialOffset(url);
    follow(reader, url);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    check(OpenCodeParser().parse(TranscriptRecord::jsonl(std::string(input))));
    if (input.starts_with("SQLite")) {
        readStore(input);
    } else {
        const auto cut = std::min(input.find('\n'), size);
        readFiles(input.substr(0, cut), input.substr(std::min(cut + 1, size)));
    }
    return 0;
}
