#include "ingest/ClaudeCodeAgentReader.h"

#include "ingest/LineReading.h"

namespace sonra {

TailOffset ClaudeCodeAgentReader::initialOffset(const std::string& url) const {
    return LineReading::endOf(url);
}

LiveTailReader::Reading ClaudeCodeAgentReader::readSince(const std::string& url,
                                                         TailOffset /*offset*/) const {
    return {{}, LineReading::endOf(url)};
}

}  // namespace sonra
