// The lease table: leases in the order they were added, with indexes by
// address, name and client identity that keep that order, and the address
// sets that let a pool search jump over leased runs instead of testing
// every address.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "wire/services.h"

namespace korvane {

// One lease.
struct clLease {
  DateTime Expires = 0;    // active while later than the present time
  std::string IPaddr;      // dotted; "" when a loaded line held 0.0.0.0
  std::string ClientName;  // the client's full name with trailing "."; may be ""
  std::string ClientID;    // the client's identity (option 61, else htype + chaddr)
};

class LeaseTable {
 public:
  // Position of a lease in the table; larger ids come later in table order.
  using Id = std::uint64_t;
  using Ids = std::set<Id>;

  class const_iterator {
   public:
    using value_type = clLease;
    using difference_type = std::ptrdiff_t;
    using reference = const clLease&;
    using pointer = const clLease*;
    using iterator_category = std::bidirectional_iterator_tag;
    const_iterator() = default;
    explicit const_iterator(std::map<Id, clLease>::const_iterator it) : it_(it) {}
    reference operator*() const { return it_->second; }
    pointer operator->() const { return &it_->second; }
    Id id() const { return it_->first; }
    const_iterator& operator++() { ++it_; return *this; }
    const_iterator operator++(int) { auto copy = *this; ++it_; return copy; }
    const_iterator& operator--() { --it_; return *this; }
    const_iterator operator--(int) { auto copy = *this; --it_; return copy; }
    bool operator==(const const_iterator& other) const = default;

   private:
    std::map<Id, clLease>::const_iterator it_;
  };

  const_iterator begin() const { return const_iterator(leases_.begin()); }
  const_iterator end() const { return const_iterator(leases_.end()); }
  std::size_t size() const { return leases_.size(); }
  bool empty() const { return leases_.empty(); }

  void Clear();
  // Adds at the end of the table.
  Id Append(clLease lease);
  // Unknown ids are ignored.
  void Erase(Id id);
  void SetExpires(Id id, DateTime expires);
  // The lease of a valid id (from the indexes or an iterator).
  const clLease& At(Id id) const { return leases_.at(id); }

  // Ids of the leases whose field equals the text exactly, in table order;
  // an empty set when none.
  const Ids& WithAddress(const std::string& address) const { return Lookup(byAddress_, address); }
  const Ids& WithName(const std::string& name) const { return Lookup(byName_, name); }
  const Ids& WithClientID(const std::string& clientID) const { return Lookup(byClientID_, clientID); }

  // Pool search over addresses as 32-bit numbers (only leases whose IPaddr is
  // in the canonical dotted form count, which is the only form the search
  // produces). Both return nullopt when no address in [from, to] qualifies.
  // The lowest address that holds no lease at all.
  std::optional<std::uint32_t> LowestUnleased(std::uint64_t from, std::uint64_t to) const;
  // The lowest address that holds no active lease at `now`.
  std::optional<std::uint32_t> LowestWithoutActive(std::uint64_t from, std::uint64_t to,
                                                   DateTime now) const;

  // The earliest Expires later than `now`; nullopt when no lease has one.
  std::optional<DateTime> NextExpiryAfter(DateTime now) const;

  // Grows with every change; lets callers tell whether anything changed.
  std::uint64_t Version() const { return version_; }

 private:
  using Index = std::unordered_map<std::string, Ids>;
  static const Ids& Lookup(const Index& index, const std::string& key);
  static void Unindex(Index& index, const std::string& key, Id id);
  // Brings the numeric structures of one address up to date with byAddress_.
  void RefreshAddress(const std::string& address);
  void MarkLeased(std::uint32_t address);
  void MarkUnleased(std::uint32_t address);
  void SyncExpired(DateTime now) const;

  std::map<Id, clLease> leases_;
  Id nextId_ = 1;
  std::uint64_t version_ = 0;
  Index byAddress_, byName_, byClientID_;
  std::set<std::pair<DateTime, Id>> byExpiry_;

  // Leased addresses as coalesced runs: first -> last.
  std::map<std::uint32_t, std::uint32_t> leasedRuns_;
  // Per leased address, the latest expiry among its leases.
  std::unordered_map<std::uint32_t, DateTime> latestExpiry_;
  std::set<std::pair<DateTime, std::uint32_t>> byLatestExpiry_;
  // Leased addresses whose leases all expired at expiredAsOf_; moved forward
  // (or back) to the asked time on demand.
  mutable std::set<std::uint32_t> expired_;
  mutable DateTime expiredAsOf_ = -1e300;
};

// The 32-bit number of an address in canonical dotted form ("10.0.0.1": four
// decimal octets, no leading zeros, nothing else); nullopt for any other text.
std::optional<std::uint32_t> CanonicalAddress(std::string_view text);
// The canonical dotted form of a 32-bit address.
std::string DottedAddress(std::uint32_t address);

}  // namespace korvane
