#pragma once

#include <string>
#include <utility>
#include <variant>

#include "frame/Json.h"

namespace sonra {

/// One raw record as a reader found it in a transcript, before anybody knows whether it is worth
/// speaking.
///
/// Either the undecoded bytes of a line or file (`jsonl`), without the line's terminator, or an
/// element of a document that the reader had to decode anyway (`jsonObject`). An immutable value,
/// any thread.
class TranscriptRecord {
  public:
    static TranscriptRecord jsonl(std::string bytes) { return TranscriptRecord(std::move(bytes)); }
    static TranscriptRecord jsonObject(Json object) { return TranscriptRecord(std::move(object)); }

    /// The bytes of a `jsonl` record, else null.
    const std::string* asJsonl() const { return std::get_if<std::string>(&payload_); }
    /// The value of a `jsonObject` record, else null.
    const Json* asJsonObject() const { return std::get_if<Json>(&payload_); }

    bool operator==(const TranscriptRecord&) const = default;

  private:
    explicit TranscriptRecord(std::string bytes)
        : payload_(std::in_place_type<std::string>, std::move(bytes)) {}
    explicit TranscriptRecord(Json object)
        : payload_(std::in_place_type<Json>, std::move(object)) {}

    std::variant<std::string, Json> payload_;
};

}  // namespace sonra
