// Small text helpers shared by the store's file readers and writers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

namespace storetext {

std::string_view TrimSpaces(std::string_view text);
std::string_view TrimLeftSpaces(std::string_view text);
std::string_view TrimRightSpaces(std::string_view text);
// Spaces and tabs off both ends.
std::string_view TrimBlanks(std::string_view text);
// ASCII letters only, whatever the process's locale.
std::string Upper(std::string_view text);
void TabsToSpaces(std::string& text);
// The leading decimal number of `text` (optional sign, digits, fraction);
// 0 when the text does not start with one.
double LeadingNumber(std::string_view text);
// The value rounded half to even and held inside the 32-bit signed range.
int32_t RoundToInt32(double value);
// A number as the record files show it: one leading space when it is not
// negative.
std::string NumberText(int64_t value);
// The physical lines of a file, without their LF or CR LF; the last line
// may lack its end. `ends` holds the byte offset after each line.
std::vector<std::string> SplitLines(std::string_view content, std::vector<std::size_t>* ends = nullptr);
// Words separated by one or more spaces.
std::vector<std::string> SplitWords(std::string_view text);

}  // namespace storetext

}  // namespace korvane
