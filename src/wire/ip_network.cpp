#include "wire/ip_network.h"

namespace korvane {

namespace modIP {

namespace {

uint32_t PrefixMask(int prefix) {
  return prefix <= 0 ? 0 : prefix >= 32 ? 0xFFFFFFFFu : ~(0xFFFFFFFFu >> prefix);
}

}  // namespace

std::optional<uint32_t> ParseAddress(std::string_view dotted) {
  uint32_t address = 0;
  std::size_t at = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) {
      if (at >= dotted.size() || dotted[at] != '.') return std::nullopt;
      ++at;
    }
    std::size_t digits = 0;
    uint32_t value = 0;
    while (at < dotted.size() && dotted[at] >= '0' && dotted[at] <= '9' && digits < 4) {
      value = value * 10 + static_cast<uint32_t>(dotted[at] - '0');
      ++at;
      ++digits;
    }
    if (digits == 0 || digits > 3 || value > 255) return std::nullopt;
    address = (address << 8) | value;
  }
  if (at != dotted.size()) return std::nullopt;
  return address;
}

std::string AddressText(uint32_t address) {
  return std::to_string(address >> 24) + "." + std::to_string((address >> 16) & 255) + "." +
         std::to_string((address >> 8) & 255) + "." + std::to_string(address & 255);
}

bool Network::Contains(uint32_t ip) const {
  return (ip & PrefixMask(prefix)) == address;
}

bool Network::Contains(std::string_view dotted) const {
  std::optional<uint32_t> ip = ParseAddress(dotted);
  return ip && Contains(*ip);
}

std::string Network::Text() const { return AddressText(address) + "/" + std::to_string(prefix); }

std::optional<Network> ParseNetwork(std::string_view text) {
  const std::size_t slash = text.find('/');
  std::optional<uint32_t> address = ParseAddress(text.substr(0, slash));
  if (!address) return std::nullopt;
  int prefix = 32;
  if (slash != std::string_view::npos) {
    std::string_view bits = text.substr(slash + 1);
    if (bits.empty() || bits.size() > 2) return std::nullopt;
    prefix = 0;
    for (char c : bits) {
      if (c < '0' || c > '9') return std::nullopt;
      prefix = prefix * 10 + (c - '0');
    }
    if (prefix > 32) return std::nullopt;
  }
  return Network{*address & PrefixMask(prefix), prefix};
}

Network NetworkOf(uint32_t address, uint32_t mask) {
  int prefix = 0;
  for (int bit = 0; bit < 32; ++bit)
    if (mask & (0x80000000u >> bit)) prefix = bit + 1;
  return Network{address & PrefixMask(prefix), prefix};
}

bool IsLoopback(uint32_t address) { return (address >> 24) == 127; }

}  // namespace modIP

}  // namespace korvane
