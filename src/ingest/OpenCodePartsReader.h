#pragma once

#include <chrono>
#include <functional>

#include "ingest/OpenCodePartParser.h"
#include "ingest/ShapeReader.h"

namespace sonra {

/// Follows a session of OpenCode whose message files hold no text: it lies in files of its own, in
/// `part/<message>/` beside the directory of all messages.
///
/// A part is spoken by itself once it is complete, which it says or its message does: while the
/// tools of the same message still run. A message's first words have its id, further ones that of
/// their part. Messages that do hold their text are left to the original parser. The cursor is
/// `unixMs`, times of modification; a file is looked at once it has been left alone for a moment,
/// so that none of the same time comes later. Immutable, any thread as far as the clock is, never
/// throws.
class OpenCodePartsReader : public ShapeReader {
  public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    /// More than the file system's clock is behind.
    static constexpr std::chrono::milliseconds moment{20};

    /// So long a message that can't be decoded is waited for, as one that is being rewritten; then
    /// it counts as damaged, and the others go on without it.
    static constexpr std::chrono::seconds patience{10};

    explicit OpenCodePartsReader(Clock clock = std::chrono::system_clock::now)
        : clock_(std::move(clock)) {}

    std::string_view id() const override { return parser_.id(); }
    bool recognises(const std::string& url) const override;
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::unixMs; }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const OpenCodePartParser& parser() const override { return parser_; }

  private:
    const Clock clock_;
    OpenCodePartParser parser_;
};

}  // namespace sonra
