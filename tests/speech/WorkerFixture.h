#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "speech/KokoroWorkerEngine.h"
#include "support/ComesTrue.h"
#include "support/LogWatch.h"
#include "support/TempDir.h"

namespace sonra::test {

inline bool isWav(const std::string& path) {
    return readFile(path).starts_with("RIFF");
}

/// A KokoroWorkerEngine over the worker that misbehaves on order; a request's text is the order.
class WorkerTest : public testing::Test {
  protected:
    /// `start` is what the worker does before it gets ready.
    KokoroWorkerEngine::Options options(const std::string& start = "") const {
        KokoroWorkerEngine::Options result;
        result.scriptOverride = SONRA_SOURCE_DIR "/tests/speech/fake_worker.py";
        result.uvResolver = [] { return SONRA_SOURCE_DIR "/tests/speech/fake_uv"; };
        result.extraEnv = {{"FAKE_LOG", directory / "log"}, {"FAKE_START", start}};
        return result;
    }
    void make(KokoroWorkerEngine::Options with) {
        engine = std::make_unique<KokoroWorkerEngine>(std::move(with));
    }
    bool synth(const std::string& order, const std::string& file = "out.wav") {
        return engine->synthCombinedToFile(order, "af_heart", 1.0, directory / file);
    }
    /// What the worker noted.
    std::string notes() const { return readFile(directory / "log"); }
    bool noted(const std::string& word) const {
        return comesTrue([&] { return notes().find(word + "\n") != std::string::npos; });
    }
    bool logged(const std::string& message, std::size_t times = 1) const {
        return comesTrue([&] { return log.count(message) >= times; });
    }
    Json inputOf(const std::string& message) const {
        return log.records(message).at(0).at("input");
    }

    TempDir directory;
    LogWatch log;
    std::unique_ptr<KokoroWorkerEngine> engine;
};

}  // namespace sonra::test
