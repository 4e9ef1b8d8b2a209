#include "wire/datetime.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace korvane {

namespace {
std::tm LocalParts(DateTime when) {
  std::time_t seconds = static_cast<std::time_t>(std::floor(when));
  std::tm parts{};
  localtime_r(&seconds, &parts);
  return parts;
}
}  // namespace

std::string FormatDateTime(DateTime when) {
  std::tm t = LocalParts(when);
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.tm_year + 1900, t.tm_mon + 1,
                t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
  return text;
}

std::string FormatDateCompact(DateTime when) {
  std::tm t = LocalParts(when);
  char text[48];
  std::snprintf(text, sizeof text, "%04d%02d%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
  return text;
}

std::optional<DateTime> ParseDateTime(std::string_view text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  std::string s(text);
  char tail = 0;
  int dateEnd = 0;
  int n = std::sscanf(s.c_str(), "%4d-%2d-%2d%n %2d:%2d:%2d%c", &year, &month, &day, &dateEnd,
                      &hour, &minute, &second, &tail);
  // A date alone must be the whole text; a date-time must end after the seconds.
  if (n == 3 && static_cast<std::size_t>(dateEnd) != s.size()) return std::nullopt;
  if (n != 3 && n != 6) return std::nullopt;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59 ||
      hour < 0 || minute < 0 || second < 0 || year < 1900)
    return std::nullopt;
  std::tm t{};
  t.tm_year = year - 1900;
  t.tm_mon = month - 1;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  t.tm_sec = second;
  t.tm_isdst = -1;
  std::time_t seconds = std::mktime(&t);
  if (seconds == static_cast<std::time_t>(-1)) return std::nullopt;
  // mktime normalises 2026-02-31 to March: such a text is not a date.
  std::tm back{};
  localtime_r(&seconds, &back);
  if (back.tm_mday != day || back.tm_mon != month - 1) return std::nullopt;
  return static_cast<DateTime>(seconds);
}

}  // namespace korvane
