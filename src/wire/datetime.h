// Local-time text forms of a DateTime, used by log lines and files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "wire/services.h"

namespace korvane {

// "yyyy-mm-dd hh:mm:ss" in local time.
std::string FormatDateTime(DateTime when);
// "yyyymmdd" in local time (daily log file names).
std::string FormatDateCompact(DateTime when);
// Parses "yyyy-mm-dd hh:mm:ss" (or "yyyy-mm-dd") as local time; nullopt if
// the text is not such a date-time.
std::optional<DateTime> ParseDateTime(std::string_view text);

}  // namespace korvane
