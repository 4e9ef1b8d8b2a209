#include "dhcp/lease_table.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace korvane {

std::optional<std::uint32_t> CanonicalAddress(std::string_view text) {
  std::uint32_t value = 0;
  std::size_t pos = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) {
      if (pos >= text.size() || text[pos] != '.') return std::nullopt;
      ++pos;
    }
    std::size_t start = pos;
    unsigned number = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9' && pos - start < 3) {
      number = number * 10 + unsigned(text[pos] - '0');
      ++pos;
    }
    std::size_t digits = pos - start;
    if (digits == 0 || number > 255 || (digits > 1 && text[start] == '0')) return std::nullopt;
    value = (value << 8) | number;
  }
  if (pos != text.size()) return std::nullopt;
  return value;
}

std::string DottedAddress(std::uint32_t address) {
  return std::to_string(address >> 24) + "." + std::to_string((address >> 16) & 255) + "." +
         std::to_string((address >> 8) & 255) + "." + std::to_string(address & 255);
}

const LeaseTable::Ids& LeaseTable::Lookup(const Index& index, const std::string& key) {
  static const Ids kNone;
  auto it = index.find(key);
  return it == index.end() ? kNone : it->second;
}

void LeaseTable::Unindex(Index& index, const std::string& key, Id id) {
  auto it = index.find(key);
  if (it == index.end()) return;
  it->second.erase(id);
  if (it->second.empty()) index.erase(it);
}

void LeaseTable::Clear() {
  leases_.clear();
  byAddress_.clear();
  byName_.clear();
  byClientID_.clear();
  byExpiry_.clear();
  leasedRuns_.clear();
  latestExpiry_.clear();
  byLatestExpiry_.clear();
  expired_.clear();
  expiredAsOf_ = -1e300;
  ++version_;
}

LeaseTable::Id LeaseTable::Append(clLease lease) {
  Id id = nextId_++;
  byAddress_[lease.IPaddr].insert(id);
  byName_[lease.ClientName].insert(id);
  byClientID_[lease.ClientID].insert(id);
  byExpiry_.insert({lease.Expires, id});
  std::string address = lease.IPaddr;
  leases_.emplace(id, std::move(lease));
  RefreshAddress(address);
  ++version_;
  return id;
}

void LeaseTable::Erase(Id id) {
  auto it = leases_.find(id);
  if (it == leases_.end()) return;
  std::string address = std::move(it->second.IPaddr);
  Unindex(byAddress_, address, id);
  Unindex(byName_, it->second.ClientName, id);
  Unindex(byClientID_, it->second.ClientID, id);
  byExpiry_.erase({it->second.Expires, id});
  leases_.erase(it);
  RefreshAddress(address);
  ++version_;
}

void LeaseTable::SetExpires(Id id, DateTime expires) {
  auto it = leases_.find(id);
  if (it == leases_.end()) return;
  byExpiry_.erase({it->second.Expires, id});
  byExpiry_.insert({expires, id});
  it->second.Expires = expires;
  RefreshAddress(it->second.IPaddr);
  ++version_;
}

std::optional<DateTime> LeaseTable::NextExpiryAfter(DateTime now) const {
  auto next = byExpiry_.upper_bound({now, std::numeric_limits<Id>::max()});
  if (next == byExpiry_.end()) return std::nullopt;
  return next->first;
}

void LeaseTable::RefreshAddress(const std::string& address) {
  std::optional<std::uint32_t> number = CanonicalAddress(address);
  if (!number) return;
  const Ids& ids = WithAddress(address);
  auto known = latestExpiry_.find(*number);
  if (known != latestExpiry_.end()) {
    byLatestExpiry_.erase({known->second, *number});
    expired_.erase(*number);
    if (ids.empty()) {
      latestExpiry_.erase(known);
      MarkUnleased(*number);
      return;
    }
  } else {
    if (ids.empty()) return;
    MarkLeased(*number);
  }
  DateTime latest = -std::numeric_limits<DateTime>::infinity();
  for (Id id : ids) latest = std::max(latest, leases_.at(id).Expires);
  latestExpiry_[*number] = latest;
  byLatestExpiry_.insert({latest, *number});
  if (latest <= expiredAsOf_) expired_.insert(*number);
}

void LeaseTable::MarkLeased(std::uint32_t address) {
  auto next = leasedRuns_.upper_bound(address);
  bool joinsPrevious = false;
  std::map<std::uint32_t, std::uint32_t>::iterator previous;
  if (next != leasedRuns_.begin()) {
    previous = std::prev(next);
    if (previous->second >= address) return;
    joinsPrevious = previous->second + 1 == address;
  }
  bool joinsNext = next != leasedRuns_.end() && address != UINT32_MAX && next->first == address + 1;
  if (joinsPrevious && joinsNext) {
    previous->second = next->second;
    leasedRuns_.erase(next);
  } else if (joinsPrevious) {
    previous->second = address;
  } else if (joinsNext) {
    std::uint32_t last = next->second;
    leasedRuns_.erase(next);
    leasedRuns_.emplace(address, last);
  } else {
    leasedRuns_.emplace(address, address);
  }
}

void LeaseTable::MarkUnleased(std::uint32_t address) {
  auto run = leasedRuns_.upper_bound(address);
  if (run == leasedRuns_.begin()) return;
  --run;
  std::uint32_t first = run->first, last = run->second;
  if (last < address) return;
  leasedRuns_.erase(run);
  if (first < address) leasedRuns_.emplace(first, address - 1);
  if (address < last) leasedRuns_.emplace(address + 1, last);
}

std::optional<std::uint32_t> LeaseTable::LowestUnleased(std::uint64_t from, std::uint64_t to) const {
  to = std::min<std::uint64_t>(to, UINT32_MAX);
  if (from > to) return std::nullopt;
  auto run = leasedRuns_.upper_bound(static_cast<std::uint32_t>(from));
  if (run != leasedRuns_.begin()) {
    --run;
    // Runs are coalesced, so the address after a run is never leased.
    if (run->second >= from) from = std::uint64_t(run->second) + 1;
  }
  if (from > to) return std::nullopt;
  return static_cast<std::uint32_t>(from);
}

void LeaseTable::SyncExpired(DateTime now) const {
  if (now > expiredAsOf_) {
    auto it = byLatestExpiry_.upper_bound({expiredAsOf_, UINT32_MAX});
    for (; it != byLatestExpiry_.end() && it->first <= now; ++it) expired_.insert(it->second);
  } else if (now < expiredAsOf_) {
    // The clock went back: leases count as active again.
    auto it = byLatestExpiry_.upper_bound({now, UINT32_MAX});
    for (; it != byLatestExpiry_.end() && it->first <= expiredAsOf_; ++it) expired_.erase(it->second);
  }
  expiredAsOf_ = now;
}

std::optional<std::uint32_t> LeaseTable::LowestWithoutActive(std::uint64_t from, std::uint64_t to,
                                                             DateTime now) const {
  to = std::min<std::uint64_t>(to, UINT32_MAX);
  if (from > to) return std::nullopt;
  SyncExpired(now);
  std::optional<std::uint32_t> best = LowestUnleased(from, to);
  auto expired = expired_.lower_bound(static_cast<std::uint32_t>(from));
  if (expired != expired_.end() && *expired <= to && (!best || *expired < *best)) best = *expired;
  return best;
}

}  // namespace korvane
