// The one layout of start-of-authority data inside a record's Data: the
// primary server's name, a zero byte, the responsible mailbox's name, a
// zero byte, then serial, refresh, retry, expire and minimum as 4 bytes
// each, big-endian.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

namespace modDNS {

struct SoaData {
  std::string Primary;  // as stored: the record files give names with their dot
  std::string Mailbox;
  uint32_t Serial = 0;
  uint32_t Refresh = 0;
  uint32_t Retry = 0;
  uint32_t Expire = 0;
  uint32_t Minimum = 0;

  // Reads the Data layout. Never fails: without its zero byte a name runs to
  // the end and the fields after it stay empty; missing number bytes read 0.
  static SoaData Parse(std::string_view data);
  // True when both names end in their zero byte and the 20 number bytes follow.
  static bool WellFormed(std::string_view data);
  // The Data layout of these values.
  std::string Pack() const;
  // The 20 number bytes that end the layout (and the record's wire data).
  std::string NumberBytes() const;

  // Serial, refresh, retry, expire, minimum.
  std::array<uint32_t, 5> Numbers() const { return {Serial, Refresh, Retry, Expire, Minimum}; }
};

}  // namespace modDNS

}  // namespace korvane
