// Small text helpers for the files and texts the program reads and writes:
// trimming, splitting into lines and words, and the lenient number reading
// the record files and addresses use. The one set for every folder.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

namespace text {

// Blanks only (not tabs): callers turn tabs into blanks first where a file
// allows them.
std::string_view TrimSpaces(std::string_view text);
std::string_view TrimLeftSpaces(std::string_view text);
std::string_view TrimRightSpaces(std::string_view text);
// Blanks and tabs off both ends.
std::string_view TrimBlanks(std::string_view text);
// ASCII letters only, whatever the process's locale.
std::string Upper(std::string_view text);
void TabsToSpaces(std::string& text);
// The leading number of `text`, read leniently: optional sign, digits,
// optional decimal part; no blanks are skipped. 0 when the text does not
// start with a number. Very long digit strings saturate near 1e15.
double LeadingNumber(std::string_view text);
// The value rounded half to even and held inside the 32-bit signed range.
int32_t RoundToInt32(double value);
// A number as the record files show it: one leading blank when it is not
// negative.
std::string NumberText(int64_t value);
// The physical lines of a file one at a time, without their LF or CR LF;
// the last line may lack its end.
class LineReader {
 public:
  explicit LineReader(std::string_view content) : content_(content) {}
  // False after the last line.
  bool Next(std::string_view& line);
  // The byte offset just after the line read last.
  std::size_t Offset() const { return at_; }

 private:
  std::string_view content_;
  std::size_t at_ = 0;
};
// All the lines of LineReader at once.
std::vector<std::string> SplitLines(std::string_view content);
// Words separated by one or more blanks.
std::vector<std::string> SplitWords(std::string_view text);

}  // namespace text

}  // namespace korvane
