#pragma once

#include <sys/uio.h>

#include <functional>
#include <optional>
#include <string>

#include "frame/LineBatcher.h"
#include "platform/SystemLog.h"

namespace sonra {

/// The systemd journal. Where there is none (no socket at construction), records are skipped in
/// silence.
///
/// `write` copies the record and returns: sending happens on a queue of its own, because a busy
/// journal makes its clients wait. While it is stuck, records beyond a bound are dropped, and a
/// notice tells how many.
class JournalLog : public SystemLog {
  public:
    /// Sends one entry, as sd_journal_sendv does.
    using Send = std::function<int(const iovec* fields, int count)>;

    JournalLog();
    JournalLog(const std::string& socketPath, Send send);

    /// True if there is a journal to write to.
    [[nodiscard]] bool isAvailable() const { return batcher_.has_value(); }

    void write(Severity severity, std::string_view category, std::string_view line) override;
    void flush() override;

  private:
    std::optional<LineBatcher> batcher_;
};

}  // namespace sonra
