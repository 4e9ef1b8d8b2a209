#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>
#include <optional>

#include "store/files.h"
#include "store/store.h"
#include "store/text.h"
#include "wire/clean_name.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"

namespace korvane {

using namespace storetext;

namespace modDNS {

namespace {

bool HasOctetAbove255(std::string_view address) {
  while (!address.empty()) {
    std::size_t dot = address.find('.');
    if (std::nearbyint(std::abs(modIP::LeadingNumber(address.substr(0, dot)))) > 255) return true;
    if (dot == std::string_view::npos) break;
    address.remove_prefix(dot + 1);
  }
  return false;
}

constexpr int32_t kDefaultTTL = 86400;
constexpr std::size_t kProgressThreshold = 7500;

std::string NameOf(std::string_view text) { return modMain::CleanName(text) + "."; }

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

// What stays from one line of a record file to the next.
struct ReaderState {
  bool haveOwner = false;
  std::string owner;
  int64_t ttl = kDefaultTTL;
};

// The class may stand before or after the TTL. False when the line is to
// be skipped.
bool PassClass(std::string& token, std::string& line) {
  std::string upper = Upper(token);
  if (upper == "CH") return false;
  if (upper == "IN") token = NextToken(line);
  return !token.empty() && !line.empty();
}

void ReadRecordLine(StoreContext& ctx, std::string line, ReaderState& state, bool permanent,
                    bool rootHints, int64_t age) {
  if (line.empty() || line[0] == '@') return;
  if (line[0] != ' ') {
    state.owner = NameOf(NextToken(line));
    state.haveOwner = true;
    state.ttl = kDefaultTTL;
  } else if (!state.haveOwner) {
    return;
  }

  std::string token = NextToken(line);
  if (!PassClass(token, line)) return;
  if (std::optional<int64_t> number = PlainNumber(token)) {
    state.ttl = *number - age;
    token = NextToken(line);
  }
  if (state.ttl < 0) return;
  if (!PassClass(token, line)) return;
  const std::string type = Upper(token);
  const int32_t ttl = static_cast<int32_t>(
      std::min<int64_t>(state.ttl, std::numeric_limits<int32_t>::max()));

  std::string data;
  int32_t pref = 0;
  if (type == "A") {
    std::string token = NextToken(line);
    // The lenient address reading would turn 300.1.1.1 into 255.1.1.1: an
    // operator's typing error must not become a record.
    if (HasOctetAbove255(token)) return;
    std::string address = modIP::CleanIP(token);
    if (address.empty()) return;
    data = modIP::IPToData(address);
    if (permanent && !rootHints)
      CacheAdd(ctx, IPToArpa(address), RecordType::kPTR, ttl, state.owner, -1, true);
  } else if (type == "SOA") {
    data = NameOf(NextToken(line));
    data.push_back('\0');
    data += NameOf(NextToken(line));
    data.push_back('\0');
    for (int i = 0; i < 5; ++i) {
      std::string number = NextToken(line);
      if (number.empty()) return;
      std::string bytes = MakeLong(LeadingNumber(number), ctx.errors);
      if (bytes.size() != 4) return;  // out of range (reported): no short SOA is stored
      data += bytes;
    }
  } else if (type == "MX") {
    pref = RoundToInt32(std::trunc(std::fabs(LeadingNumber(NextToken(line)))));
    data = NameOf(NextToken(line));
  } else if (type == "DHCP") {
    // Pools come only from the operator's own files, never from learnt data.
    if (!permanent) return;
    // Leases are compared as text: "10.0.0.010" and "10.0.0.10" must be one
    // address, so the pool's addresses are kept in their plain dotted form.
    auto address = [&line] { return modIP::DataToIP(modIP::IPToData(NextToken(line))); };
    clDHCPif pool;
    pool.ScopeFrom = address();
    pool.ScopeTo = address();
    pool.Subnet = address();
    pool.Gateway = address();
    auto local = std::find_if(ctx.LocalIPs.rbegin(), ctx.LocalIPs.rend(), [&](const std::string& ip) {
      return modIP::SameNet(ip, pool.ScopeFrom, pool.Subnet);
    });
    if (local == ctx.LocalIPs.rend()) return;
    pool.IPaddr = *local;
    pool.TTL = ttl;
    pool.Domain = state.owner;
    ctx.DHCPifs.push_back(std::move(pool));
    return;
  } else {
    data = NameOf(NextToken(line));
  }
  CacheAdd(ctx, state.owner, std::string_view(type), ttl, data, pref, permanent, rootHints);
}

// The text before the first ";".
void CutComment(std::string& line) {
  std::size_t semicolon = line.find(';');
  if (semicolon != std::string::npos) line.erase(semicolon);
}

// The 20 bytes after an SOA's two names, as five numbers.
struct SoaParts {
  std::string primary, mailbox;
  double numbers[5] = {0, 0, 0, 0, 0};
};

SoaParts SplitSoa(std::string_view data) {
  SoaParts parts;
  std::size_t end = data.find('\0');
  parts.primary = std::string(data.substr(0, end));
  data = end == std::string_view::npos ? std::string_view() : data.substr(end + 1);
  end = data.find('\0');
  parts.mailbox = std::string(data.substr(0, end));
  data = end == std::string_view::npos ? std::string_view() : data.substr(end + 1);
  for (double& n : parts.numbers) n = ExtractLong(data, true);
  return parts;
}

std::string AddressAt(const std::string& data, std::size_t index) {
  return modIP::DataToIP(index * 4 < data.size() ? data.substr(index * 4, 4) : std::string());
}

}  // namespace

std::string NextToken(std::string& line) {
  std::string_view rest = TrimLeftSpaces(line);
  std::size_t space = rest.find(' ');
  std::string token(rest.substr(0, space));
  line = space == std::string_view::npos ? std::string() : std::string(TrimLeftSpaces(rest.substr(space + 1)));
  return token;
}

bool LoadFile(StoreContext& ctx, const std::string& path, bool permanent, bool rootHints) {
  try {
    std::optional<std::string> content = ReadWholeFile(path);
    if (!content) return false;

    int64_t age = 0;
    if (!permanent) {
      if (std::optional<DateTime> modified = FileModificationTime(path))
        age = static_cast<int64_t>(std::nearbyint(ctx.clock.Now() - *modified));
    }
    const std::size_t length = content->size();
    ProgressSink* progress = length > kProgressThreshold ? ctx.progress : nullptr;

    std::vector<std::size_t> ends;
    std::vector<std::string> lines = SplitLines(*content, &ends);
    content.reset();

    ReaderState state;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      std::string line = std::move(lines[i]);
      TabsToSpaces(line);
      CutComment(line);
      line = std::string(TrimRightSpaces(line));

      bool complete = true;
      if (!line.empty() && line.back() == '(') {
        line.pop_back();
        complete = false;
        while (!complete && ++i < lines.size()) {
          std::string more = std::move(lines[i]);
          TabsToSpaces(more);
          more = std::string(TrimSpaces(more));
          CutComment(more);
          std::size_t close = more.find(')');
          if (close != std::string::npos) {
            more = std::string(TrimSpaces(std::string_view(more).substr(0, close)));
            complete = true;
          }
          line += ' ';
          line += more;
        }
      }
      if (!complete) break;  // the file ended inside "(" ... ")"

      ReadRecordLine(ctx, std::move(line), state, permanent, rootHints, age);

      if (progress) {
        const int64_t blocks = static_cast<int64_t>(ends[std::min(i, ends.size() - 1)] / 128);
        progress->SetProgress(static_cast<int>(std::min<int64_t>(100, blocks * 12800 / static_cast<int64_t>(length))));
      }
    }
    if (ctx.progress) ctx.progress->CloseProgress();
    return true;
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadFile", e);
    return false;
  }
}

void LoadPerm(StoreContext& ctx) {
  try {
    for (auto it = ctx.records.begin(); it != ctx.records.end();) {
      if (it->Permanent)
        it = ctx.records.Erase(it);
      else
        ++it;
    }
    ctx.DHCPifs.clear();

    ctx.log.AddLine("Loading root DNS server records...");
    LoadFile(ctx, ctx.PathOf("named.root"), true, true);
    ctx.log.AddLine("Loading permanent records...");
    if (!LoadFile(ctx, ctx.PathOf("named.perm"), true, false)) LoadPermOld(ctx);
    LoadHosts(ctx);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadPerm", e);
  }
}

bool WritePerm(StoreContext& ctx, const std::vector<clPermRec>& entries) {
  try {
    std::string text = "; Korvane Permanent Records\n";
    for (const clPermRec& entry : entries) {
      std::string line = NameOf(entry.Name + "." + entry.Domain) + NumberText(entry.TTL);
      switch (entry.RecType) {
        case RecordType::kA:
          line += " A " + modIP::DataToIP(entry.Data);
          break;
        case RecordType::kSOA: {
          if (entry.Pref < 1) continue;  // not an authority for this domain
          SoaParts soa = SplitSoa(entry.Data);
          line += " SOA " + NameOf(soa.primary) + " " + NameOf(soa.mailbox);
          for (double n : soa.numbers) line += NumberText(static_cast<int64_t>(n));
          break;
        }
        case RecordType::kMX:
          line += " MX" + NumberText(entry.Pref) + " " + NameOf(entry.Data);
          break;
        case RecordType::kDHCP:
          line += " DHCP ";
          for (std::size_t i = 0; i < 4; ++i) line += AddressAt(entry.Data, i) + " ";
          break;
        default:
          line += " " + RTypeN(entry.RecType) + " " + NameOf(entry.Data);
          break;
      }
      text += line + "\n";
    }
    const std::string path = ctx.PathOf("named.perm");
    if (!WriteFileAtomically(path, text)) {
      ErrorInfo why = ErrorOfErrno(errno);
      ctx.errors.Report("modDNS WritePerm", path, why.number, why.description);
      return false;
    }
    return true;
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS WritePerm", e);
    return false;
  }
}

}  // namespace modDNS

}  // namespace korvane
