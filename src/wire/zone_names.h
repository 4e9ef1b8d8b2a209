// Small name helpers of the engine. Names are lower case with a trailing
// dot; the root is ".".
#pragma once

#include <string>
#include <string_view>

namespace korvane {

namespace dnsnames {

inline bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

// The parent zone: "www.example.com." -> "example.com." -> "com." -> ".".
inline std::string Parent(const std::string& name) {
  auto dot = name.find('.');
  if (dot == std::string::npos || dot + 1 >= name.size()) return ".";
  return name.substr(dot + 1);
}

// `name` is `zone` or lies below it, label by label.
inline bool InZone(std::string_view name, std::string_view zone) {
  if (zone == ".") return true;
  if (name == zone) return true;
  return name.size() > zone.size() && EndsWith(name, zone) &&
         name[name.size() - zone.size() - 1] == '.';
}

}  // namespace dnsnames

}  // namespace korvane
