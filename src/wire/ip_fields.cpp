#include "wire/ip_fields.h"

#include "wire/text.h"

namespace korvane {

namespace modIP {

bool OctetAccepts(std::string_view text) {
  if (text.size() > 3) return false;
  int value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  return value <= 255;
}

bool SplitIPFields(std::string_view text, IPFields& fields) {
  text = text::TrimBlanks(text);
  if (text.empty()) {
    fields = {};
    return true;
  }
  IPFields parts;
  std::size_t field = 0;
  for (char c : text) {
    if (c == '.') {
      if (parts[field].empty() || ++field == parts.size()) return false;
    } else {
      parts[field].push_back(c);
      if (!OctetAccepts(parts[field])) return false;
    }
  }
  if (field != 3 || parts[3].empty()) return false;
  fields = parts;
  return true;
}

bool DottedAddress(std::string_view text) {
  IPFields fields;
  return !text::TrimBlanks(text).empty() && SplitIPFields(text, fields);
}

std::string JoinIPFields(const IPFields& fields) {
  if (fields[0].empty() && fields[1].empty() && fields[2].empty() && fields[3].empty()) return "";
  return fields[0] + "." + fields[1] + "." + fields[2] + "." + fields[3];
}

}  // namespace modIP

}  // namespace korvane
