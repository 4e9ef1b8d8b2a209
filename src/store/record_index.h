// Record slots by a 32-bit hash of their key (owner name, type and data):
// open addressing with linear probing. Entries carry their hash, so a probe
// looks at a record only when the hashes agree, and growing never touches a
// record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane {

class RecordIndex {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;

  // The first slot with this hash for which `matches(slot)` holds, or kNone.
  template <class Matches>
  uint32_t Find(uint32_t hash, Matches matches) const {
    if (table_.empty()) return kNone;
    for (std::size_t i = Home(hash); table_[i].slot != kNone; i = Next(i))
      if (table_[i].hash == hash && matches(table_[i].slot)) return table_[i].slot;
    return kNone;
  }
  void Insert(uint32_t hash, uint32_t slot);
  // Removes the entry of `slot`; nothing when it has none.
  void Remove(uint32_t hash, uint32_t slot);
  void Clear();
  std::size_t size() const { return used_; }

 private:
  struct Entry {
    uint32_t slot = kNone;
    uint32_t hash = 0;
  };
  // Any table size works: the hash scaled to it is the first position.
  std::size_t Home(uint32_t hash) const { return static_cast<std::size_t>(uint64_t{hash} * table_.size() >> 32); }
  std::size_t Next(std::size_t i) const { return i + 1 == table_.size() ? 0 : i + 1; }
  void Resize(std::size_t capacity);

  std::vector<Entry> table_;
  std::size_t used_ = 0;
};

}  // namespace korvane
