// What clients send, line by line, carried to the commands: the handlers take their arguments as
// the service's do and work on a real queue of sounds, which plays nothing. Flat or nested, an
// argument has to come out the same.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "control/CommandArguments.h"
#include "control/CommandTable.h"
#include "control/IPCServer.h"
#include "frame/Log.h"
#include "frame/Text.h"
#include "frame/WorkerPool.h"
#include "playback/AudioQueue.h"

namespace {

using namespace sonra;

void require(bool holds) {
    if (!holds) std::abort();
}

/// Keeps no work and no time: timers never fire, and posts, which may come from other threads, are
/// dropped.
class StillLoop : public MainLoop {
  public:
    void post(std::function<void()> /*work*/) override {}
    LoopHandle after(Duration /*delay*/, std::function<void()> /*work*/) override { return {}; }
    LoopHandle every(Duration /*interval*/, std::function<void()> /*work*/) override { return {}; }
    LoopHandle watch(int /*fd*/, Interest /*interest*/, std::function<void()> /*work*/) override {
        return {};
    }
    [[nodiscard]] TimePoint now() const override { return {}; }
};

class SilentPlayer : public FilePlayer {
  public:
    void setVolume(float volume) override { require(volume >= 0 && volume <= 1); }
    bool play() override { return playing_ = true; }
    void pause() override { playing_ = false; }
    void stop() override { playing_ = false; }
    [[nodiscard]] double currentTime() const override { return time_; }
    void setCurrentTime(double seconds) override {
        require(seconds >= 0 && seconds <= duration());
        time_ = seconds;
    }
    [[nodiscard]] double duration() const override { return 7; }
    [[nodiscard]] bool isPlaying() const override { return playing_; }

  private:
    double time_ = 3;
    bool playing_ = false;
};

class SilentPlayers : public FilePlayerFactory {
  public:
    Opened open(const std::string& /*path*/, FinishedCallback /*onFinished*/) override {
        return {std::make_unique<SilentPlayer>(), ""};
    }
};

std::string textOf(const Json& message, std::string_view key) {
    return json::stringAt(message, key).value_or("");
}

/// The commands on a queue, and a record of what the last message did.
class Service {
  public:
    Service() : snapshot_(std::make_shared<NowPlayingSnapshotWriter>("/dev/null/none.json")) {
        addPlayback();
        addArguments();
    }
    /// What the message did: the command's name and its arguments, as they were understood.
    std::string handle(const Json& message) {
        done_.clear();
        commands_.handle(message);
        checkQueue();
        checkChoice(message);
        return done_;
    }

  private:
    void add(const std::string& name, const std::function<std::string(const Json&)>& work) {
        commands_.add(name, [this, name, work](const Json& message) {
            require(done_.empty() && json::stringAt(message, "cmd") == name);
            done_ = name + ' ' + work(message);
        });
    }
    void add(const std::string& name, const std::function<void()>& work) {
        add(name, [work](const Json&) {
            work();
            return std::string();
        });
    }
    void addPlayback() {
        add("clear", [this] { queue_.clear(); });
        add("stop", [this] { queue_.clear(); });
        add("pause", [this] { queue_.setPaused(true); });
        add("resume", [this] { queue_.setPaused(false); });
        add("toggle", [this] { queue_.setPaused(!queue_.paused()); });
        add("skip", [this] { queue_.skip(); });
        add("restart", [this] { queue_.restartCurrent(); });
    }
    void addArguments() {
        add("play", [this](const Json& message) { return play(message); });
        add("volume", [this](const Json& message) { return setVolume(message); });
        add("scrub", [](const Json& message) {
            return std::to_string(CommandArguments::scrubIndex(message));
        });
        add("highlight", [this](const Json& message) {
            const auto progress = json::doubleAt(message, "progress");
            if (progress) queue_.seek(*progress);
            return progress ? std::to_string(*progress) : "";
        });
        add("set", [](const Json& message) { return textOf(message, "text"); });
        add("attach", [](const Json& message) {
            const bool resumes = json::boolAt(message, "resume").value_or(false);
            const auto request = CommandArguments::attachRequest(message);
            for (const auto* text : {&request.id, &request.cwd, &request.transcript,
                                     &request.source, &request.branch, &request.title})
                require(text::isUtf8(*text));
            return request.id + request.cwd + (resumes ? "again" : "");
        });
        add("detach", [](const Json& message) { return textOf(message, "id"); });
    }
    std::string play(const Json& message) {
        const auto before = held();
        auto chunk = CommandArguments::playedChunk(message);
        if (!chunk) return "";
        require(chunk->ephemeral);
        const auto wav = chunk->url;
        // The paths that arrive here are the fuzzer's: nothing is opened by them, nothing removed.
        chunk->url = "/dev/null/none.wav";
        for (const auto* text : {&chunk->text, &chunk->title, &chunk->artist, &chunk->messageId})
            require(text::isUtf8(*text));
        if (before < mostHeld) {
            queue_.enqueue(*chunk);
            require(held() == before + 1);
        }
        return wav + chunk->text + chunk->title + chunk->artist + chunk->albumLine;
    }
    std::string setVolume(const Json& message) {
        const auto value = json::intAt(message, "value");
        if (!value) return "";
        const auto percent = std::clamp<std::int64_t>(*value, 0, 100);
        queue_.setVolume(static_cast<float>(percent) / 100.0F);
        return std::to_string(percent);
    }

    [[nodiscard]] std::size_t held() const {
        return queue_.queuedCount() + (queue_.current() != nullptr ? 1 : 0);
    }
    void checkQueue() const {
        require((queue_.current() != nullptr) == queue_.currentChunk().has_value());
        require(!queue_.paused() || !queue_.isCurrentlyPlaying());
        require(queue_.paused() || queue_.queuedCount() == 0 || queue_.isCurrentlyPlaying());
        require(queue_.volume() >= 0 && queue_.volume() <= 1);
    }
    /// Something was done exactly where the message names a command in so many words.
    void checkChoice(const Json& message) const {
        const auto name = json::stringAt(message, "cmd");
        if (!done_.empty()) require(name && done_.starts_with(*name + ' '));
        if (name == "skip" || name == "volume") require(!done_.empty());
    }

    static constexpr std::size_t mostHeld = 64;

    StillLoop loop_;
    SilentPlayers players_;
    WorkerPool pool_;
    std::shared_ptr<NowPlayingSnapshotWriter> snapshot_;
    AudioQueue queue_{loop_, players_, pool_, nullptr, snapshot_};
    CommandTable commands_;
    std::string done_;
};

bool isEnvelope(const std::string& key) {
    return key == "cmd" || key == "proto" || key == "requestId" || key == "args" || key == "target";
}

/// The same message with its arguments below `key`.
Json nested(const Json& message, const char* key) {
    Json result = Json::object();
    result[key] = Json::object();
    for (const auto& [name, value] : message.items())
        (isEnvelope(name) ? result : result[key])[name] = value;
    return result;
}

bool holds(const Json& message, const char* outer, const char* inner) {
    const auto* entries = json::find(message, outer);
    return entries != nullptr && entries->is_object() && entries->contains(inner);
}

/// Arguments at the top level win, and being lifted there once is enough, unless that made a new
/// envelope of an argument.
void checkForms(const Json& message) {
    if (!holds(message, "args", "target") && !holds(message, "target", "args"))
        require(IPCServer::normalize(message) == message);
    if (message.contains("args") || message.contains("target")) return;
    for (const auto* key : {"args", "target"}) {
        auto lifted = IPCServer::normalize(nested(message, key));
        lifted.erase(key);
        require(lifted == message);
    }
}

void silenceLog() {
    static const bool done = [] {
        Log::Options options;
        options.service = "fuzz";
        options.level = LogLevel::fatal;
        Log::setShared(Log(std::move(options)));
        return true;
    }();
    static_cast<void>(done);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silenceLog();
    std::string_view stream(reinterpret_cast<const char*>(data), size);
    StillLoop loop;
    Service service;
    IPCServer server(loop, "");
    server.onCommand = [&](const Json& message) {
        checkForms(message);
        service.handle(message);
    };
    while (!stream.empty()) {
        const auto end = std::min(stream.find('\n'), stream.size());
        server.handleLine(stream.substr(0, end), 0);
        stream.remove_prefix(std::min(end + 1, stream.size()));
    }
    return 0;
}
