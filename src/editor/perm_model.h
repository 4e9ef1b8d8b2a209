// The record editor's list: the entries read from the record file, the
// domain shown and the entry selected, the rows of one domain level, adding,
// replacing and deleting entries, and what the save hands to the writer.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "store/perm_rec.h"

namespace korvane {

namespace modEditor {

// The domain entry's authority, kept in its Pref (the writer writes an SOA
// line from 1 up).
enum Authority : int32_t { kAuthorityNone = 0, kAuthorityPrimary = 1, kAuthoritySecondary = 2 };

// One row of the list: the texts of its three columns and the entry behind it.
struct PermRow {
  std::string type;
  std::string name;
  std::string data;
  int id = 0;
  bool domain = false;  // a sub-domain row: opening it shows that domain
};

// The full owner name of an entry, cleaned, without the final dot ("" for the root).
std::string OwnerOf(const clPermRec& entry);
// "<root>" for the root, else the domain.
std::string DomainCaption(const std::string& domain);
// `name` is `domain` or lies below it, label by label ("" holds every name).
bool InDomain(const std::string& name, const std::string& domain);

class PermModel {
 public:
  PermModel() = default;
  // The root is a domain even when `entries` have no entry for it.
  explicit PermModel(std::vector<clPermRec> entries);

  // What the writer gets: the entries in list order, each changed domain's
  // serial raised by one (a domain made since the last save keeps its 1).
  std::vector<clPermRec> ForSave() const;
  // After a save that worked: the raised serials are kept and nothing counts
  // as changed any more.
  void Saved();
  // Something was added, replaced or deleted since the last save.
  bool Changed() const { return changed_; }

  // The entry with this id, or null.
  const clPermRec* Entry(int id) const;
  // The entries as they stand, in list order.
  std::vector<clPermRec> Entries() const;
  // Ids in list order.
  std::vector<int> Ids() const;

  // The shown domain ("" for the root).
  const std::string& CurDomain() const { return curDomain_; }
  // Only an existing domain can be shown; false otherwise.
  bool SetCurDomain(const std::string& domain);
  // Shows the parent of the shown domain: the longest other domain above it.
  // False at the root.
  bool UpOneLevel();
  // The selected entry's id (0: none).
  int CurItem() const { return curItem_; }
  void SetCurItem(int id) { curItem_ = Entry(id) ? id : 0; }

  // Every domain, sorted, the root ("") first.
  std::vector<std::string> Domains() const;
  bool HasDomain(const std::string& domain) const;
  // The id of the domain entry of `domain` (0: none).
  int DomainEntry(const std::string& domain) const;
  // The longest domain that holds `owner` ("" at least).
  std::string DomainFor(const std::string& owner) const;
  // The longest domain above `domain` ("" for a domain of one label).
  std::string ParentDomain(const std::string& domain) const;

  // Puts an entry built by a dialog into the list: in place of `replacing`
  // when that is not 0, else after the last entry of its domain. Domain and
  // Name are set again from the owner so that the entry lies in the longest
  // domain that holds it. A new domain takes over the entries that now lie
  // in it; a domain renamed takes its entries with it. Returns the entry's
  // id, or 0 when `replacing` is no longer in the list or the entry's domain
  // has gone (deleted meanwhile): nothing changes then.
  int AddRec(clPermRec entry, int replacing = 0);

  // The rows of the shown domain: its sub-domains (by name), then its
  // entries in list order.
  std::vector<PermRow> RefreshList() const;

  // Removes the entry; a domain entry takes everything in it and below.
  // False when there is no such entry, or for the root.
  bool Delete(int id);

 private:
  struct Item {
    int id;
    clPermRec rec;
  };
  int IndexOf(int id) const;
  void MarkChanged(const std::string& domain);
  // Moves entries to the longest domain that holds them.
  void Rehome();
  // Raises the serial of each changed domain that was there at the last save.
  void RaiseSerials(std::vector<Item>& items) const;
  void RenameDomain(const std::string& from, const std::string& to);
  int Insert(clPermRec entry, std::size_t at);

  std::vector<Item> items_;
  int nextId_ = 1;
  std::string curDomain_;
  int curItem_ = 0;
  bool changed_ = false;
  std::set<std::string> changedDomains_;
  std::set<std::string> newDomains_;
};

// The row texts of one entry as the domain `shown` lists it: a sub-domain
// by the labels before `shown`, any other entry by its host part.
PermRow RowOf(const clPermRec& entry, int id, const std::string& shown);
// The serial after `serial`, within the 1..2147483647 the record file holds.
uint32_t NextSerial(uint32_t serial);

}  // namespace modEditor

}  // namespace korvane
