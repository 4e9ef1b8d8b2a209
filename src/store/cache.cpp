#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>
#include <vector>

#include "store/store.h"

namespace korvane {

namespace modDNS {

namespace {
struct TypeKey {
  std::string_view key;
  int type;
};
constexpr TypeKey kTypeKeys[] = {
    {"A", RecordType::kA},          {"NS", RecordType::kNS},
    {"CNAME", RecordType::kCNAME},  {"SOA", RecordType::kSOA},
    {"PTR", RecordType::kPTR},      {"MX", RecordType::kMX},
    {"REA", 1001},                  {"RENS", 1002},
    {"RECNAME", 1005},              {"RESOA", 1006},
    {"REPTR", 1012},                {"REMX", 1015},
    {"NE", RecordType::kNameError},
};
}  // namespace

int RecTypeOfKey(std::string_view key) {
  for (const TypeKey& k : kTypeKeys)
    if (k.key == key) return k.type;
  return 0;
}

void CacheAdd(StoreContext& ctx, const std::string& name, int rtype, int32_t ttl,
              const std::string& data, int32_t pref, bool permanent, bool rootHint) {
  try {
    const int16_t type = static_cast<int16_t>(rtype);
    const int32_t minimum = ctx.options.CACHETTL;
    const int32_t effective = (ttl > minimum || ttl == 0) ? ttl : minimum;
    const DateTime now = ctx.clock.Now();

    // A copy, because removing an entry shrinks the index being walked.
    const std::vector<RecordList::iterator> sameName = ctx.records.Named(name);
    for (RecordList::iterator entry : sameName) {
      if (entry->RecType == type && entry->Data == data) {
        if (effective > entry->TTL(now) && !entry->Permanent) entry->SetTTL(effective, now);
        // The same record from the operator's own files is no longer a mere hint.
        if (permanent && !rootHint && entry->Permanent) entry->RootHint = false;
        return;
      }
      if (entry->RecType == RecordType::kNameError ||
          entry->RecType == type + RecordType::kNegativeBase)
        ctx.records.Erase(entry);
    }

    clDNSRecord record;
    record.Permanent = permanent;
    record.Name = name;
    record.RecType = type;
    record.SetTTL(effective, now);
    record.Data = data;
    record.Pref = pref;
    record.RootHint = rootHint;
    ctx.records.Append(std::move(record));
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS CacheAdd", e);
  }
}

void CacheAdd(StoreContext& ctx, const std::string& name, std::string_view rtype, int32_t ttl,
              const std::string& data, int32_t pref, bool permanent, bool rootHint) {
  int type = RecTypeOfKey(rtype);
  if (type == 0) return;
  CacheAdd(ctx, name, type, ttl, data, pref, permanent, rootHint);
}

void CleanCache(StoreContext& ctx) {
  try {
    const DateTime now = ctx.clock.Now();
    // Runs for nearly every query on a quiet server: skip the walk while
    // nothing can have expired.
    if (ctx.records.EarliestExpiry() > now) return;
    DateTime earliest = 1e300;
    for (auto it = ctx.records.begin(); it != ctx.records.end();) {
      if (!it->Permanent && it->TTL(now) < 0) {
        it = ctx.records.Erase(it);
        continue;
      }
      if (!it->Permanent) earliest = std::min(earliest, it->TimeOut(now));
      ++it;
    }
    ctx.records.SetEarliestExpiry(earliest);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS CleanCache", e);
  }
}

void ClearCache(StoreContext& ctx) {
  for (auto it = ctx.records.begin(); it != ctx.records.end();)
    it = it->Permanent ? std::next(it) : ctx.records.Erase(it);
  ctx.records.SetEarliestExpiry(1e300);
  ctx.log.AddLine("Cache cleared by operator");
}

}  // namespace modDNS

}  // namespace korvane
