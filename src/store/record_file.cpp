#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <exception>
#include <optional>

#include "store/files.h"
#include "store/record_line.h"
#include "store/record_text.h"
#include "store/store.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"
#include "wire/text.h"

namespace korvane {

using text::NumberText;

namespace modDNS {

namespace {

constexpr std::size_t kProgressThreshold = 7500;

void AddRecordLine(StoreContext& ctx, const RecordLine& record, bool permanent, bool rootHints) {
  if (record.type == "DHCP") {
    // Pools come only from the operator's own files, never from learnt data.
    clDHCPif pool;
    if (permanent && PoolOf(ctx, record, pool)) ctx.DHCPifs.push_back(std::move(pool));
    return;
  }
  if (record.type == "A" && permanent && !rootHints)
    CacheAdd(ctx, IPToArpa(modIP::DataToIP(record.data)), RecordType::kPTR, record.ttl, record.owner,
             -1, true);
  CacheAdd(ctx, record.owner, std::string_view(record.type), record.ttl, record.data, record.pref,
           permanent, rootHints);
}

std::string AddressAt(const std::string& data, std::size_t index) {
  return modIP::DataToIP(index * 4 < data.size() ? data.substr(index * 4, 4) : std::string());
}

}  // namespace

bool LoadFile(StoreContext& ctx, const std::string& path, bool permanent, bool rootHints) {
  try {
    std::optional<std::string> content = ReadWholeFile(path);
    if (!content) return false;

    int64_t age = 0;
    if (!permanent) {
      if (std::optional<DateTime> modified = FileModificationTime(path))
        age = static_cast<int64_t>(std::nearbyint(ctx.clock.Now() - *modified));
    }
    const auto length = static_cast<int64_t>(content->size());
    ProgressSink* progress = length > static_cast<int64_t>(kProgressThreshold) ? ctx.progress : nullptr;

    ReaderState state;
    ForEachLogicalLine(*content, [&](std::string line, std::size_t end) {
      RecordLine record;
      if (ParseRecordLine(ctx, std::move(line), state, age, record))
        AddRecordLine(ctx, record, permanent, rootHints);
      if (progress) {
        const auto blocks = static_cast<int64_t>(end / 128);
        progress->SetProgress(static_cast<int>(std::min<int64_t>(100, blocks * 12800 / length)));
      }
    });
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
          line += " SOA " + SoaFileText(SoaData::Parse(entry.Data));
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
