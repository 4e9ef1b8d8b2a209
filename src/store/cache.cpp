#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>
#include <vector>

#include "store/loader.h"

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

namespace {

// CacheAdd with the name and data already the list's own copies, so that the
// searches compare them by address.
void AddOwn(StoreContext& ctx, SharedText owner, int rtype, int32_t ttl, SharedText stored, int32_t pref,
            bool permanent, bool rootHint, uint16_t origin) {
  const int16_t type = static_cast<int16_t>(rtype);
  const int32_t minimum = ctx.options.CACHETTL;
  const int32_t effective = (ttl > minimum || ttl == 0) ? ttl : minimum;
  const DateTime now = ctx.clock.Now();
  RecordList& records = ctx.records;

  // The walk of the name's records from the front: it stops at the same
  // record, and takes out the negative entries it meets on the way.
  RecordList::iterator same = records.FindRecord(owner, type, stored);
  records.RemoveNegativesBefore(owner, type, same);
  if (same != records.end()) {
    if (effective > same->TTL(now) && !same->Permanent) {
      same->SetTTL(effective, now);
      same->Origin = origin;
    }
    // The same record from the operator's own files is no longer a mere hint.
    if (permanent && !rootHint && same->Permanent) same->RootHint = false;
    return;
  }

  clDNSRecord record;
  record.Permanent = permanent;
  record.Name = std::move(owner);
  record.RecType = type;
  record.SetTTL(effective, now);
  record.Data = std::move(stored);
  record.Pref = pref;
  record.RootHint = rootHint;
  record.Origin = origin;
  records.AppendInterned(std::move(record));
}

}  // namespace

namespace {

// CacheAdd of a name and data given as any text: the list's own copies first.
template <class Text>
void InternAndAdd(StoreContext& ctx, const Text& name, int rtype, int32_t ttl, const Text& data, int32_t pref,
                  bool permanent, bool rootHint, uint16_t origin) {
  try {
    AddOwn(ctx, ctx.records.InternName(name), rtype, ttl, ctx.records.InternData(data), pref, permanent,
           rootHint, origin);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS CacheAdd", e);
  }
}

}  // namespace

void CacheAdd(StoreContext& ctx, const SharedText& name, int rtype, int32_t ttl, const SharedText& data,
              int32_t pref, bool permanent, bool rootHint, uint16_t origin) {
  InternAndAdd(ctx, name, rtype, ttl, data, pref, permanent, rootHint, origin);
}

void CacheAdd(StoreContext& ctx, std::string_view name, int rtype, int32_t ttl, std::string_view data,
              int32_t pref, bool permanent, bool rootHint, uint16_t origin) {
  InternAndAdd(ctx, name, rtype, ttl, data, pref, permanent, rootHint, origin);
}

void CacheAddPending(StoreContext& ctx, const PendingRecord& record) {
  try {
    AddOwn(ctx, record.name, record.type, record.ttl, record.data, record.pref, record.permanent,
           record.rootHint, record.origin);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS CacheAdd", e);
  }
}

void CacheAdd(StoreContext& ctx, std::string_view name, std::string_view rtype, int32_t ttl,
              std::string_view data, int32_t pref, bool permanent, bool rootHint, uint16_t origin) {
  int type = RecTypeOfKey(rtype);
  if (type == 0) return;
  CacheAdd(ctx, name, type, ttl, data, pref, permanent, rootHint, origin);
}

void CleanCache(StoreContext& ctx) {
  try {
    const DateTime now = ctx.clock.Now();
    // Runs for nearly every query on a quiet server: skip the walk while
    // nothing can have expired.
    if (ctx.records.EarliestExpiry() > now) return;
    DateTime earliest = 1e300;
    // One by one: the few that expire cost the records of their names only,
    // where a rebuild of every name's records would cost the whole list.
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
  ctx.origins.Clear();
  ctx.log.AddLine("Cache cleared by operator");
}

}  // namespace modDNS

}  // namespace korvane
