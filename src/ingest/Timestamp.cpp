#include "ingest/Timestamp.h"

#include <optional>
#include <string_view>

namespace sonra {
namespace {

constexpr std::size_t longestFraction = 9;

/// Reads a date-time piece by piece; after the first piece that doesn't fit, everything fails.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    bool atEnd() const { return ok_ && rest_.empty(); }
    bool failed() const { return !ok_; }
    bool startsWith(char c) const { return ok_ && rest_.starts_with(c); }

    bool skip(char c) {
        if (!startsWith(c)) return false;
        rest_.remove_prefix(1);
        return true;
    }
    void expect(char c) { ok_ = skip(c); }

    int digits(std::size_t count) {
        int value = 0;
        for (std::size_t i = 0; i < count; ++i) value = value * 10 + digit();
        return value;
    }

    /// The digits of a fraction of a second, in microseconds; further ones are cut off.
    std::chrono::microseconds fraction() {
        std::int64_t value = 0;
        std::size_t count = 0;
        for (; ok_ && !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9'; ++count) {
            const int next = digit();
            if (count < 6) value = value * 10 + next;
        }
        if (count == 0 || count > longestFraction) ok_ = false;
        for (std::size_t i = count; i < 6; ++i) value *= 10;
        return std::chrono::microseconds(value);
    }

  private:
    int digit() {
        ok_ = ok_ && !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9';
        if (!ok_) return 0;
        const int value = rest_.front() - '0';
        rest_.remove_prefix(1);
        return value;
    }

    std::string_view rest_;
    bool ok_ = true;
};

std::optional<std::chrono::sys_days> readDate(Scanner& scanner) {
    const int year = scanner.digits(4);
    scanner.expect('-');
    const int month = scanner.digits(2);
    scanner.expect('-');
    const int day = scanner.digits(2);
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (scanner.failed() || !date.ok()) return std::nullopt;
    return std::chrono::sys_days(date);
}

std::optional<std::chrono::microseconds> readTime(Scanner& scanner) {
    const int hour = scanner.digits(2);
    scanner.expect(':');
    const int minute = scanner.digits(2);
    scanner.expect(':');
    const int second = scanner.digits(2);
    std::chrono::microseconds fraction{0};
    if (scanner.skip('.')) fraction = scanner.fraction();
    if (scanner.failed() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    return std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second) +
           fraction;
}

std::optional<std::chrono::minutes> readOffset(Scanner& scanner) {
    if (scanner.skip('Z')) return std::chrono::minutes(0);
    const bool isWest = scanner.skip('-');
    if (!isWest) scanner.expect('+');
    const int hours = scanner.digits(2);
    scanner.skip(':');
    const int minutes = scanner.digits(2);
    if (scanner.failed() || hours > 23 || minutes > 59) return std::nullopt;
    const auto offset = std::chrono::hours(hours) + std::chrono::minutes(minutes);
    return isWest ? -offset : offset;
}

std::optional<Timestamp> readDateTime(std::string_view text) {
    Scanner scanner(text);
    const auto date = readDate(scanner);
    scanner.expect('T');
    const auto time = date ? readTime(scanner) : std::nullopt;
    const auto offset = time ? readOffset(scanner) : std::nullopt;
    if (!offset || !scanner.atEnd()) return std::nullopt;
    return Timestamp(*date) + *time - *offset;
}

}  // namespace

Timestamp parseTimestamp(const Json* value) {
    if (value == nullptr || !value->is_string()) return {};
    return readDateTime(value->get_ref<const std::string&>()).value_or(Timestamp{});
}

}  // namespace sonra
