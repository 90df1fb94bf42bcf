#include "ingest/Utf8Trim.h"

namespace sonra {
namespace {

constexpr std::size_t longestTail = 3;  // continuation bytes of the longest character

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// The length that a character's first byte declares, 0 if no character starts so.
std::size_t declaredLength(char lead) {
    const auto byte = static_cast<unsigned char>(lead);
    if (byte < 0x80) return 1;
    if ((byte & 0xE0U) == 0xC0U) return 2;
    if ((byte & 0xF0U) == 0xE0U) return 3;
    if ((byte & 0xF8U) == 0xF0U) return 4;
    return 0;
}

}  // namespace

std::size_t trimToCompleteUtf8(std::string_view buffer) {
    std::size_t tail = 0;
    while (tail < buffer.size() && isContinuation(buffer[buffer.size() - 1 - tail])) {
        if (++tail > longestTail) return buffer.size();
    }
    if (tail == buffer.size()) return buffer.size();
    const std::size_t lead = buffer.size() - 1 - tail;
    return tail + 1 < declaredLength(buffer[lead]) ? lead : buffer.size();
}

}  // namespace sonra
