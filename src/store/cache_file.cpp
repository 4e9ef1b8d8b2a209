#include <cerrno>
#include <cstring>
#include <exception>

#include "store/files.h"
#include "store/store.h"
#include "store/text.h"
#include "wire/datetime.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"

using storetext::NumberText;

namespace modDNS {

namespace {

// A line break inside learnt data would let the rest of it be read back
// as a record of its own.
bool FitsOnOneLine(const clDNSRecord& r) {
  auto breaks = [](const std::string& s) { return s.find_first_of("\r\n") != std::string::npos; };
  return !breaks(r.Name) && (r.RecType == RecordType::kA || !breaks(r.Data));
}

std::string SoaText(std::string_view data) {
  std::size_t end = data.find('\0');
  std::string text(data.substr(0, end));
  data = end == std::string_view::npos ? std::string_view() : data.substr(end + 1);
  end = data.find('\0');
  text += " " + std::string(data.substr(0, end));
  data = end == std::string_view::npos ? std::string_view() : data.substr(end + 1);
  for (int i = 0; i < 5; ++i) text += NumberText(static_cast<int64_t>(ExtractLong(data, true)));
  return text;
}

}  // namespace

void saveCache(StoreContext& ctx) {
  try {
    const DateTime now = ctx.clock.Now();
    std::string text = "; Korvane - Cache\n; CACHE-TIME " + FormatDateTime(now) + "\n;\n";
    for (const clDNSRecord& r : ctx.records) {
      if (r.Permanent) continue;
      const int32_t ttl = r.TTL(now);
      if (ttl < 0 || !FitsOnOneLine(r)) continue;
      text += r.Name + NumberText(ttl) + " ";
      switch (r.RecType) {
        case RecordType::kA:
          text += "A " + modIP::DataToIP(r.Data);
          break;
        case RecordType::kNS:
        case RecordType::kCNAME:
        case RecordType::kPTR:
          text += RTypeN(r.RecType) + " " + r.Data;
          break;
        case RecordType::kSOA:
          text += "SOA " + SoaText(r.Data);
          break;
        case RecordType::kMX:
          text += "MX" + NumberText(r.Pref) + " " + r.Data;
          break;
        case RecordType::kNameError:
          text += "NE " + r.Data;
          break;
        default:
          if (r.RecType > RecordType::kNegativeBase && r.RecType < RecordType::kNameError)
            text += "RE" + RTypeN(r.RecType - RecordType::kNegativeBase) + " " + r.Data;
          break;
      }
      text += "\n";
    }
    const std::string path = ctx.PathOf("named.cache");
    if (!WriteFileAtomically(path, text)) {
      int number = errno == ENOENT || errno == ENOTDIR ? ErrorNumber::kPathNotFound : ErrorNumber::kInternal;
      ctx.errors.Report("modDNS saveCache", path, number, std::strerror(errno));
    }
  } catch (const std::exception& e) {
    ctx.errors.Report("modDNS saveCache", "", ErrorNumber::kInternal, e.what());
  }
}

}  // namespace modDNS
