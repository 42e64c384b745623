#include "util/AutomationDate.h"

#include "util/Error.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace quorel::util {
namespace {

// Days between 1899-12-30 and 1970-01-01.
constexpr std::int64_t kUnixEpochDay = 25569;
// 0100-01-01 and the day after 9999-12-31, the range the platform's dates cover.
constexpr double kFirstDay = -657434.0;
constexpr double kEndDay = 2958466.0;

// Proleptic Gregorian calendar conversions around 1970-01-01 (H. Hinnant's algorithms).
std::int64_t DaysFromCivil(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

struct CivilDate {
    std::int64_t year;
    unsigned month;
    unsigned day;
};

CivilDate CivilFromDays(std::int64_t days) {
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned monthIndex = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    const unsigned month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    const std::int64_t year = static_cast<std::int64_t>(yearOfEra) + era * 400;
    return {month <= 2 ? year + 1 : year, month, day};
}

} // namespace

double ToAutomationDate(std::time_t moment) {
    std::tm local{};
    localtime_r(&moment, &local);
    const std::int64_t days =
        DaysFromCivil(local.tm_year + 1900, static_cast<unsigned>(local.tm_mon + 1),
                      static_cast<unsigned>(local.tm_mday)) +
        kUnixEpochDay;
    const int seconds = local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
    return static_cast<double>(days) + seconds / 86400.0;
}

std::string FormatGeneralDate(double automationDate) {
    if (!(automationDate >= kFirstDay && automationDate < kEndDay)) {
        throw Error(error_number::kOverflow, "FormatGeneralDate", "Overflow");
    }
    auto days = static_cast<std::int64_t>(std::trunc(automationDate));
    auto seconds = static_cast<std::int64_t>(
        std::llround(std::fabs(automationDate - static_cast<double>(days)) * 86400.0));
    if (seconds >= 86400) {
        seconds -= 86400;
        ++days; // the fraction always counts forward in time
    }
    char buffer[64];
    std::string text;
    if (days != 0) {
        const CivilDate date = CivilFromDays(days - kUnixEpochDay);
        std::snprintf(buffer, sizeof buffer, "%02u/%02u/%04lld", date.day, date.month,
                      static_cast<long long>(date.year));
        text = buffer;
    }
    if (seconds != 0 || days == 0) {
        std::snprintf(buffer, sizeof buffer, "%02d:%02d:%02d", static_cast<int>(seconds / 3600),
                      static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
        if (!text.empty()) {
            text += ' ';
        }
        text += buffer;
    }
    return text;
}

std::string IsoDateTime(std::time_t moment) {
    std::tm local{};
    localtime_r(&moment, &local);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
    std::string iso(text, length);
    // %z gives +0100; ISO 8601's extended form writes +01:00.
    if (iso.size() >= 5) {
        iso.insert(iso.size() - 2, ":");
    }
    return iso;
}

} // namespace quorel::util
