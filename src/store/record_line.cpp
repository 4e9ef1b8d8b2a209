#include "store/record_line.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

#include "store/record_text.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"
#include "wire/text.h"

namespace korvane {

using namespace text;

namespace modDNS {

namespace {

bool HasOctetAbove255(std::string_view address) {
  while (!address.empty()) {
    std::size_t dot = address.find('.');
    if (std::nearbyint(std::abs(LeadingNumber(address.substr(0, dot)))) > 255) return true;
    if (dot == std::string_view::npos) break;
    address.remove_prefix(dot + 1);
  }
  return false;
}

// The text before the first ";".
void CutComment(std::string& line) {
  std::size_t semicolon = line.find(';');
  if (semicolon != std::string::npos) line.erase(semicolon);
}

// Only digits, no sign, no leading zero, and small enough for a TTL.
std::optional<int64_t> PlainNumber(std::string_view token) {
  if (token.empty() || token.size() > 10) return std::nullopt;
  if (token.size() > 1 && token[0] == '0') return std::nullopt;
  int64_t value = 0;
  for (char c : token) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  if (value > std::numeric_limits<int32_t>::max()) return std::nullopt;
  return value;
}

// The class may stand before or after the TTL. False when the line is to
// be skipped, with the reason in `why`.
bool PassClass(std::string& token, std::string& line, std::string& why) {
  std::string upper = Upper(token);
  if (upper == "CH") {
    why = "class CH";
    return false;
  }
  if (upper == "IN") token = NextToken(line);
  if (token.empty()) {
    why = "no type";
  } else if (line.empty()) {
    why = "nothing after " + token;
  }
  return why.empty();
}

// Owner, class and TTL; leaves the type in `record`. False to skip the line.
bool ParseLineStart(std::string& line, ReaderState& state, int64_t age, RecordLine& record,
                    std::string& why) {
  if (line.empty()) return false;
  if (line[0] == '@') {
    why = "owner @ is not supported";
    return false;
  }
  if (line[0] != ' ') {
    state.owner = NameOf(NextToken(line));
    state.haveOwner = true;
    state.ttl = kDefaultRecordTTL;
  } else if (!state.haveOwner) {
    why = "no owner before this line";
    return false;
  }
  std::string token = NextToken(line);
  if (!PassClass(token, line, why)) {
    record.type = Upper(token);  // the reader may let some types without data go quietly
    return false;
  }
  if (std::optional<int64_t> number = PlainNumber(token)) {
    state.ttl = *number - age;
    token = NextToken(line);
  }
  if (state.ttl < 0) return false;
  if (!PassClass(token, line, why)) {
    record.type = Upper(token);  // the reader may let some types without data go quietly
    return false;
  }
  record.owner = state.owner;
  record.type = Upper(token);
  record.typeText = token;
  record.ttl = static_cast<int32_t>(std::min<int64_t>(state.ttl, std::numeric_limits<int32_t>::max()));
  return true;
}

// False when the line runs out before the fifth number, or a number is out
// of range (reported): no short SOA is stored.
bool ParseSoa(StoreContext& ctx, std::string& line, std::string& data, std::string& why) {
  SoaData soa;
  soa.Primary = NameOf(NextToken(line));
  soa.Mailbox = NameOf(NextToken(line));
  for (uint32_t* number : {&soa.Serial, &soa.Refresh, &soa.Retry, &soa.Expire, &soa.Minimum}) {
    std::string token = NextToken(line);
    if (token.empty()) {
      why = "SOA short of its five numbers";
      return false;
    }
    const double whole = std::floor(LeadingNumber(token));
    if (MakeLong(whole, ctx.errors).size() != 4) {
      why = "SOA number " + token + " out of range";
      return false;
    }
    *number = static_cast<uint32_t>(static_cast<int32_t>(whole));
  }
  data = soa.Pack();
  return true;
}

bool ReadRecordLine(StoreContext& ctx, std::string& line, ReaderState& state, int64_t age,
                    RecordLine& record, std::string& why) {
  if (!ParseLineStart(line, state, age, record, why)) return false;
  record.pref = 0;
  if (record.type == "A") {
    std::string token = NextToken(line);
    // The lenient address reading would turn 300.1.1.1 into 255.1.1.1: an
    // operator's typing error must not become a record.
    std::string address = HasOctetAbove255(token) ? std::string() : modIP::CleanIP(token);
    if (address.empty()) {
      why = "bad address " + token;
      return false;
    }
    record.data = modIP::IPToData(address);
    if (!modIP::IsDottedQuad(token)) record.note = token + " is not an IPv4 address, read as " + address;
  } else if (record.type == "SOA") {
    return ParseSoa(ctx, line, record.data, why);
  } else if (record.type == "MX") {
    record.pref = RoundToInt32(std::trunc(std::fabs(LeadingNumber(NextToken(line)))));
    record.data = NameOf(NextToken(line));
  } else if (record.type == "DHCP") {
    record.data.clear();
    for (int i = 0; i < 4; ++i) record.data += modIP::IPToData(NextToken(line));
  } else {
    record.data = NameOf(NextToken(line));
  }
  return true;
}

}  // namespace

std::string NextToken(std::string& line) {
  std::string_view rest = TrimLeftSpaces(line);
  std::size_t space = rest.find(' ');
  std::string token(rest.substr(0, space));
  line = space == std::string_view::npos ? std::string() : std::string(TrimLeftSpaces(rest.substr(space + 1)));
  return token;
}

bool ParseRecordLine(StoreContext& ctx, std::string line, ReaderState& state, int64_t age,
                     RecordLine& record, std::string* why) {
  std::string reason;
  const bool taken = ReadRecordLine(ctx, line, state, age, record, reason);
  if (why) *why = std::move(reason);
  if (taken) record.rest = std::move(line);
  return taken;
}

bool PoolOf(const StoreContext& ctx, const RecordLine& record, clDHCPif& pool) {
  // Leases are compared as text: "10.0.0.010" and "10.0.0.10" must be one
  // address, so the pool's addresses are kept in their plain dotted form.
  auto address = [&record](std::size_t index) {
    return modIP::DataToIP(std::string_view(record.data).substr(std::min(index * 4, record.data.size())));
  };
  pool.ScopeFrom = address(0);
  pool.ScopeTo = address(1);
  pool.Subnet = address(2);
  pool.Gateway = address(3);
  auto local = std::find_if(ctx.LocalIPs.rbegin(), ctx.LocalIPs.rend(), [&](const std::string& ip) {
    return modIP::SameNet(ip, pool.ScopeFrom, pool.Subnet);
  });
  if (local == ctx.LocalIPs.rend()) return false;
  pool.IPaddr = *local;
  pool.TTL = record.ttl;
  pool.Domain = record.owner;
  return true;
}

LogicalLines ForEachLogicalLine(
    std::string_view content,
    const std::function<bool(std::string line, std::size_t number, std::size_t end)>& take) {
  LogicalLines result;
  LineReader lines(content);
  for (std::string_view physical; lines.Next(physical);) {
    const std::size_t number = ++result.lines;
    std::string line(physical);
    TabsToSpaces(line);
    CutComment(line);
    line = std::string(TrimRightSpaces(line));

    if (!line.empty() && line.back() == '(') {
      line.pop_back();
      bool closed = false;
      while (!closed && lines.Next(physical)) {
        ++result.lines;
        std::string more(physical);
        TabsToSpaces(more);
        more = std::string(TrimSpaces(more));
        CutComment(more);
        std::size_t close = more.find(')');
        if (close != std::string::npos) {
          more = std::string(TrimSpaces(std::string_view(more).substr(0, close)));
          closed = true;
        }
        line += ' ';
        line += more;
      }
      if (!closed) {
        result.openedAt = number;
        result.swallowed = result.lines - number + 1;
        return result;
      }
    }
    if (!take(std::move(line), number, lines.Offset())) break;
  }
  return result;
}

}  // namespace modDNS

}  // namespace korvane
