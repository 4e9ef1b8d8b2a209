// IPv4 addresses as numbers and networks written "a.b.c.d/n". Unlike the
// lenient conversions of ip.h these parsers refuse what is not well formed:
// they read what an operator configures and what a socket reports.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvane {

namespace modIP {

// Four decimal numbers 0-255 joined by dots, nothing else; nullopt otherwise.
std::optional<uint32_t> ParseAddress(std::string_view dotted);
std::string AddressText(uint32_t address);

struct Network {
  uint32_t address = 0;  // the network's own address: host bits are 0
  int prefix = 32;       // leading bits that count, 0 to 32

  bool Contains(uint32_t ip) const;
  // False for text that is not an address.
  bool Contains(std::string_view dotted) const;
  // "a.b.c.d/n".
  std::string Text() const;
  bool operator==(const Network&) const = default;
};

// "a.b.c.d/n" or a bare address (a network of one, /32); host bits are
// cleared ("10.1.2.3/8" is 10.0.0.0/8). nullopt for anything else.
std::optional<Network> ParseNetwork(std::string_view text);
// The network of `address` under `mask`; a mask with gaps counts up to its
// last 1 bit, as SameNet counts it.
Network NetworkOf(uint32_t address, uint32_t mask);

// 127.0.0.0/8.
bool IsLoopback(uint32_t address);

}  // namespace modIP

}  // namespace korvane
