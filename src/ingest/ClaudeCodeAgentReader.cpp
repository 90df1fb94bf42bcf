#include "ingest/ClaudeCodeAgentReader.h"

#include <filesystem>

#include "ingest/LineReading.h"

namespace sonra {

bool ClaudeCodeAgentReader::isAgentFile(const std::string& url) {
    const std::filesystem::path path(url);
    if (path.extension() != ".jsonl") return false;
    return path.filename().native().starts_with("agent-") ||
           path.parent_path().filename() == "subagents";
}

TailOffset ClaudeCodeAgentReader::initialOffset(const std::string& url) const {
    return LineReading::endOf(url);
}

LiveTailReader::Reading ClaudeCodeAgentReader::readSince(const std::string& url,
                                                         TailOffset /*offset*/) const {
    return {{}, LineReading::endOf(url)};
}

}  // namespace sonra
