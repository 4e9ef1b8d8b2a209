#include "store/record_index.h"

#include <utility>

namespace korvane {

namespace {
constexpr std::size_t kFirstCapacity = 64;
}  // namespace

void RecordIndex::Insert(uint32_t hash, uint32_t slot) {
  // At most four fifths full (linear probing stays short with the hashes
  // kept in the table), growing by half.
  if (table_.empty())
    Resize(kFirstCapacity);
  else if ((used_ + 1) * 5 > table_.size() * 4)
    Resize(table_.size() * 3 / 2);
  std::size_t i = Home(hash);
  while (table_[i].slot != kNone) i = Next(i);
  table_[i] = {slot, hash};
  ++used_;
}

void RecordIndex::Remove(uint32_t hash, uint32_t slot) {
  if (table_.empty()) return;
  std::size_t i = Home(hash);
  while (table_[i].slot != slot) {
    if (table_[i].slot == kNone) return;
    i = Next(i);
  }
  // Shift the entries after the hole back where their probe allows it, so
  // that no search stops early at the hole.
  for (std::size_t j = Next(i); table_[j].slot != kNone; j = Next(j)) {
    const std::size_t home = Home(table_[j].hash);
    const bool movable = i <= j ? (home <= i || home > j) : (home <= i && home > j);
    if (movable) {
      table_[i] = table_[j];
      i = j;
    }
  }
  table_[i] = Entry{};
  --used_;
  if (table_.size() > kFirstCapacity && used_ * 8 < table_.size()) Resize(table_.size() / 2);
}

void RecordIndex::Clear() {
  table_.clear();
  table_.shrink_to_fit();
  used_ = 0;
}

void RecordIndex::Resize(std::size_t capacity) {
  std::vector<Entry> old = std::move(table_);
  table_.assign(capacity, Entry{});
  for (const Entry& entry : old) {
    if (entry.slot == kNone) continue;
    std::size_t i = Home(entry.hash);
    while (table_[i].slot != kNone) i = Next(i);
    table_[i] = entry;
  }
}

}  // namespace korvane
