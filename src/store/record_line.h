// Reading the record file dialect, line by line: shared by the loader (which
// turns lines into records and DHCP pools) and the editor's entry reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "store/store.h"

namespace korvane {

namespace modDNS {

constexpr int32_t kDefaultRecordTTL = 86400;

// What stays from one line of a record file to the next.
struct ReaderState {
  bool haveOwner = false;
  std::string owner;
  int64_t ttl = kDefaultRecordTTL;
};

// One record line, read.
struct RecordLine {
  std::string owner;  // cleaned, with the final "."
  std::string type;   // upper case, as written: "A" ... "MX", "DHCP", or any other text
  int32_t ttl = 0;
  // A: 4 address bytes; SOA: the SOA layout; DHCP: first, last, mask and
  // gateway, 4 bytes each; every other type: a name (cleaned, final ".").
  std::string data;
  int32_t pref = 0;   // MX preference
};

// Reads one logical line (tabs turned into blanks, comment cut). False when
// the line adds nothing: empty, "@" owner, class CH, an expired TTL (`age`
// seconds are taken off every TTL), an unusable address, an SOA short of
// its numbers or with one out of range (reported as "modDNS MakeLong").
bool ParseRecordLine(StoreContext& ctx, std::string line, ReaderState& state, int64_t age,
                     RecordLine& record);

// Hands each logical line of `content` to `take`, with the byte offset just
// after its last physical line: tabs turned into blanks, comments cut,
// trailing blanks removed, lines inside "(" ... ")" joined. False when the
// file ends inside the parentheses (that record is dropped).
bool ForEachLogicalLine(std::string_view content,
                        const std::function<void(std::string line, std::size_t end)>& take);

// The DHCP pool of a DHCP line on the last of the machine's addresses
// that lies in its network; false when none does.
bool PoolOf(const StoreContext& ctx, const RecordLine& record, clDHCPif& pool);

}  // namespace modDNS

}  // namespace korvane
