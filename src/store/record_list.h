// The record list: permanent and cached records in the order they were
// added, with an index by name so that the records of one name are found
// without walking the whole list. Every walk sees records in list order.
// The indexes are keyed on Name, RecType and Permanent: change those only by
// erasing the record and appending a new one. A cached record's expiry may
// only be moved later while it is in the list (the earliest-expiry bound).
#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "store/record.h"

namespace korvane {

class RecordList {
 public:
  using Storage = std::list<clDNSRecord>;
  using iterator = Storage::iterator;
  using const_iterator = Storage::const_iterator;

  RecordList() = default;
  // A copy gets indexes of its own, pointing into its own list.
  RecordList(const RecordList& other);
  RecordList& operator=(const RecordList& other);
  RecordList(RecordList&&) = default;
  RecordList& operator=(RecordList&&) = default;

  iterator begin() { return records_.begin(); }
  iterator end() { return records_.end(); }
  const_iterator begin() const { return records_.begin(); }
  const_iterator end() const { return records_.end(); }
  std::size_t size() const { return records_.size(); }
  // The records that are not permanent.
  std::size_t CachedCount() const { return cached_; }
  bool empty() const { return records_.empty(); }

  // Appends at the end of the list.
  iterator Append(clDNSRecord record);
  // Removes one record; returns the one after it.
  iterator Erase(iterator it);
  void Clear();

  // The records whose Name equals `name` exactly, in list order.
  const std::vector<iterator>& Named(const std::string& name) const;
  // The permanent NS and SOA records in list order (the authority test).
  const std::vector<iterator>& PermanentZoneRecords() const { return zoneRecords_; }

  // No cached record expires before this moment (a lower bound), so a clean-up
  // before it has nothing to remove.
  DateTime EarliestExpiry() const { return earliestExpiry_; }
  void SetEarliestExpiry(DateTime when) { earliestExpiry_ = when; }

 private:
  Storage records_;
  std::unordered_map<std::string, std::vector<iterator>> byName_;
  std::vector<iterator> zoneRecords_;
  DateTime earliestExpiry_ = kNever;
  std::size_t cached_ = 0;

  static constexpr DateTime kNever = 1e300;
};

}  // namespace korvane
