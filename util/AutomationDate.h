#pragma once

#include <ctime>
#include <string>

namespace quorel::util {

// Dates as the files and reports of the component keep them: a double counting days since
// 1899-12-30 00:00, the fraction being the time of day, in local time. Below zero the whole part
// counts days back and the fraction still counts forward from midnight (-1.25 is 1899-12-29 06:00).

// The local date and time of a moment.
double ToAutomationDate(std::time_t moment);

// The general date-and-time text: "dd/mm/yyyy hh:mm:ss", the date alone at midnight and the
// time alone on day 0. Throws Error(kOverflow) for a value outside years 100 to 9999 or NaN.
std::string FormatGeneralDate(double automationDate);

// A moment in local time as ISO 8601 with its offset from UTC: "2026-11-24T14:05:00+01:00".
std::string IsoDateTime(std::time_t moment);

} // namespace quorel::util
