// How names and SOA data read in the record file dialect; shared by the
// store's readers and writers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "wire/clean_name.h"
#include "wire/soa_data.h"

namespace korvane {

namespace modDNS {

// A name as the record files hold it: cleaned, with the final ".".
inline std::string NameOf(std::string_view name) { return modMain::CleanName(name) + "."; }

// "primary mailbox serial refresh retry expire minimum" as an SOA line
// carries it, each number with its leading blank. The reader takes a number
// as a signed 32-bit field (above 2147483647 is refused, a negative one
// gives the bytes of its two's complement), so a number from 2^31 up, such
// as a learnt serial, is written negative and reads back to the same bytes.
inline std::string SoaFileText(const SoaData& soa) {
  std::string line = NameOf(soa.Primary) + " " + NameOf(soa.Mailbox);
  for (uint32_t number : soa.Numbers()) line += " " + std::to_string(static_cast<int32_t>(number));
  return line;
}

}  // namespace modDNS

}  // namespace korvane
