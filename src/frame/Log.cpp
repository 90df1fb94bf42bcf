#include "frame/Log.h"

#include <cxxabi.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <system_error>

#include "frame/FileSink.h"
#include "frame/Home.h"
#include "frame/LogJson.h"
#include "frame/LogRecord.h"
#include "frame/Mutex.h"
#include "platform/SystemLog.h"

namespace sonra {
namespace {

constexpr std::string_view crockfordAlphabet = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
constexpr int ulidTimeCharacters = 10;
constexpr int ulidRandomCharacters = 16;

std::string hostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

LogLevel levelFromLabel(const std::string& label) {
    static constexpr std::pair<std::string_view, LogLevel> labels[] = {
        {"trace", LogLevel::trace}, {"debug", LogLevel::debug}, {"info", LogLevel::info},
        {"warn", LogLevel::warn},   {"error", LogLevel::error}, {"fatal", LogLevel::fatal}};
    for (const auto& [name, level] : labels)
        if (name == label) return level;
    return LogLevel::info;
}

SystemLog::Severity severityOf(LogLevel level) {
    switch (level) {
        case LogLevel::trace:
        case LogLevel::debug:
            return SystemLog::Severity::debug;
        case LogLevel::info:
            return SystemLog::Severity::info;
        case LogLevel::warn:
            return SystemLog::Severity::notice;
        case LogLevel::error:
            return SystemLog::Severity::error;
        case LogLevel::fatal:
            break;
    }
    return SystemLog::Severity::fault;
}

std::string readableType(const std::exception& error) {
    const char* mangled = typeid(error).name();
    const std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(mangled, nullptr, nullptr, nullptr), std::free);
    return name == nullptr ? mangled : name.get();
}

std::string withoutScope(const std::string& type) {
    const auto scope = type.rfind("::", type.find('<'));
    return scope == std::string::npos ? type : type.substr(scope + 2);
}

struct SharedSlot {
    Mutex mutex;
    std::optional<Log> log SONRA_GUARDED_BY(mutex);
};

/// Never destroyed: threads may log until the process is gone.
SharedSlot& sharedSlot() {
    static auto& slot = *new SharedSlot;
    return slot;
}

}  // namespace

/// What all children of one logger share.
struct Log::Settings {
    std::shared_ptr<FileSink> fileSink;
    std::shared_ptr<SystemLog> systemLog;
    LogLevel level;
};

/// What every record of this logger carries, and the part of the program that it speaks for.
struct Log::Fields {
    LogRecord record;
    std::string category;

    void merge(const Json& fields) {
        record.merge(fields);
        auto name = json::stringAt(fields, "class");
        if (!name) name = json::stringAt(fields, "module");
        if (name) category = std::move(*name);
    }
};

Log::Log(Options options)
    : settings_(std::make_shared<Settings>(
          Settings{std::move(options.fileSink), std::move(options.systemLog), options.level})) {
    if (options.host.empty()) options.host = hostName();
    Fields fields{LogRecord({std::move(options.service), std::move(options.version),
                             std::move(options.env), std::move(options.host)},
                            options.verbose),
                  ""};
    fields.merge(options.baseFields);
    fields_ = std::make_shared<Fields>(std::move(fields));
}

Log::Log(std::shared_ptr<const Settings> settings, std::shared_ptr<const Fields> fields)
    : settings_(std::move(settings)), fields_(std::move(fields)) {}

Log Log::shared() {
    auto& slot = sharedSlot();
    const MutexLock lock(slot.mutex);
    if (!slot.log) slot.log.emplace(sharedOptions());
    return *slot.log;
}

void Log::setShared(Log log) {
    auto& slot = sharedSlot();
    const MutexLock lock(slot.mutex);
    slot.log = std::move(log);
}

Log::Options Log::sharedOptions(std::shared_ptr<SystemLog> systemLog) {
    Options options;
    options.service = "sonra-mac";
    options.version = SONRA_VERSION;
    if (auto env = environmentValue("SONRA_ENV"); !env.empty()) options.env = std::move(env);
    options.fileSink = FileSink::defaultMacSink();
    options.systemLog = std::move(systemLog);
    options.level = levelFromLabel(environmentValue("TTS_LOG_LEVEL"));
    options.verbose = environmentValue("TTS_LOG_VERBOSE") == "1";
    return options;
}

Log Log::child(const Json& fields) const {
    auto merged = std::make_shared<Fields>(*fields_);
    merged->merge(fields);
    return {settings_, std::move(merged)};
}

void Log::trace(std::string_view message, Json extra) const {
    emit(LogLevel::trace, message, std::move(extra));
}
void Log::debug(std::string_view message, Json extra) const {
    emit(LogLevel::debug, message, std::move(extra));
}
void Log::info(std::string_view message, Json extra) const {
    emit(LogLevel::info, message, std::move(extra));
}
void Log::warn(std::string_view message, Json extra) const {
    emit(LogLevel::warn, message, std::move(extra));
}
void Log::warn(std::string_view message, const std::exception& cause, Json extra) const {
    emit(LogLevel::warn, message, std::move(extra), &cause);
}
void Log::error(std::string_view message, Json extra) const {
    emit(LogLevel::error, message, std::move(extra));
}
void Log::error(std::string_view message, const std::exception& cause, Json extra) const {
    emit(LogLevel::error, message, std::move(extra), &cause);
}
void Log::fatal(std::string_view message, Json extra) const {
    emit(LogLevel::fatal, message, std::move(extra));
}

void Log::emit(LogLevel level, std::string_view message, Json extra,
               const std::exception* cause) const {
    if (level < settings_->level) return;
    if (!extra.is_object()) extra = Json::object();
    extra.erase("cause");
    if (cause != nullptr) extra["cause"] = serializeError(*cause);
    const auto line = fields_->record.line(static_cast<int>(level), message, extra);
    if (settings_->systemLog)
        settings_->systemLog->write(severityOf(level), fields_->category, line);
    if (settings_->fileSink) settings_->fileSink->write(line);
}

void Log::flush() const {
    if (settings_->systemLog) settings_->systemLog->flush();
    if (settings_->fileSink) settings_->fileSink->flush();
}

std::string Log::newRequestId() {
    std::array<char, ulidTimeCharacters + ulidRandomCharacters> id{};
    arc4random_buf(id.data(), id.size());
    auto now = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                              std::chrono::system_clock::now().time_since_epoch())
                                              .count());
    for (int i = ulidTimeCharacters - 1; i >= 0; --i, now >>= 5)
        id[static_cast<std::size_t>(i)] = static_cast<char>(now & 31);
    for (char& c : id) c = crockfordAlphabet[static_cast<unsigned char>(c) & 31];
    return {id.data(), id.size()};
}

Json Log::serializeError(const std::exception& error) {
    const std::string type = readableType(error);
    Json result = {
        {"name", withoutScope(type)}, {"message", error.what()}, {"domain", type}, {"code", 0}};
    if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
        result["domain"] = system->code().category().name();
        result["code"] = system->code().value();
    }
    return result;
}

Json Log::summarizeText(std::string_view text) {
    return logjson::summarizeText(text);
}

}  // namespace sonra
