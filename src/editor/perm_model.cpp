#include "editor/perm_model.h"

#include <algorithm>

#include "store/record.h"
#include "wire/clean_name.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"

namespace korvane {

namespace modEditor {

namespace {

bool IsDomainEntry(const clPermRec& entry) { return entry.RecType == RecordType::kSOA; }

// The labels of `owner` before `domain` ("" when they are the same).
std::string HostPart(const std::string& owner, const std::string& domain) {
  if (owner == domain) return "";
  if (domain.empty()) return owner;
  return owner.substr(0, owner.size() - domain.size() - 1);
}

std::string AuthorityText(int32_t pref) {
  switch (pref) {
    case kAuthorityPrimary: return "Primary";
    case kAuthoritySecondary: return "Secondary";
    default: return "None";
  }
}

}  // namespace

std::string OwnerOf(const clPermRec& entry) {
  if (IsDomainEntry(entry)) return modMain::CleanName(entry.Domain);
  return modMain::CleanName(entry.Name + "." + entry.Domain);
}

std::string DomainCaption(const std::string& domain) { return domain.empty() ? "<root>" : domain; }

bool InDomain(const std::string& name, const std::string& domain) {
  if (domain.empty() || name == domain) return true;
  return name.size() > domain.size() && name.compare(name.size() - domain.size(), domain.size(), domain) == 0 &&
         name[name.size() - domain.size() - 1] == '.';
}

PermRow RowOf(const clPermRec& entry, int id, const std::string& shown) {
  PermRow row;
  row.id = id;
  if (IsDomainEntry(entry)) {
    row.type = "Domain";
    row.name = HostPart(entry.Domain, shown);
    row.data = "Authority: " + AuthorityText(entry.Pref);
    row.domain = true;
    return row;
  }
  row.name = modMain::CleanName(entry.Name);
  switch (entry.RecType) {
    case RecordType::kA:
      row.type = "A";
      row.data = modIP::DataToIP(entry.Data);
      break;
    case RecordType::kMX:
      row.type = "MX";
      row.data = std::to_string(entry.Pref) + " " + modMain::CleanName(entry.Data);
      break;
    case RecordType::kDHCP:
      row.type = "DHCP";
      row.data = modIP::DataToIP(entry.Data.substr(0, 4)) + " - " +
                 modIP::DataToIP(entry.Data.size() >= 8 ? entry.Data.substr(4, 4) : std::string());
      break;
    default:
      row.type = modDNS::RTypeN(entry.RecType);
      row.data = modMain::CleanName(entry.Data);
      break;
  }
  return row;
}

uint32_t NextSerial(uint32_t serial) { return serial >= 2147483647u || serial == 0 ? 1 : serial + 1; }

PermModel::PermModel(std::vector<clPermRec> entries) {
  for (clPermRec& entry : entries) {
    if (IsDomainEntry(entry)) entry.Domain = modMain::CleanName(entry.Domain);
    items_.push_back({nextId_++, std::move(entry)});
  }
  if (!HasDomain("")) items_.insert(items_.begin(), {nextId_++, {RecordType::kSOA, "", "", "", 0, 0}});
}

int PermModel::IndexOf(int id) const {
  for (std::size_t i = 0; i < items_.size(); ++i)
    if (items_[i].id == id) return static_cast<int>(i);
  return -1;
}

const clPermRec* PermModel::Entry(int id) const {
  int index = IndexOf(id);
  return index < 0 ? nullptr : &items_[index].rec;
}

std::vector<clPermRec> PermModel::Entries() const {
  std::vector<clPermRec> entries;
  for (const Item& item : items_) entries.push_back(item.rec);
  return entries;
}

std::vector<int> PermModel::Ids() const {
  std::vector<int> ids;
  for (const Item& item : items_) ids.push_back(item.id);
  return ids;
}

void PermModel::RaiseSerials(std::vector<Item>& items) const {
  for (Item& item : items) {
    const clPermRec& rec = item.rec;
    if (!IsDomainEntry(rec) || rec.Pref < kAuthorityPrimary || !changedDomains_.count(rec.Domain) ||
        newDomains_.count(rec.Domain))
      continue;
    modDNS::SoaData soa = modDNS::SoaData::Parse(rec.Data);
    soa.Serial = NextSerial(soa.Serial);
    item.rec.Data = soa.Pack();
  }
}

std::vector<clPermRec> PermModel::ForSave() const {
  std::vector<Item> items = items_;
  RaiseSerials(items);
  std::vector<clPermRec> entries;
  for (Item& item : items) entries.push_back(std::move(item.rec));
  return entries;
}

void PermModel::Saved() {
  RaiseSerials(items_);
  changedDomains_.clear();
  newDomains_.clear();
  changed_ = false;
}

void PermModel::MarkChanged(const std::string& domain) {
  changed_ = true;
  changedDomains_.insert(domain);
}

bool PermModel::SetCurDomain(const std::string& domain) {
  if (!HasDomain(domain)) return false;
  curDomain_ = domain;
  curItem_ = 0;
  return true;
}

bool PermModel::UpOneLevel() {
  if (curDomain_.empty()) return false;
  return SetCurDomain(ParentDomain(curDomain_));
}

std::vector<std::string> PermModel::Domains() const {
  std::vector<std::string> domains;
  for (const Item& item : items_)
    if (IsDomainEntry(item.rec)) domains.push_back(item.rec.Domain);
  std::sort(domains.begin(), domains.end());
  domains.erase(std::unique(domains.begin(), domains.end()), domains.end());
  return domains;
}

bool PermModel::HasDomain(const std::string& domain) const { return DomainEntry(domain) != 0; }

int PermModel::DomainEntry(const std::string& domain) const {
  for (const Item& item : items_)
    if (IsDomainEntry(item.rec) && item.rec.Domain == domain) return item.id;
  return 0;
}

std::string PermModel::DomainFor(const std::string& owner) const {
  std::string best;
  for (const Item& item : items_)
    if (IsDomainEntry(item.rec) && item.rec.Domain.size() > best.size() && InDomain(owner, item.rec.Domain))
      best = item.rec.Domain;
  return best;
}

std::string PermModel::ParentDomain(const std::string& domain) const {
  const std::size_t dot = domain.find('.');
  return dot == std::string::npos ? "" : DomainFor(domain.substr(dot + 1));
}

void PermModel::Rehome() {
  for (Item& item : items_) {
    if (IsDomainEntry(item.rec)) continue;
    const std::string owner = OwnerOf(item.rec);
    std::string domain = DomainFor(owner);
    if (domain == item.rec.Domain && item.rec.Name == HostPart(owner, domain)) continue;
    MarkChanged(item.rec.Domain);
    item.rec.Name = HostPart(owner, domain);
    item.rec.Domain = std::move(domain);
    MarkChanged(item.rec.Domain);
  }
}

void PermModel::RenameDomain(const std::string& from, const std::string& to) {
  for (Item& item : items_) {
    std::string& domain = item.rec.Domain;
    if (from.empty() || !InDomain(domain, from)) continue;
    // The labels before `from` (with their dot) stay in front of `to`.
    domain = domain.substr(0, domain.size() - from.size()) + to;
    MarkChanged(domain);
  }
  if (InDomain(curDomain_, from)) curDomain_ = curDomain_.substr(0, curDomain_.size() - from.size()) + to;
}

int PermModel::Insert(clPermRec entry, std::size_t at) {
  const int id = nextId_++;
  items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(at), {id, std::move(entry)});
  return id;
}

int PermModel::AddRec(clPermRec entry, int replacing) {
  const int replaced = replacing ? IndexOf(replacing) : -1;
  if (replacing && replaced < 0) return 0;
  const bool domainEntry = IsDomainEntry(entry);
  if (domainEntry) {
    entry.Domain = modMain::CleanName(entry.Domain);
    entry.Name.clear();
  } else {
    if (!HasDomain(entry.Domain)) return 0;
    const std::string owner = OwnerOf(entry);
    entry.Domain = DomainFor(owner);
    entry.Name = HostPart(owner, entry.Domain);
  }
  MarkChanged(entry.Domain);
  int id;
  if (replaced >= 0) {
    const clPermRec old = items_[replaced].rec;
    MarkChanged(old.Domain);
    items_[replaced].rec = entry;
    id = replacing;
    if (domainEntry && IsDomainEntry(old) && old.Domain != entry.Domain) {
      RenameDomain(old.Domain, entry.Domain);
      if (newDomains_.erase(old.Domain)) newDomains_.insert(entry.Domain);
    }
  } else {
    std::size_t at = items_.size();
    for (std::size_t i = 0; i < items_.size(); ++i)
      if (items_[i].rec.Domain == entry.Domain) at = i + 1;
    if (domainEntry) newDomains_.insert(entry.Domain);
    id = Insert(std::move(entry), at);
  }
  if (domainEntry) Rehome();
  return id;
}

std::vector<PermRow> PermModel::RefreshList() const {
  std::vector<PermRow> domains, records;
  for (const Item& item : items_) {
    const clPermRec& rec = item.rec;
    if (IsDomainEntry(rec)) {
      if (rec.Domain == curDomain_ || rec.Domain.empty()) continue;
      if (ParentDomain(rec.Domain) == curDomain_) domains.push_back(RowOf(rec, item.id, curDomain_));
    } else if (rec.Domain == curDomain_) {
      records.push_back(RowOf(rec, item.id, curDomain_));
    }
  }
  std::sort(domains.begin(), domains.end(), [](const PermRow& a, const PermRow& b) { return a.name < b.name; });
  domains.insert(domains.end(), records.begin(), records.end());
  return domains;
}

bool PermModel::Delete(int id) {
  const int index = IndexOf(id);
  if (index < 0) return false;
  const clPermRec gone = items_[index].rec;
  if (!IsDomainEntry(gone)) {
    items_.erase(items_.begin() + index);
    MarkChanged(gone.Domain);
  } else {
    if (gone.Domain.empty()) return false;
    std::erase_if(items_, [&](const Item& item) { return InDomain(item.rec.Domain, gone.Domain); });
    MarkChanged(ParentDomain(gone.Domain));
    if (InDomain(curDomain_, gone.Domain)) curDomain_ = DomainFor(curDomain_);
  }
  if (!Entry(curItem_)) curItem_ = 0;
  return true;
}

}  // namespace modEditor

}  // namespace korvane
