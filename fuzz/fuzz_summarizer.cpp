#include <cstdint>
#include <string>

#include "MemoryFile.h"
#include "frame/Text.h"
#include "search/IndexFile.h"
#include "search/Summarizer.h"

namespace {

using namespace sonra;
using fuzz::MemoryFile;
using fuzz::require;

constexpr std::size_t maxCharacters = 200;

void checkText(const std::string& text) {
    require(text::isUtf8(text));
    require(text::characterCount(text) <= maxCharacters);
    require(text.find('\n') == std::string::npos);
}

/// What was made of a transcript outlives the program.
void checkCache(const SessionRecord& record) {
    IndexFile file;
    file.sessions = {record};
    std::string error;
    require(IndexFile::decoded(file.encoded(), error) == file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    const std::string content(reinterpret_cast<const char*>(data), size);
    file.write(content);
    const auto record = Summarizer::summarize(file.path());
    require(record.has_value());
    require(record->size == static_cast<std::int64_t>(size));
    require(record->msgCount >= 0);
    checkText(record->firstUserPrompt);
    checkText(record->lastSnippet);
    checkCache(*record);
    // The cache itself may hold anything.
    std::string error;
    if (const auto index = IndexFile::decoded(content, error))
        require(IndexFile::decoded(index->encoded(), error) == index);
    return 0;
}
