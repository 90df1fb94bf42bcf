#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame/Json.h"
#include "frame/WorkerPool.h"
#include "playback/AudioQueue.h"
#include "support/FakeNowPlayingCenter.h"
#include "support/FakePlayer.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra::test {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;

/// An audio queue on fakes, whose callbacks are written down in order. Progress and spectrum, which
/// come with every tick, are kept apart. Chunks last 2 s.
class AudioQueueFixture : public testing::Test {
  protected:
    AudioQueueFixture() { queue_.setCallbacks(recording()); }
    ~AudioQueueFixture() override { pool_.drain(); }

    AudioQueue::Callbacks recording() {
        AudioQueue::Callbacks callbacks;
        callbacks.onChunkStart = [this](const AudioChunk& chunk, int index, int total) {
            events_.push_back("start " + chunk.text + " " + std::to_string(index) + "/" +
                              std::to_string(total));
        };
        callbacks.onChunkEnd = [this] { events_.emplace_back("end"); };
        callbacks.onProgress = [this](double elapsed, double duration) {
            progress_.emplace_back(elapsed, duration);
        };
        callbacks.onIdle = [this] { events_.emplace_back("idle"); };
        callbacks.onSpectrum = [this](const AudioQueue::Bands& levels,
                                      const AudioQueue::Bands& peaks) {
            levels_.push_back(levels);
            peaks_ = peaks;
        };
        callbacks.onPaused = [this](std::size_t queued) {
            events_.push_back("paused " + std::to_string(queued));
        };
        callbacks.onResumed = [this] { events_.emplace_back("resumed"); };
        return callbacks;
    }

    std::string path(const std::string& name) const { return dir_ / (name + ".wav"); }
    /// A chunk whose text is its file's name; the file isn't made.
    AudioChunk chunk(const std::string& name, const std::string& session = "s1") const {
        return {path(name), name, "Claude", "sonra", "album", session, "m-" + name, false};
    }
    /// A chunk whose file exists and belongs to the queue.
    AudioChunk ephemeral(const std::string& name) const {
        auto made = chunk(name);
        made.ephemeral = true;
        writeFile(made.url, "sound");
        return made;
    }
    std::vector<AudioChunk> chunks(const std::vector<std::string>& names) const {
        std::vector<AudioChunk> made;
        made.reserve(names.size());
        for (const auto& name : names) made.push_back(chunk(name));
        return made;
    }
    bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }

    Json snapshot() const { return json::parseObject(readFile(snapshotPath_)).value_or(Json()); }
    Calls takeEvents() { return std::exchange(events_, {}); }
    /// The loaded chunk's text; empty if there is none.
    std::string loaded() const { return queue_.currentChunk() ? queue_.currentChunk()->text : ""; }

    TempDir dir_;
    const std::string snapshotPath_ = dir_ / "now-playing.json";
    ManualLoop loop_;
    FakePlayerFactory players_{loop_};
    FakeNowPlayingCenter center_;
    WorkerPool pool_{1};
    Calls events_;
    std::vector<std::pair<double, double>> progress_;
    std::vector<AudioQueue::Bands> levels_;
    AudioQueue::Bands peaks_;
    const std::shared_ptr<NowPlayingSnapshotWriter> writer_ =
        std::make_shared<NowPlayingSnapshotWriter>(snapshotPath_);
    AudioQueue queue_{loop_, players_, pool_, &center_, writer_};
};

}  // namespace sonra::test
