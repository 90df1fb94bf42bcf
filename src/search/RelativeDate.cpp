#include "search/RelativeDate.h"

#include <unicode/reldatefmt.h>
#include <unicode/unistr.h>

#include <cmath>

namespace sonra {
namespace {

struct Unit {
    URelativeDateTimeUnit unit;
    double seconds;
};

constexpr double day = 86400;
constexpr double year = 365.25 * day;
/// The largest first.
constexpr Unit units[] = {{UDAT_REL_UNIT_YEAR, year},    {UDAT_REL_UNIT_MONTH, year / 12},
                          {UDAT_REL_UNIT_WEEK, 7 * day}, {UDAT_REL_UNIT_DAY, day},
                          {UDAT_REL_UNIT_HOUR, 3600},    {UDAT_REL_UNIT_MINUTE, 60}};

Unit unitFor(double seconds) {
    for (const auto& unit : units)
        if (seconds >= unit.seconds) return unit;
    return {UDAT_REL_UNIT_SECOND, 1};
}

}  // namespace

std::string relativeDate(double time, double now) {
    UErrorCode status = U_ZERO_ERROR;
    // Made once: it reads tables. The language is that of the words around it.
    static const icu::RelativeDateTimeFormatter formatter(
        icu::Locale("en"), nullptr, UDAT_STYLE_SHORT, UDISPCTX_CAPITALIZATION_NONE, status);
    const auto unit = unitFor(std::fabs(time - now));
    const double count = std::floor(std::fabs(time - now) / unit.seconds);
    icu::UnicodeString words;
    // A negative number, zero too, lies in the past.
    formatter.formatNumeric(time > now ? count : -count, unit.unit, words, status);
    std::string text;
    if (U_SUCCESS(status)) words.toUTF8String(text);
    return text;
}

}  // namespace sonra
