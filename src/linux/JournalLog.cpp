#include "linux/JournalLog.h"

#include <syslog.h>
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace sonra {
namespace {

constexpr auto journalSocket = "/run/systemd/journal/socket";
constexpr auto flushLimit = std::chrono::milliseconds(200);
constexpr char categoryEnd = '\x1f';

int priorityOf(SystemLog::Severity severity) {
    switch (severity) {
        case SystemLog::Severity::debug:
            return LOG_DEBUG;
        case SystemLog::Severity::info:
            return LOG_INFO;
        case SystemLog::Severity::notice:
            return LOG_NOTICE;
        case SystemLog::Severity::error:
            return LOG_ERR;
        case SystemLog::Severity::fault:
            break;
    }
    return LOG_CRIT;
}

iovec fieldOf(const std::string& text) {
    return {const_cast<char*>(text.data()), text.size()};
}

void sendEntry(const JournalLog::Send& send, int priority, std::string_view category,
               std::string_view message) {
    const std::array<std::string, 5> texts{"MESSAGE=" + std::string(message),
                                           "PRIORITY=" + std::to_string(priority),
                                           "SYSLOG_IDENTIFIER=sonra", "SONRA_SUBSYSTEM=dev.sonra",
                                           "SONRA_CATEGORY=" + std::string(category)};
    std::array<iovec, texts.size()> fields{};
    for (std::size_t i = 0; i < texts.size(); ++i) fields[i] = fieldOf(texts[i]);
    const auto count = category.empty() ? fields.size() - 1 : fields.size();
    send(fields.data(), static_cast<int>(count));
}

/// `batch`: for each entry its priority's digit, its category, a separator and its message, on a
/// line.
void sendBatch(const JournalLog::Send& send, std::string_view batch, std::size_t dropped) {
    while (!batch.empty()) {
        const auto entry = batch.substr(0, batch.find('\n'));
        const auto end = entry.find(categoryEnd);
        sendEntry(send, entry[0] - '0', entry.substr(1, end - 1), entry.substr(end + 1));
        batch.remove_prefix(entry.size() + 1);
    }
    if (dropped > 0)
        sendEntry(send, LOG_NOTICE, "", std::to_string(dropped) + " log records dropped");
}

}  // namespace

JournalLog::JournalLog() : JournalLog(journalSocket, sd_journal_sendv) {}

JournalLog::JournalLog(const std::string& socketPath, Send send) {
    if (::access(socketPath.c_str(), W_OK) != 0) return;
    batcher_.emplace("sonra.journal",
                     [send = std::move(send)](std::string_view batch, std::size_t dropped) {
                         sendBatch(send, batch, dropped);
                     });
}

void JournalLog::write(Severity severity, std::string_view category, std::string_view line) {
    if (!batcher_) return;
    std::string entry{static_cast<char>('0' + priorityOf(severity))};
    entry.append(category).append(1, categoryEnd).append(line);
    std::replace(entry.begin(), entry.end(), '\n', ' ');
    batcher_->add(entry);
}

void JournalLog::flush() {
    if (batcher_) batcher_->flush(flushLimit);
}

}  // namespace sonra
