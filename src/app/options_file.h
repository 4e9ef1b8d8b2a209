// The options file "korvane.ini": one "Key: value" setting a line.
#pragma once

#include <string>

#include "store/options.h"
#include "wire/services.h"

namespace korvane {

namespace modMain {

// Resets `options` to the defaults, then applies the file. A file that cannot
// be opened keeps the defaults and is reported as "modMain LoadOptions", with
// the path and the system's reason. Each line it skips (an unknown setting)
// or reads other than written (a bad address, a number that is none) is
// logged on `log` when given, then a summary; returns how many lines it
// warned about.
int LoadOptions(const std::string& path, Options& options, ErrorReporter& errors, LogSink* log = nullptr);

// The file's text for `options`: the lines the reader understands, in their
// fixed order, false booleans and empty values left out.
std::string OptionsFileText(const Options& options);

// Replaces the file atomically. False when it could not be written.
bool SaveOptions(const std::string& path, const Options& options);

// The number at the start of `text` (sign, digits, fraction, exponent),
// rounded half to even and held within 32 bits; 0 when there is none.
int32_t LeadingNumber(const std::string& text);

}  // namespace modMain

}  // namespace korvane
