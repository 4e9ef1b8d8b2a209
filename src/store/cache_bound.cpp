#include "store/cache_bound.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

namespace korvane {

namespace modDNS {

std::size_t CacheLimit(const Options& options) {
  return std::max<std::size_t>(static_cast<std::size_t>(std::max(options.CACHESIZE, 0)),
                               kMinCacheSize);
}

void TrimCache(StoreContext& ctx) {
  try {
    const std::size_t limit = CacheLimit(ctx.options);
    RecordList& records = ctx.records;
    if (records.CachedCount() <= limit) return;
    const std::size_t keep = limit - limit / 64;
    const DateTime now = ctx.clock.Now();
    std::vector<std::pair<DateTime, RecordList::iterator>> cached;
    cached.reserve(records.CachedCount());
    for (auto it = records.begin(); it != records.end(); ++it)
      if (!it->Permanent) cached.emplace_back(it->TimeOut(now), it);
    if (cached.size() <= keep) return;
    const auto drop = static_cast<std::ptrdiff_t>(cached.size() - keep);
    std::nth_element(cached.begin(), cached.begin() + drop, cached.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto entry = cached.begin(); entry != cached.begin() + drop; ++entry)
      records.Erase(entry->second);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS TrimCache", e);
  }
}

}  // namespace modDNS

}  // namespace korvane
