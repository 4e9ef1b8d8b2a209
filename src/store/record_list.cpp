#include "store/record_list.h"

#include <algorithm>
#include <utility>

namespace korvane {

namespace {
bool IsZoneRecord(const clDNSRecord& r) {
  return r.Permanent && (r.RecType == RecordType::kNS || r.RecType == RecordType::kSOA);
}

void RemoveIterator(std::vector<RecordList::iterator>& from, RecordList::iterator it) {
  auto found = std::find(from.begin(), from.end(), it);
  if (found != from.end()) from.erase(found);
}
}  // namespace

RecordList::RecordList(const RecordList& other) {
  for (const clDNSRecord& r : other) Append(r);
}

RecordList& RecordList::operator=(const RecordList& other) {
  if (this != &other) {
    Clear();
    for (const clDNSRecord& r : other) Append(r);
  }
  return *this;
}

RecordList::iterator RecordList::Append(clDNSRecord record) {
  std::vector<iterator>& slot = byName_[record.Name];
  records_.push_back(std::move(record));
  iterator it = std::prev(records_.end());
  slot.push_back(it);
  if (IsZoneRecord(*it)) zoneRecords_.push_back(it);
  if (!it->Permanent) ++cached_;
  if (!it->Permanent && it->TimeOut(0) < earliestExpiry_) earliestExpiry_ = it->TimeOut(0);
  return it;
}

RecordList::iterator RecordList::Erase(iterator it) {
  auto slot = byName_.find(it->Name);
  if (slot != byName_.end()) {
    RemoveIterator(slot->second, it);
    // Empty slots would pile up as cached names come and go.
    if (slot->second.empty()) byName_.erase(slot);
  }
  if (IsZoneRecord(*it)) RemoveIterator(zoneRecords_, it);
  if (!it->Permanent) --cached_;
  return records_.erase(it);
}

void RecordList::Clear() {
  byName_.clear();
  zoneRecords_.clear();
  records_.clear();
  earliestExpiry_ = kNever;
  cached_ = 0;
}

const std::vector<RecordList::iterator>& RecordList::Named(const std::string& name) const {
  static const std::vector<iterator> kNone;
  auto slot = byName_.find(name);
  return slot == byName_.end() ? kNone : slot->second;
}

}  // namespace korvane
