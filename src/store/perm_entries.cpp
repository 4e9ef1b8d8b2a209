// The record file read back into the record editor's entries.
#include <algorithm>
#include <exception>
#include <optional>

#include "store/files.h"
#include "store/record_line.h"
#include "store/store.h"
#include "wire/ip.h"
#include "wire/zone_names.h"

namespace korvane {

namespace modDNS {

namespace {

bool EditorType(const std::string& type) {
  return type == "A" || type == "NS" || type == "CNAME" || type == "PTR" || type == "MX" ||
         type == "SOA" || type == "DHCP";
}

// The loader keeps one record per name, type and data.
bool MergedIntoEarlier(const std::vector<RecordLine>& kept, const RecordLine& record) {
  if (record.type == "DHCP") return false;
  return std::any_of(kept.begin(), kept.end(), [&](const RecordLine& earlier) {
    return earlier.owner == record.owner && earlier.type == record.type && earlier.data == record.data;
  });
}

std::string WithoutFinalDot(const std::string& name) {
  return name == "." ? "" : name.substr(0, name.size() - 1);
}

clPermRec EntryOf(const StoreContext& ctx, const RecordLine& record,
                  const std::vector<std::string>& domains) {
  // The longest domain the owner lies in, label by label; "." holds every name.
  std::string domain = ".";
  for (const std::string& candidate : domains)
    if (candidate.size() > domain.size() && dnsnames::InZone(record.owner, candidate)) domain = candidate;
  clPermRec entry;
  entry.Domain = WithoutFinalDot(domain);
  if (record.owner != domain)
    entry.Name = domain == "." ? WithoutFinalDot(record.owner)
                               : record.owner.substr(0, record.owner.size() - domain.size() - 1);
  entry.TTL = record.ttl;
  entry.Data = record.data;
  if (record.type == "DHCP") {
    entry.RecType = RecordType::kDHCP;
    clDHCPif pool;
    entry.Data += PoolOf(ctx, record, pool) ? modIP::IPToData(pool.IPaddr) : std::string(4, '\0');
  } else {
    entry.RecType = RecTypeOfKey(record.type);
    // A domain with its SOA is one this server is the primary for.
    entry.Pref = record.type == "SOA" ? 1 : record.pref;
  }
  return entry;
}

}  // namespace

std::optional<std::vector<clPermRec>> ReadPermEntries(StoreContext& ctx) {
  try {
    std::optional<std::string> content = ReadWholeFile(ctx.PathOf("named.perm"));
    if (!content) return std::nullopt;
    std::vector<RecordLine> kept;
    ReaderState state;
    ForEachLogicalLine(*content, [&](std::string line, std::size_t, std::size_t) {
      RecordLine record;
      if (ParseRecordLine(ctx, std::move(line), state, 0, record) && EditorType(record.type) &&
          !MergedIntoEarlier(kept, record))
        kept.push_back(std::move(record));
      return true;
    });

    std::vector<std::string> domains = {"."};
    for (const RecordLine& record : kept)
      if (record.type == "SOA" && std::find(domains.begin(), domains.end(), record.owner) == domains.end())
        domains.push_back(record.owner);
    std::vector<clPermRec> entries;
    const bool rootHasSoa = std::any_of(kept.begin(), kept.end(), [](const RecordLine& r) {
      return r.type == "SOA" && r.owner == ".";
    });
    // The root is always a domain; without an SOA it writes no line.
    if (!rootHasSoa) entries.push_back({RecordType::kSOA, "", "", "", 0, 0});
    for (const RecordLine& record : kept) entries.push_back(EntryOf(ctx, record, domains));
    return entries;
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS ReadPermEntries", e);
    return std::nullopt;
  }
}

}  // namespace modDNS

}  // namespace korvane
