#include "HistoryFixture.h"

#include <algorithm>
#include <filesystem>

#include "support/TranscriptLines.h"

namespace sonra::test {
namespace fs = std::filesystem;

AudioChunk HistoryTest::chunk(const std::string& messageId, const std::string& sessionId,
                              std::size_t bytes) {
    const auto path = directory_ / ("speech-" + std::to_string(++files_) + ".wav");
    writeFile(path, std::string(bytes, static_cast<char>('a' + files_ % 26)));
    return {.url = path,
            .text = "text of " + messageId,
            .title = "title",
            .artist = "artist",
            .albumLine = "album",
            .sessionId = sessionId,
            .messageId = messageId,
            .ephemeral = true};
}

std::vector<std::string> HistoryTest::ringNames() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(ringDir())) {
        const auto name = entry.path().filename().string();
        if (!name.starts_with(".discarded-")) names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

std::vector<std::string> HistoryTest::ringFiles() const {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(ringDir()))
        if (!entry.is_directory()) files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

QueueTest::QueueTest(OpenHistoryPages openPages)
    : queue_(loop_, pool_, {.ringDir = ringDir()}, RingCacheProvider::defaultFileSizer,
             std::move(openPages)) {
    queue_.setAudioProbe([this] { return probe_; });
    queue_.setOnStateChange([this](const State& state) { fired_.push_back(state); });
}

std::string QueueTest::writeTranscript(const std::vector<std::string>& ids) {
    std::string lines;
    for (const auto& id : ids) lines += assistantLine(id, "body of " + id);
    auto path = directory_ / "transcript.jsonl";
    writeFile(path, lines);
    return path;
}

void QueueTest::attach(const std::vector<std::string>& ids) {
    queue_.setSession(writeTranscript(ids), HistorySource::claudeCode);
    ASSERT_TRUE(loop_.runUntil([this] { return queue_.stableTotalKnown().has_value(); }));
    const auto ahead = std::min<std::size_t>(ids.size(), MessageHistoryQueue::scrubBudget + 4);
    const auto& farthest = ids[ids.size() - ahead];
    ASSERT_TRUE(loop_.runUntil([&] { return queue_.historyText(farthest).has_value(); }));
}

std::vector<std::string> ids(int count, const std::string& prefix) {
    std::vector<std::string> result;
    for (int i = 0; i < count; ++i) result.push_back(prefix + std::to_string(i));
    return result;
}

std::vector<std::string> messageIds(const std::vector<AudioChunk>& chunks) {
    std::vector<std::string> result;
    for (const auto& chunk : chunks) result.push_back(chunk.messageId);
    return result;
}

std::string resolved(const SkipOutcome& outcome) {
    const auto* resolve = outcome.as<SkipOutcome::Resolve>();
    return resolve ? resolve->ref.messageId : "";
}

}  // namespace sonra::test
