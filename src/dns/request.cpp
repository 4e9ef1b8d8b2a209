#include "dns/request.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "dns/local_names.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/zone_names.h"

namespace korvane {

using dnsnames::EndsWith;

clDNSRequest::clDNSRequest(RequestHost& host)
    : host_(host), store_(host.Store()), serial_(host.NewSerial()) {}

const std::vector<clDNSRecord>& clDNSRequest::Section(int section) const {
  static const std::vector<clDNSRecord> none;
  switch (section) {
    case 2: return answer_;
    case 3: return authority_;
    case 4: return additional_;
    default: return none;
  }
}

bool clDNSRequest::Check() {
  try {
    if (answered_) return true;
    if (waitingSub_) {
      if (host_.Holds(SubRequest)) return false;
      // The sub-request left without waking us (it failed): carry on.
      waitingSub_ = false;
      SubRequest = 0;
      regather_ = true;
    }
    const DateTime now = store_.clock.Now();
    if (currentName_.empty()) currentName_ = Name;

    Resolution found;
    Resolve(now, found);
    if (AA_) {
      if (!found.nameExists && answer_.empty())
        rcode_ = 3;
      else if (!found.complete && found.zoneRecord)
        SectionAdd(3, *found.zoneRecord);
      found.complete = true;
    }
    // The servers have said all they know of this name.
    if (!found.complete && !finalFor_.empty() && finalFor_ == currentName_) found.complete = true;
    return Conclude(found.complete, now);
  } catch (const std::exception& e) {
    ReportException(store_.errors, "clDNSReq Check", e);
    answered_ = true;
    return true;
  }
}

bool clDNSRequest::TakeOutcome(const ReplyOutcome& outcome) {
  if (!outcome.Useful) {
    // "Server Failure." is said without its full stop inside the give-up line.
    std::string code = modDNS::RCodeN(outcome.RCode);
    while (!code.empty() && (code.back() == '.' || code.back() == '!')) code.pop_back();
    return QueryFailed(code);
  }
  regather_ = true;
  EndQuery();
  lastDrop_ = Drop::kNone;
  if (outcome.Final) finalFor_ = outcome.Question;
  return Check();
}

bool clDNSRequest::QueryFailed(const std::string& why) {
  if (awaitingReply_) DropServer(true, why);
  TimeOut = store_.clock.Now();
  return Check();
}

void clDNSRequest::Resolve(DateTime now, Resolution& found) {
  AA_ = false;
  for (int hops = 0;; ++hops) {
    for (const auto& it : store_.records.PermanentZoneRecords()) {
      if (it->RootHint) continue;
      // Deliberately no test that the match starts at a label: authority is
      // a suffix match on whole strings, the rule this server has always
      // answered by, so "wwwexample.com." counts as inside "example.com.".
      // ((name + ".") ending in (zone + ".") is the names' own suffix test.)
      if (EndsWith(currentName_, it->Name)) {
        AA_ = true;
        found.zoneRecord = &*it;
      }
    }
    if (RecType == RecordType::kA || RecType == RecordType::kPTR) {
      std::size_t before = answer_.size();
      AddLeaseAnswers(now);
      if (answer_.size() > before) found.complete = true;
    }
    const SharedText* alias = AnswerFromRecords(found);
    if (!alias) return;
    if (hops >= kMaxAliasHops) {
      // An alias chain this long is a loop or an attack.
      rcode_ = 2;
      found.complete = true;
      return;
    }
    currentName_ = *alias;
  }
}

const SharedText* clDNSRequest::AnswerFromRecords(Resolution& found) {
  for (const auto& it : store_.records.Named(currentName_)) {
    const clDNSRecord& record = *it;
    found.nameExists = true;
    const int type = record.RecType;
    // For the counters: the answer rests on this record.
    auto used = [&] { fromCache_ = fromCache_ || !record.Permanent; };
    if (RecType == RecordType::kAll && type < RecordType::kNegativeBase) {
      used();
      SectionAdd(2, record);
      found.complete = true;
    } else if (type == RecType) {
      used();
      SectionAdd(2, record);
      found.complete = true;
      if (type == RecordType::kMX) AddAddl(record.Data);
    } else if (type == RecordType::kCNAME) {
      used();
      SectionAdd(2, record);
      return &record.Data;
    } else if (type == RecordType::kNameError || type - RecordType::kNegativeBase == RecType) {
      used();
      if (type == RecordType::kNameError) rcode_ = 3;
      found.complete = true;
      for (const auto& soa : store_.records.Named(record.Data)) {
        if (soa->RecType == RecordType::kSOA) {
          SectionAdd(3, *soa);
          break;
        }
      }
    }
  }
  return nullptr;
}

bool clDNSRequest::Conclude(bool complete, DateTime now) {
  if (!complete && RD && AnsweredWithoutAsking()) complete = true;
  if (complete || !RD) {
    if (store_.options.AUTOCNAME && CNAMERes()) return false;
    SendAnswer();
    answered_ = true;
    return true;
  }
  if (!Held && host_.Full()) {
    rcode_ = 2;
    SendAnswer();
    answered_ = true;
    return true;
  }
  if (ExtResolve()) {
    askedExternally_ = false;
    return false;
  }
  // Nothing is out any more. Silence may still be broken by a late answer
  // (another request's reply for the same name): that gets ten seconds; a
  // server that failed outright does not.
  const bool givenUp = askedExternally_ || lastDrop_ == Drop::kFailed;
  TimeOut = now + 10;
  askedExternally_ = true;
  if (givenUp) GiveUp(now);
  return givenUp;
}

void clDNSRequest::ClearSections() {
  answer_.clear();
  authority_.clear();
  additional_.clear();
}

void clDNSRequest::SendServerFailure() {
  ClearSections();
  rcode_ = 2;
  SendAnswer();
  answered_ = true;
}

bool clDNSRequest::AnsweredWithoutAsking() {
  const LocalName local = KeptLocal(currentName_, RecType, store_.options);
  if (local != LocalName::kNo) {
    if (local == LocalName::kNoSuchName) rcode_ = 3;
    return true;
  }
  if (IsSub() || host_.RecursionAllowed(FromIP)) return false;
  ClearSections();
  rcode_ = 5;
  return true;
}

void clDNSRequest::AddLeaseAnswers(DateTime now) {
  LeaseSource* leases = host_.Leases();
  if (!leases) return;
  auto remaining = [now](DateTime expires) {
    double seconds = std::nearbyint(expires - now);
    return static_cast<int32_t>(std::min(seconds, 2147483647.0));
  };
  if (RecType == RecordType::kA) {
    for (const LeaseView& lease : leases->LeasesNamed(currentName_)) {
      if (lease.Expires <= now) continue;
      clDNSRecord record;
      record.RecType = RecordType::kA;
      record.Name = currentName_;
      record.Data = modIP::IPToData(lease.IPaddr);
      record.SetTTL(remaining(lease.Expires), now);
      record.Origin = RecordOrigin::kLease;
      SectionAdd(2, record);
    }
  } else if (RecType == RecordType::kPTR && EndsWith(currentName_, ".in-addr.arpa.")) {
    for (const LeaseView& lease : leases->LeasesOfAddress(modDNS::ArpaToIP(currentName_))) {
      if (lease.Expires <= now) continue;
      clDNSRecord record;
      record.RecType = RecordType::kPTR;
      record.Name = currentName_;
      record.Data = lease.ClientName;
      record.SetTTL(remaining(lease.Expires), now);
      record.Origin = RecordOrigin::kLease;
      SectionAdd(2, record);
    }
  }
}

bool clDNSRequest::UnderOwnZone(const std::string& name) const {
  for (const auto& it : store_.records.PermanentZoneRecords())
    if (!it->RootHint && EndsWith(name, it->Name)) return true;
  return false;
}

// Only CNAME and ANY questions stop at an alias: for every other type Check
// has already followed the chain, so there is nothing left to add.
bool clDNSRequest::CNAMERes() {
  if (RecType != RecordType::kCNAME && RecType != RecordType::kAll) return false;
  const RecordList& records = store_.records;
  for (std::size_t i = 0; i < answer_.size(); ++i) {
    if (answer_[i].RecType != RecordType::kCNAME) continue;
    std::string target = answer_[i].Data;
    for (int hops = 0; hops < kMaxAliasHops; ++hops) {
      bool known = false;
      const clDNSRecord* next = nullptr;
      for (const auto& it : records.Named(target)) {
        const int type = it->RecType;
        if (type == RecordType::kA) {
          SectionAdd(2, *it);
          known = true;
        } else if (type == RecordType::kCNAME) {
          if (!next) next = &*it;
          known = true;
        } else if (type == RecordType::kNameError ||
                   type == RecordType::kNegativeBase + RecordType::kA) {
          known = true;
        }
      }
      if (next) {
        SectionAdd(2, *next);
        target = next->Data;
        continue;
      }
      const bool asked =
          std::find(subAsked_.begin(), subAsked_.end(), target) != subAsked_.end();
      if (!known && RD && !IsSub() && host_.RecursionAllowed(FromIP) && !UnderOwnZone(target) &&
          !asked && StartSubRequest(target))
        return true;
      break;
    }
  }
  return false;
}

bool clDNSRequest::StartSubRequest(const std::string& name) {
  if (subDepth_ >= kMaxSubDepth || subRequests_ >= kMaxSubRequests || host_.Full()) return false;
  auto sub = std::make_unique<clDNSRequest>(host_);
  sub->FromIP = "SUB";
  sub->RD = true;
  sub->Name = name;
  sub->RecType = RecordType::kA;
  sub->subDepth_ = subDepth_ + 1;
  // Checked from the host's queue, not by a timer walk in progress.
  sub->TimeOut = store_.clock.Now() + 2;
  subAsked_.push_back(name);
  ++subRequests_;
  SubRequest = sub->Serial();
  waitingSub_ = true;
  host_.AddSubRequest(std::move(sub));
  return true;
}

void clDNSRequest::CheckSub() {
  waitingSub_ = false;
  SubRequest = 0;
  regather_ = true;
  host_.CheckSoon(serial_);
}

}  // namespace korvane
