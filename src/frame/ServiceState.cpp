#include "frame/ServiceState.h"

#include <unistd.h>

#include <optional>

#include "frame/AtomicFile.h"
#include "frame/Home.h"
#include "frame/Log.h"

namespace sonra {
namespace {

void take(std::string& field, const Json& document, std::string_view key) {
    if (auto value = json::stringAt(document, key)) field = std::move(*value);
}
void take(bool& field, const Json& document, std::string_view key) {
    field = json::boolAt(document, key).value_or(field);
}
void take(double& field, const Json& document, std::string_view key) {
    field = json::doubleAt(document, key).value_or(field);
}
void take(std::int64_t& field, const Json& document, std::string_view key) {
    field = json::intAt(document, key).value_or(field);
}

/// A document that nobody can read is about to be begun anew; what it held may still be of use.
void setAsideIfUnreadable(const std::string& path, const std::optional<std::string>& bytes) {
    if (!bytes || bytes->empty() || json::parseObject(*bytes)) return;
    const std::string copy = path + ".unreadable";
    const bool kept = AtomicFile::write(copy, *bytes);
    Log::shared()
        .child({{"class", "ServiceState"}, {"method", "update"}})
        .warn("state document is no JSON object; beginning anew",
              {{"result", {{"copy", kept ? copy : ""}, {"bytes", bytes->size()}}}});
}

void rewrite(const std::string& path, const ServiceState::Mutation& mutate) {
    const auto bytes = AtomicFile::read(path);
    setAsideIfUnreadable(path, bytes);
    // A document that is there and can't be read now would lose every key if it were replaced.
    const bool isUnreadable = !bytes && ::access(path.c_str(), F_OK) == 0;
    const auto replacement = ServiceState::rewritten(bytes.value_or(std::string()), mutate);
    if (!isUnreadable) AtomicFile::write(path, replacement);
}

void warnOfTimeout(const std::string& path, std::chrono::milliseconds timeout,
                   const StateLockError& cause) {
    Log::shared()
        .child({{"class", "ServiceState"}, {"method", "update"}})
        .warn("state-lock timeout; skipping write", cause,
              {{"input", {{"path", path}, {"timeoutMs", timeout.count()}}}});
}

}  // namespace

std::string ServiceState::path() {
    return sharedDirectory() + "/state.json";
}

ServiceState ServiceState::read() {
    return read(path());
}

ServiceState ServiceState::read(const std::string& path) {
    const auto bytes = AtomicFile::read(path);
    const auto document = bytes ? json::parseObject(*bytes) : std::nullopt;
    return document ? from(*document) : ServiceState();
}

ServiceState ServiceState::from(const Json& document) {
    ServiceState state;
    take(state.voice, document, "voice");
    take(state.speed, document, "speed");
    take(state.player, document, "player");
    take(state.volume, document, "volume");
    take(state.muted, document, "muted");
    take(state.paused, document, "paused");
    take(state.captions, document, "captions");
    take(state.synthesizing, document, "synthesizing");
    take(state.lastSpeakError, document, "lastSpeakError");
    take(state.lastSpeakErrorAt, document, "lastSpeakErrorAt");
    take(state.duckOnDictation, document, "duckOnDictation");
    take(state.voiceCommandsEnabled, document, "voiceCommandsEnabled");
    take(state.autoSubmitEnabled, document, "autoSubmitEnabled");
    return state;
}

bool ServiceState::update(const Mutation& mutate, std::chrono::milliseconds timeout) {
    const std::string document = path();
    try {
        StateLock::withLock(document, timeout, [&] { rewrite(document, mutate); });
    } catch (const StateLockError& timedOut) {
        if (timedOut.lockPath() != StateLock::lockPath(document)) throw;
        warnOfTimeout(document, timeout, timedOut);
        return false;
    }
    return true;
}

std::string ServiceState::rewritten(std::string_view bytes, const Mutation& mutate) {
    Json document = json::parseObject(bytes).value_or(Json::object());
    mutate(document);
    return json::dumpPretty(document);
}

}  // namespace sonra
