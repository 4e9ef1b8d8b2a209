#include "store/record_list.h"

#include <algorithm>
#include <utility>

namespace korvane {

namespace {

// Names with more records than this get their records indexed; fewer are
// walked, which is cheaper than hashing.
constexpr uint32_t kIndexFrom = 16;

bool IsZoneRecord(const clDNSRecord& r) {
  return r.Permanent && (r.RecType == RecordType::kNS || r.RecType == RecordType::kSOA);
}

bool IsNegativeFor(int entryType, int type) {
  return entryType == RecordType::kNameError || entryType == type + RecordType::kNegativeBase;
}

}  // namespace

RecordList::RecordList(const RecordList& other) { CopyFrom(other); }

RecordList& RecordList::operator=(const RecordList& other) {
  if (this != &other) {
    Clear();
    CopyFrom(other);
  }
  return *this;
}

RecordList::RecordList(RecordList&& other) noexcept { *this = std::move(other); }

RecordList& RecordList::operator=(RecordList&& other) noexcept {
  if (this == &other) return *this;
  Clear();
  chunks_ = std::move(other.chunks_);
  slotsUsed_ = std::exchange(other.slotsUsed_, 0);
  freeSlots_ = std::exchange(other.freeSlots_, kNone);
  head_ = std::exchange(other.head_, kNone);
  tail_ = std::exchange(other.tail_, kNone);
  size_ = std::exchange(other.size_, 0);
  cached_ = std::exchange(other.cached_, 0);
  pool_ = std::move(other.pool_);
  index_ = std::move(other.index_);
  negatives_ = std::move(other.negatives_);
  earliestExpiry_ = std::exchange(other.earliestExpiry_, kNever);
  // The zone list's iterators name their list.
  zoneRecords_.clear();
  for (iterator it : other.zoneRecords_) zoneRecords_.push_back({this, it.slot()});
  other.chunks_.clear();
  other.zoneRecords_.clear();
  other.negatives_.clear();
  other.index_.Clear();
  return *this;
}

RecordList::~RecordList() { Clear(); }

void RecordList::CopyFrom(const RecordList& other) {
  for (const clDNSRecord& r : other) Append(r);
  earliestExpiry_ = other.earliestExpiry_;
}

void RecordList::Clear() {
  // Records first: they hold references into the pool.
  chunks_.clear();
  slotsUsed_ = 0;
  freeSlots_ = head_ = tail_ = kNone;
  size_ = 0;
  cached_ = 0;
  index_.Clear();
  negatives_.clear();
  zoneRecords_.clear();
  pool_.Clear();
  earliestExpiry_ = kNever;
}

uint32_t RecordList::NewSlot() {
  if (freeSlots_ != kNone) {
    const uint32_t slot = freeSlots_;
    freeSlots_ = At(slot).next_;
    return slot;
  }
  if ((slotsUsed_ >> kChunkBits) == chunks_.size())
    chunks_.push_back(std::make_unique<clDNSRecord[]>(std::size_t{1} << kChunkBits));
  return slotsUsed_++;
}

uint32_t RecordList::KeyHash(const Node* name, int type, std::string_view data) {
  const uint64_t hash = HashText(data) ^ (reinterpret_cast<uintptr_t>(name) * 0x9e3779b97f4a7c15ull) ^
                        (static_cast<uint64_t>(static_cast<uint16_t>(type)) << 17);
  return static_cast<uint32_t>(hash ^ (hash >> 32));
}

RecordList::iterator RecordList::Append(clDNSRecord record) {
  record.Name = pool_.Intern(record.Name);
  record.Data = pool_.InternData(record.Data);
  return Link(std::move(record));
}

RecordList::iterator RecordList::Link(clDNSRecord&& record) {
  const uint32_t slot = NewSlot();
  clDNSRecord& r = At(slot);
  r = std::move(record);
  r.prev_ = tail_;
  r.next_ = kNone;
  (tail_ == kNone ? head_ : At(tail_).next_) = slot;
  tail_ = slot;
  Node* name = r.Name.node();
  JoinName(slot);
  if (name->sizeAndFlags & Node::kIndexed) index_.Insert(KeyHash(name, r.RecType, r.Data), slot);
  CountNegative(r, +1);
  ++size_;
  if (!r.Permanent) ++cached_;
  iterator it{this, slot};
  if (IsZoneRecord(r)) zoneRecords_.push_back(it);
  if (!r.Permanent && r.TimeOut(0) < earliestExpiry_) earliestExpiry_ = r.TimeOut(0);
  return it;
}

void RecordList::JoinName(uint32_t slot) {
  // The name's records form a ring that its node holds by the last one.
  clDNSRecord& r = At(slot);
  Node* name = r.Name.node();
  if (name->tail == kNone) {
    r.nextSame_ = slot;
  } else {
    clDNSRecord& last = At(name->tail);
    r.nextSame_ = last.nextSame_;
    last.nextSame_ = slot;
  }
  name->tail = slot;
}

void RecordList::LeaveList(uint32_t slot) {
  clDNSRecord& r = At(slot);
  (r.prev_ == kNone ? head_ : At(r.prev_).next_) = r.next_;
  (r.next_ == kNone ? tail_ : At(r.next_).prev_) = r.prev_;
  Node* name = r.Name.node();
  if (name->sizeAndFlags & Node::kIndexed) index_.Remove(KeyHash(name, r.RecType, r.Data), slot);
  CountNegative(r, -1);
  if (!r.Permanent) --cached_;
}

void RecordList::Unlink(uint32_t slot, uint32_t previousSameName) {
  LeaveList(slot);
  clDNSRecord& r = At(slot);
  Node* name = r.Name.node();
  if (previousSameName == slot) {
    name->tail = kNone;
  } else {
    At(previousSameName).nextSame_ = r.nextSame_;
    if (name->tail == slot) name->tail = previousSameName;
  }
  if (IsZoneRecord(r)) {
    auto found = std::find(zoneRecords_.begin(), zoneRecords_.end(), iterator{this, slot});
    if (found != zoneRecords_.end()) zoneRecords_.erase(found);
  }
  Release(slot);
}

void RecordList::Release(uint32_t slot) {
  clDNSRecord& r = At(slot);
  r.Name = SharedText();
  r.Data = SharedText();
  pool_.NoteReleased(1);
  r.next_ = freeSlots_;
  freeSlots_ = slot;
  --size_;
}

RecordList::iterator RecordList::Erase(iterator it) {
  const uint32_t slot = it.slot();
  const uint32_t next = At(slot).next_;
  uint32_t previous = At(slot).Name.node()->tail;
  while (At(previous).nextSame_ != slot) previous = At(previous).nextSame_;
  Unlink(slot, previous);
  return {this, next};
}

void RecordList::EraseIf(const std::function<bool(const clDNSRecord&)>& remove) {
  // One pass: every name's ring is built again from the records that stay,
  // so no removal has to look for its predecessor.
  pool_.ForEach([](Node* name) { name->tail = kNone; });
  zoneRecords_.clear();
  for (uint32_t slot = head_; slot != kNone;) {
    const clDNSRecord& r = At(slot);
    const uint32_t next = r.next_;
    if (remove(r)) {
      LeaveList(slot);
      Release(slot);
    } else {
      JoinName(slot);
      if (IsZoneRecord(r)) zoneRecords_.push_back({this, slot});
    }
    slot = next;
  }
}

RecordList::NameRange RecordList::Named(std::string_view name) const {
  const Node* node = pool_.Find(name);
  return {this, node ? node->tail : kNone};
}

void RecordList::IndexName(Node* name) {
  name->sizeAndFlags |= Node::kIndexed;
  const uint32_t last = name->tail;
  for (uint32_t slot = At(last).nextSame_;; slot = At(slot).nextSame_) {
    const clDNSRecord& r = At(slot);
    index_.Insert(KeyHash(name, r.RecType, r.Data), slot);
    if (slot == last) break;
  }
}

void RecordList::DropIndexes() {
  if (index_.size() == 0) return;
  pool_.ForEach([](Node* name) { name->sizeAndFlags &= ~Node::kIndexed; });
  index_.Clear();
}

RecordList::iterator RecordList::FindRecord(const SharedText& name, int type, const SharedText& data) {
  Node* node = name.node();
  if (!node || node->tail == kNone) return end();
  const auto matches = [&](uint32_t slot) {
    const clDNSRecord& r = At(slot);
    return r.RecType == type && r.Data == data;
  };
  if (node->sizeAndFlags & Node::kIndexed) {
    // Equal keys hash alike; the first in list order is the one CacheAdd
    // meets, and the list never holds two (CacheAdd refreshes instead).
    return {this, index_.Find(KeyHash(node, type, data), [&](uint32_t slot) {
              return matches(slot) && At(slot).Name.node() == node;
            })};
  }
  uint32_t walked = 0;
  const uint32_t last = node->tail;
  for (uint32_t slot = At(last).nextSame_;; slot = At(slot).nextSame_) {
    ++walked;
    if (matches(slot)) return {this, slot};
    if (slot == last) break;
  }
  if (walked > kIndexFrom) IndexName(node);
  return end();
}

void RecordList::RemoveNegativesBefore(const SharedText& name, int type, iterator stop) {
  Node* node = name.node();
  if (!node || node->tail == kNone) return;
  if (!HasNegative(node, RecordType::kNameError) && !HasNegative(node, type + RecordType::kNegativeBase))
    return;
  uint32_t previous = node->tail;
  while (node->tail != kNone) {
    const uint32_t slot = At(previous).nextSame_;
    if (slot == stop.slot()) return;
    const bool last = slot == node->tail;
    if (IsNegativeFor(At(slot).RecType, type))
      Unlink(slot, previous);
    else
      previous = slot;
    if (last) return;
  }
}

bool RecordList::HasNegative(const Node* name, int type) const {
  if (negatives_.empty() || type < RecordType::kNegativeBase) return false;
  return negatives_.count(NegativeKey{name, type}) > 0;
}

void RecordList::CountNegative(const clDNSRecord& record, int change) {
  if (record.RecType < RecordType::kNegativeBase) return;
  const NegativeKey key{record.Name.node(), record.RecType};
  if (change > 0) {
    ++negatives_[key];
  } else if (auto found = negatives_.find(key); found != negatives_.end() && --found->second == 0) {
    negatives_.erase(found);
  }
}

}  // namespace korvane
