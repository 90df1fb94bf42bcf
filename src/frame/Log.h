#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "frame/Json.h"

namespace sonra {

class FileSink;
class SystemLog;

/// Severity of a record; the value is the number that the record carries.
enum class LogLevel { trace = 10, debug = 20, info = 30, warn = 40, error = 50, fatal = 60 };

/// The structured logger: one JSON object a record, on one line, to a rotated file and to the
/// machine's log.
///
/// A value: copies share their sinks, and any thread may log. Secrets and spoken text are removed
/// here, whatever a caller passes. Arguments of an operation go under the key "input", its outcome
/// under "result"; an error goes in as `cause`, and a field of that name is removed. Logging never
/// fails and never waits for a disk.
class Log {
  public:
    struct Options {
        std::string service;
        std::string version;
        std::string env = "prod";
        std::string host;                      ///< empty: this machine's name
        std::shared_ptr<FileSink> fileSink;    ///< may be null
        std::shared_ptr<SystemLog> systemLog;  ///< may be null
        LogLevel level = LogLevel::info;
        Json baseFields = Json::object();
        bool verbose = false;  ///< keeps spoken texts whole
    };

    explicit Log(Options options);

    /// The process's logger: set by `setShared`, else made on first use from the environment, with
    /// the default file.
    static Log shared();
    static void setShared(Log log);
    /// Settings of the shared logger as the environment has them (TTS_LOG_LEVEL, TTS_LOG_VERBOSE,
    /// SONRA_ENV), with the default file, and `systemLog` beside it.
    static Options sharedOptions(std::shared_ptr<SystemLog> systemLog = nullptr);

    /// A logger with the same settings whose records also carry `fields`; new values win.
    [[nodiscard]] Log child(const Json& fields) const;

    void trace(std::string_view message, Json extra = Json::object()) const;
    void debug(std::string_view message, Json extra = Json::object()) const;
    void info(std::string_view message, Json extra = Json::object()) const;
    void warn(std::string_view message, Json extra = Json::object()) const;
    void warn(std::string_view message, const std::exception& cause,
              Json extra = Json::object()) const;
    void error(std::string_view message, Json extra = Json::object()) const;
    void error(std::string_view message, const std::exception& cause,
               Json extra = Json::object()) const;
    void fatal(std::string_view message, Json extra = Json::object()) const;

    /// Waits until everything that was logged before is in the file; not for ever where a disk is
    /// stuck.
    void flush() const;

    /// A ULID: 26 characters, the first ten the present time in milliseconds.
    static std::string newRequestId();
    /// `name`, `message`, `domain` and `code` of an error.
    static Json serializeError(const std::exception& error);
    /// `length`, `sha256_8` and `head40` of a text.
    static Json summarizeText(std::string_view text);

  private:
    struct Settings;
    struct Fields;
    Log(std::shared_ptr<const Settings> settings, std::shared_ptr<const Fields> fields);

    void emit(LogLevel level, std::string_view message, Json extra,
              const std::exception* cause = nullptr) const;

    std::shared_ptr<const Settings> settings_;
    std::shared_ptr<const Fields> fields_;
};

}  // namespace sonra
