#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frame/Json.h"

namespace sonra {

/// The fields that every record of one logger carries, kept as finished text in the order in which
/// they are written, so that a record costs little more than its own fields.
///
/// Redaction happens here and nowhere else: no value leaves this class unredacted. The seven fixed
/// keys (`time`, `level`, `service`, `version`, `env`, `host`, `msg`) can't be overridden by
/// fields. A value, immutable once built.
class LogRecord {
  public:
    struct Identity {
        std::string service;
        std::string version;
        std::string env;
        std::string host;
    };

    /// `verbose` keeps spoken texts whole.
    LogRecord(Identity identity, bool verbose);

    /// Adds fields, replacing those of the same name. What isn't an object has no fields; `cause`
    /// belongs to a single record and isn't taken.
    void merge(const Json& fields);

    /// The record on one line; `extra` wins over the merged fields. What can't be written as JSON
    /// gives the fixed text "log encode failed" in place of the record.
    [[nodiscard]] std::string line(int level, std::string_view message, const Json& extra) const;

  private:
    enum class Kind { field, fixed, time, level, message };
    struct Entry {
        std::string key;
        std::string text;  ///< "key": with the value behind it, where that is known; empty if it
                           ///< can't be written
        Kind kind;
    };
    class Writer;

    void put(std::string_view key, std::string text, Kind kind);

    std::string service_;
    bool verbose_;
    std::vector<Entry> entries_;  ///< sorted by key
    std::size_t length_ = 0;      ///< of all texts
};

}  // namespace sonra
