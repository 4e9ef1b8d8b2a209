#include "wire/clean_name.h"

#include "wire/text.h"

namespace korvane {

namespace modMain {

std::string CleanName(std::string_view name) {
  std::string clean;
  for (char c : text::TrimSpaces(name)) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.')
      clean.push_back(c);
  }
  std::size_t start = clean.find_first_not_of('.');
  if (start == std::string::npos) return "";
  std::size_t end = clean.find_last_not_of('.');
  clean = clean.substr(start, end - start + 1);
  // Collapse runs of dots into one.
  std::string result;
  for (char c : clean) {
    if (c == '.' && !result.empty() && result.back() == '.') continue;
    result.push_back(c);
  }
  return result;
}

}  // namespace modMain

}  // namespace korvane
