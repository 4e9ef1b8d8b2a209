// The record list: permanent and cached records in the order they were
// added. Every walk sees records in list order, and so does the walk along
// one owner name (Named), which costs the records of that name only.
//
// Records live in slots of fixed chunks, so a record never moves while it is
// in the list. Names and data are interned in the list's own pool: a name
// held by many records is stored once. The records of a name with many of
// them are also indexed by type and data, so that CacheAdd finds the one it
// refreshes without walking them all.
//
// Change Name, Data, RecType or Permanent of a listed record only by erasing
// it and appending a new one. A cached record's expiry may only be moved
// later while it is in the list (the earliest-expiry bound).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "store/record.h"
#include "store/record_index.h"
#include "store/text_pool.h"

namespace korvane {

class RecordList {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;

  template <bool kConst>
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = clDNSRecord;
    using difference_type = std::ptrdiff_t;
    using List = std::conditional_t<kConst, const RecordList, RecordList>;
    using reference = std::conditional_t<kConst, const clDNSRecord&, clDNSRecord&>;
    using pointer = std::conditional_t<kConst, const clDNSRecord*, clDNSRecord*>;

    Iterator() = default;
    Iterator(List* list, uint32_t slot) : list_(list), slot_(slot) {}
    // An iterator converts to a const_iterator.
    template <bool kOther, class = std::enable_if_t<kConst && !kOther>>
    Iterator(const Iterator<kOther>& other) : list_(other.list_), slot_(other.slot_) {}

    reference operator*() const { return list_->At(slot_); }
    pointer operator->() const { return &list_->At(slot_); }
    Iterator& operator++() {
      slot_ = list_->At(slot_).next_;
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.slot_ == b.slot_; }
    uint32_t slot() const { return slot_; }

   private:
    template <bool>
    friend class Iterator;
    List* list_ = nullptr;
    uint32_t slot_ = kNone;
  };
  using iterator = Iterator<false>;
  using const_iterator = Iterator<true>;

  // The records of one owner name in list order; each element is a
  // const_iterator into the list.
  class NameRange {
   public:
    class Walk {
     public:
      using iterator_category = std::input_iterator_tag;
      using value_type = const_iterator;
      using difference_type = std::ptrdiff_t;
      using pointer = const const_iterator*;
      using reference = const_iterator;

      Walk() = default;
      Walk(const RecordList* list, uint32_t slot, uint32_t last) : list_(list), slot_(slot), last_(last) {}
      const_iterator operator*() const { return {list_, slot_}; }
      Walk& operator++() {
        slot_ = slot_ == last_ ? kNone : list_->At(slot_).nextSame_;
        return *this;
      }
      friend bool operator==(const Walk& a, const Walk& b) { return a.slot_ == b.slot_; }

     private:
      const RecordList* list_ = nullptr;
      uint32_t slot_ = kNone, last_ = kNone;
    };
    NameRange(const RecordList* list, uint32_t last) : list_(list), last_(last) {}
    Walk begin() const { return {list_, last_ == kNone ? kNone : list_->At(last_).nextSame_, last_}; }
    Walk end() const { return {}; }
    bool empty() const { return last_ == kNone; }
    std::size_t size() const { return static_cast<std::size_t>(std::distance(begin(), end())); }

   private:
    const RecordList* list_;
    uint32_t last_;
  };

  RecordList() = default;
  // A copy gets a pool and indexes of its own.
  RecordList(const RecordList& other);
  RecordList& operator=(const RecordList& other);
  RecordList(RecordList&& other) noexcept;
  RecordList& operator=(RecordList&& other) noexcept;
  ~RecordList();

  iterator begin() { return {this, head_}; }
  iterator end() { return {this, kNone}; }
  const_iterator begin() const { return {this, head_}; }
  const_iterator end() const { return {this, kNone}; }
  std::size_t size() const { return size_; }
  // The records that are not permanent.
  std::size_t CachedCount() const { return cached_; }
  bool empty() const { return size_ == 0; }

  // Appends at the end of the list.
  iterator Append(clDNSRecord record);
  // Removes one record; returns the one after it. Costs the records of its
  // name; EraseIf removes many in one pass over the list.
  iterator Erase(iterator it);
  // Removes every record for which `remove` holds.
  void EraseIf(const std::function<bool(const clDNSRecord&)>& remove);
  void Clear();

  // The records whose Name equals `name` exactly, in list order.
  NameRange Named(std::string_view name) const;
  // The permanent NS and SOA records in list order (the authority test).
  const std::vector<iterator>& PermanentZoneRecords() const { return zoneRecords_; }

  // No cached record expires before this moment (a lower bound), so a clean-up
  // before it has nothing to remove.
  DateTime EarliestExpiry() const { return earliestExpiry_; }
  void SetEarliestExpiry(DateTime when) { earliestExpiry_ = when; }

  // --- For CacheAdd and the loaders. ---------------------------------------
  // The list's shared copy of a name (always a node) or of record data
  // (inline when short). Interned texts make Append and the searches below
  // cheaper; any text works.
  SharedText InternName(std::string_view name) { return pool_.Intern(name); }
  SharedText InternName(const SharedText& name) { return pool_.Intern(name); }
  SharedText InternData(std::string_view data) { return pool_.InternData(data); }
  SharedText InternData(const SharedText& data) { return pool_.InternData(data); }
  // Lets go of the interned texts no record (nor anything else) holds any
  // more, such as those of records read but never added.
  void DropUnusedTexts() { pool_.Sweep(); }
  // Append for a record whose Name and Data come from InternName and
  // InternData.
  iterator AppendInterned(clDNSRecord record) { return Link(std::move(record)); }
  // The first record of this name, type and data in list order; end() when
  // none. `name` must be this list's own (InternName).
  iterator FindRecord(const SharedText& name, int type, const SharedText& data);
  // Lets go of the indexes of crowded names; a name's index is built again
  // when FindRecord next walks it. After a bulk load: a blocklist's reverse
  // name is not searched again until the next load.
  void DropIndexes();
  // Removes the records of `name` (this list's own) before `stop` (all of
  // them when `stop` is end()) that are a name error, or `type`'s negative
  // entry.
  void RemoveNegativesBefore(const SharedText& name, int type, iterator stop);

 private:
  template <bool>
  friend class Iterator;
  using Node = SharedText::Node;
  struct NegativeKey {
    const Node* name;
    int type;
    bool operator==(const NegativeKey&) const = default;
  };
  struct NegativeHash {
    std::size_t operator()(const NegativeKey& key) const {
      return std::hash<const void*>()(key.name) * 31 + static_cast<std::size_t>(key.type);
    }
  };

  static constexpr unsigned kChunkBits = 12;
  clDNSRecord& At(uint32_t slot) { return chunks_[slot >> kChunkBits][slot & ((1u << kChunkBits) - 1)]; }
  const clDNSRecord& At(uint32_t slot) const {
    return chunks_[slot >> kChunkBits][slot & ((1u << kChunkBits) - 1)];
  }
  uint32_t NewSlot();
  static uint32_t KeyHash(const Node* name, int type, std::string_view data);
  // Links a record whose name and data are this list's own.
  iterator Link(clDNSRecord&& record);
  // Appends the record in `slot` to its name's ring.
  void JoinName(uint32_t slot);
  // Takes the record in `slot` out of the list's order, the index and the
  // counts; its name's ring is the caller's.
  void LeaveList(uint32_t slot);
  // Takes the record out altogether; `previousSameName` is the one before it
  // in its name's ring (itself when it is alone there).
  void Unlink(uint32_t slot, uint32_t previousSameName);
  void Release(uint32_t slot);
  void IndexName(Node* name);
  bool HasNegative(const Node* name, int type) const;
  void CountNegative(const clDNSRecord& record, int change);
  void CopyFrom(const RecordList& other);

  std::vector<std::unique_ptr<clDNSRecord[]>> chunks_;
  uint32_t slotsUsed_ = 0;   // slots ever handed out
  uint32_t freeSlots_ = kNone;
  uint32_t head_ = kNone, tail_ = kNone;
  std::size_t size_ = 0;
  std::size_t cached_ = 0;
  TextPool pool_;
  RecordIndex index_;
  std::unordered_map<NegativeKey, uint32_t, NegativeHash> negatives_;  // records of type 1000 and up
  std::vector<iterator> zoneRecords_;
  DateTime earliestExpiry_ = kNever;

  static constexpr DateTime kNever = 1e300;
};

}  // namespace korvane
