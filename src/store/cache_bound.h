// The bound on the cache: at most CacheLimit(options) cached records.
#pragma once

#include <cstddef>

#include "store/store.h"

namespace korvane {

namespace modDNS {

// Fewer cached records than this would starve resolution itself: the
// referrals of a walk from the root are cached between its steps.
constexpr std::size_t kMinCacheSize = 1000;

// CACHESIZE, raised to kMinCacheSize.
std::size_t CacheLimit(const Options& options);

// When the cache holds more than CacheLimit records, drops those nearest to
// expiry (expired ones first) until a 64th of the limit is free again, so
// that the walk this takes is paid once per run of new records, not for
// each. Permanent records are never dropped. Errors are reported as
// "modDNS TrimCache".
void TrimCache(StoreContext& ctx);

}  // namespace modDNS

}  // namespace korvane
