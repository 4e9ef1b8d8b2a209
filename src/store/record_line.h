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
  std::string typeText;  // the type as written
  int32_t ttl = 0;
  // A: 4 address bytes; SOA: the SOA layout; DHCP: first, last, mask and
  // gateway, 4 bytes each; every other type: a name (cleaned, final ".").
  std::string data;
  int32_t pref = 0;   // MX preference
  std::string rest;   // what stood after the data (ignored)
  std::string note;   // how the line was read other than written, for the operator
};

// Reads one logical line (tabs turned into blanks, comment cut). False when
// the line adds nothing: empty, "@" owner, class CH, an expired TTL (`age`
// seconds are taken off every TTL), an unusable address, an SOA short of
// its numbers or with one out of range (reported as "modDNS MakeLong").
// `why`, when given, then says why for the operator ("" for a line that
// holds nothing, or an expired one).
bool ParseRecordLine(StoreContext& ctx, std::string line, ReaderState& state, int64_t age,
                     RecordLine& record, std::string* why = nullptr);

// How a record file's logical lines ended.
struct LogicalLines {
  std::size_t lines = 0;       // physical lines in the file
  std::size_t openedAt = 0;    // the line of a "(" never closed; 0 when all were
  std::size_t swallowed = 0;   // the physical lines from there to the end
};

// Hands each logical line of `content` to `take`, with the number of its
// first physical line (from 1) and the byte offset just after its last:
// tabs turned into blanks, comments cut, trailing blanks removed, lines
// inside "(" ... ")" joined. A "(" that the file never closes loses its
// record and every line after it. `take` returns false to stop reading.
LogicalLines ForEachLogicalLine(
    std::string_view content,
    const std::function<bool(std::string line, std::size_t number, std::size_t end)>& take);

// The DHCP pool of a DHCP line on the last of the machine's addresses
// that lies in its network; false when none does.
bool PoolOf(const StoreContext& ctx, const RecordLine& record, clDHCPif& pool);

}  // namespace modDNS

}  // namespace korvane
