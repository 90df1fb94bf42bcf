#include "ingest/ClaudeCodeReader.h"

#include "ingest/LineReading.h"

namespace sonra {

TailOffset ClaudeCodeReader::initialOffset(const std::string& url) const {
    return LineReading::endOf(url);
}

LiveTailReader::Reading ClaudeCodeReader::readSince(const std::string& url,
                                                    TailOffset offset) const {
    return LineReading::since(url, offset);
}

}  // namespace sonra
