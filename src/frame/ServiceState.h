#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "frame/Json.h"
#include "frame/StateLock.h"

namespace sonra {

/// The settings in the document that the service, the companion daemon and the settings windows
/// share: a typed copy, made at one reading. The document holds more (sessions, keys of the
/// daemon), which every writer keeps.
///
/// Any thread. Reading takes no lock and never fails: what is missing or of another type has its
/// default. `update` blocks its thread while another process holds the document's lock.
struct ServiceState {
    std::string voice = "af_heart";
    double speed = 1.5;
    std::string player = "afplay";
    std::int64_t volume = 100;  ///< percent
    bool muted = false;
    bool paused = false;
    bool captions = false;
    bool synthesizing = false;
    std::string lastSpeakError;
    double lastSpeakErrorAt = 0;
    bool duckOnDictation = true;
    bool voiceCommandsEnabled = true;
    bool autoSubmitEnabled = false;

    bool operator==(const ServiceState&) const = default;

    using Mutation = std::function<void(Json& document)>;

    /// The document's path below the user's home.
    static std::string path();
    static ServiceState read();
    static ServiceState read(const std::string& path);
    static ServiceState from(const Json& document);

    /// Reads the document, applies `mutate` to it and replaces it, all under its lock. A document
    /// that isn't a JSON object begins anew from an empty one, its bytes set aside as
    /// `<path>.unreadable` with a warning; a failure to write is dropped. False only if the lock
    /// couldn't be had, which is logged. `mutate` must leave an object and must not call `update`;
    /// what it throws passes through.
    static bool update(const Mutation& mutate,
                       std::chrono::milliseconds timeout = StateLock::defaultTimeout);

    /// The document's new bytes after `mutate`; `bytes` may be anything.
    static std::string rewritten(std::string_view bytes, const Mutation& mutate);
};

}  // namespace sonra
