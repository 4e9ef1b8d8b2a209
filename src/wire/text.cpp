#include "wire/text.h"

#include <cmath>
#include <limits>

namespace korvane {

namespace text {

std::string_view TrimLeftSpaces(std::string_view text) {
  std::size_t first = text.find_first_not_of(' ');
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

std::string_view TrimRightSpaces(std::string_view text) {
  std::size_t last = text.find_last_not_of(' ');
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

std::string_view TrimSpaces(std::string_view text) { return TrimRightSpaces(TrimLeftSpaces(text)); }

std::string_view TrimBlanks(std::string_view text) {
  std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string Upper(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

void TabsToSpaces(std::string& text) {
  for (char& c : text)
    if (c == '\t') c = ' ';
}

double LeadingNumber(std::string_view text) {
  // Anything far above an octet or a TTL saturates; the cap keeps huge digit
  // strings finite.
  constexpr double kCap = 1e15;
  std::size_t at = 0;
  bool negative = false;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
    negative = text[at] == '-';
    ++at;
  }
  double value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    if (value < kCap) value = value * 10 + (text[at] - '0');
  }
  if (at < text.size() && text[at] == '.') {
    double scale = 0.1;
    for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
      value += (text[at] - '0') * scale;
      scale /= 10;
    }
  }
  return negative ? -value : value;
}

int32_t RoundToInt32(double value) {
  double rounded = std::nearbyint(value);
  if (std::isnan(rounded)) return 0;
  if (rounded >= std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (rounded <= std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(rounded);
}

std::string NumberText(int64_t value) {
  return value >= 0 ? " " + std::to_string(value) : std::to_string(value);
}

bool LineReader::Next(std::string_view& line) {
  if (at_ >= content_.size()) return false;
  std::size_t newline = content_.find('\n', at_);
  std::size_t stop = newline == std::string_view::npos ? content_.size() : newline;
  line = content_.substr(at_, stop - at_);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  at_ = newline == std::string_view::npos ? content_.size() : newline + 1;
  return true;
}

std::vector<std::string> SplitLines(std::string_view content) {
  std::vector<std::string> lines;
  LineReader reader(content);
  for (std::string_view line; reader.Next(line);) lines.emplace_back(line);
  return lines;
}

std::vector<std::string> SplitWords(std::string_view text) {
  std::vector<std::string> words;
  std::size_t i = 0;
  while (i < text.size()) {
    std::size_t first = text.find_first_not_of(' ', i);
    if (first == std::string_view::npos) break;
    std::size_t last = text.find(' ', first);
    if (last == std::string_view::npos) last = text.size();
    words.emplace_back(text.substr(first, last - first));
    i = last;
  }
  return words;
}

}  // namespace text

}  // namespace korvane
