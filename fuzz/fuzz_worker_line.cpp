#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "speech/WorkerLineReader.h"
#include "speech/WorkerMessage.h"

namespace {

constexpr std::size_t maxLine = 96;

void check(bool holds) {
    if (!holds) std::abort();
}

/// The messages of a worker whose output arrives in reads of `step` bytes.
std::vector<sonra::WorkerMessage> messages(std::string_view output, std::size_t step) {
    std::vector<sonra::WorkerMessage> found;
    sonra::WorkerLineReader reader(maxLine);
    for (std::size_t at = 0; at < output.size(); at += step) {
        reader.append(output.substr(at, step), [&](std::string_view line) {
            check(line.size() <= maxLine && line.find('\n') == std::string_view::npos);
            if (auto message = sonra::WorkerMessage::parse(line))
                found.push_back(std::move(*message));
        });
        check(reader.pending() <= maxLine);
    }
    return found;
}

}  // namespace

/// The first byte is the size of the reads, the rest what the speech worker writes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view output(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto whole = messages(output, size);
    check(messages(output, data[0] % 64 + 1U) == whole);
    for (const auto& message : whole) {
        check(!message.pid || *message.pid >= 1);
        if (message.type == sonra::WorkerMessage::Type::ready) check(!message.ok && !message.id);
    }
    return 0;
}
