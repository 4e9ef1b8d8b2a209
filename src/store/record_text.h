// How names and SOA data read in the record file dialect; shared by the
// store's readers and writers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "wire/clean_name.h"
#include "wire/soa_data.h"
#include "wire/text.h"

namespace korvane {

namespace modDNS {

// A name as the record files hold it: cleaned, with the final ".".
inline std::string NameOf(std::string_view name) { return modMain::CleanName(name) + "."; }

// "primary mailbox serial refresh retry expire minimum" as an SOA line
// carries it, each number with its leading blank. A number the reader would
// refuse (above 2147483647) is written as 2147483647.
inline std::string SoaFileText(const SoaData& soa) {
  std::string line = NameOf(soa.Primary) + " " + NameOf(soa.Mailbox);
  for (uint32_t number : soa.Numbers())
    line += text::NumberText(std::min<uint32_t>(number, 2147483647u));
  return line;
}

}  // namespace modDNS

}  // namespace korvane
