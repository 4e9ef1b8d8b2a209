#include <cerrno>
#include <exception>

#include "store/files.h"
#include "store/store.h"
#include "store/record_text.h"
#include "wire/datetime.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"
#include "wire/text.h"

namespace korvane {

using text::NumberText;

namespace modDNS {

namespace {

// Learnt names may hold any byte. A name the reader would not give back as
// it stands (a blank, a line break, "_") would come back as another record,
// or as several: such records are not written.
bool ReadsBack(std::string_view name) {
  return NameOf(name) == name;
}

bool ReadsBack(const clDNSRecord& r) {
  if (!ReadsBack(r.Name)) return false;
  switch (r.RecType) {
    case RecordType::kA:
      return true;
    case RecordType::kSOA: {
      const SoaData soa = SoaData::Parse(r.Data);
      return SoaData::WellFormed(r.Data) && ReadsBack(soa.Primary) && ReadsBack(soa.Mailbox);
    }
    case RecordType::kNS:
    case RecordType::kCNAME:
    case RecordType::kPTR:
    case RecordType::kMX:
      return ReadsBack(r.Data);
    default:  // negative entries show their zone; other types show no data
      return r.RecType < RecordType::kNegativeBase || r.Data.empty() || ReadsBack(r.Data);
  }
}

}  // namespace

bool saveCache(StoreContext& ctx) {
  try {
    const DateTime now = ctx.clock.Now();
    std::string text = "; Korvane - Cache\n; CACHE-TIME " + FormatDateTime(now) + "\n;\n";
    for (const clDNSRecord& r : ctx.records) {
      if (r.Permanent) continue;
      const int32_t ttl = r.TTL(now);
      if (ttl < 0 || !ReadsBack(r)) continue;
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
          text += "SOA " + SoaFileText(SoaData::Parse(r.Data));
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
    if (WriteFileAtomically(path, text)) return true;
    ErrorInfo why = ErrorOfErrno(errno);
    ctx.errors.Report("modDNS saveCache", path, why.number, why.description);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS saveCache", e);
  }
  return false;
}

}  // namespace modDNS

}  // namespace korvane
