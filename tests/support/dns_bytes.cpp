#include "support/dns_bytes.h"

#include <sstream>

std::string U16(int v) { return Bytes({(v >> 8) & 255, v & 255}); }

std::string U32(long v) {
  return U16(static_cast<int>((v >> 16) & 0xFFFF)) + U16(static_cast<int>(v & 0xFFFF));
}

std::string Wire(const std::string& name) {
  std::string out, label;
  std::istringstream labels(name);
  while (std::getline(labels, label, '.'))
    if (!label.empty()) out += static_cast<char>(label.size()) + label;
  return out + '\0';
}

std::string RR(const std::string& owner, int type, long ttl, const std::string& rdata) {
  return owner + U16(type) + U16(1) + U32(ttl) + U16(static_cast<int>(rdata.size())) + rdata;
}
