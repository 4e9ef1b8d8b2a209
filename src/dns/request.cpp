#include "dns/request.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "dns/engine.h"
#include "wire/zone_names.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"

namespace korvane {

using dnsnames::EndsWith;

clDNSRequest::clDNSRequest(DnsEngine& engine) : engine_(engine), serial_(engine.nextSerial_++) {}

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
      if (engine_.Find(SubRequest)) return false;
      // The sub-request left without waking us (it failed): carry on.
      waitingSub_ = false;
      SubRequest = 0;
      regather_ = true;
    }
    StoreContext& store = engine_.store_;
    const DateTime now = store.clock.Now();
    if (currentName_.empty()) currentName_ = Name;

    bool complete = false;
    bool nameExists = false;
    const clDNSRecord* zoneRecord = nullptr;
    AA_ = false;
    for (int hops = 0;; ++hops) {
      // The whole-string suffix test of (name + ".") against (zone + ".")
      // is a suffix test of the names themselves.
      for (const auto& it : store.records.PermanentZoneRecords()) {
        if (it->RootHint) continue;
        if (EndsWith(currentName_, it->Name)) {
          AA_ = true;
          zoneRecord = &*it;
        }
      }
      if (RecType == RecordType::kA || RecType == RecordType::kPTR) {
        std::size_t before = answer_.size();
        AddLeaseAnswers(now);
        if (answer_.size() > before) complete = true;
      }

      const std::string* alias = nullptr;
      for (const auto& it : store.records.Named(currentName_)) {
        const clDNSRecord& record = *it;
        nameExists = true;
        const int type = record.RecType;
        if (RecType == RecordType::kAll && type < RecordType::kNegativeBase) {
          SectionAdd(2, record);
          complete = true;
        } else if (type == RecType) {
          SectionAdd(2, record);
          complete = true;
          if (type == RecordType::kMX) AddAddl(record.Data);
        } else if (type == RecordType::kCNAME) {
          SectionAdd(2, record);
          alias = &record.Data;
          break;
        } else if (type == RecordType::kNameError || type - RecordType::kNegativeBase == RecType) {
          if (type == RecordType::kNameError) rcode_ = 3;
          complete = true;
          for (const auto& soa : store.records.Named(record.Data)) {
            if (soa->RecType == RecordType::kSOA) {
              SectionAdd(3, *soa);
              break;
            }
          }
        }
      }
      if (!alias) break;
      if (hops >= DnsEngine::kMaxAliasHops) {
        // An alias chain this long is a loop or an attack.
        rcode_ = 2;
        complete = true;
        break;
      }
      currentName_ = *alias;
    }

    if (AA_) {
      if (!nameExists && answer_.empty())
        rcode_ = 3;
      else if (!complete && zoneRecord)
        SectionAdd(3, *zoneRecord);
      complete = true;
    }
    // The servers have said all they know of this name.
    if (!complete && !finalFor_.empty() && finalFor_ == currentName_) complete = true;

    if (complete || !RD) {
      if (store.options.AUTOCNAME && CNAMERes()) return false;
      SendAnswer();
      answered_ = true;
      return true;
    }
    if (!queued_ && engine_.requests_.size() >= DnsEngine::kMaxRequests) {
      rcode_ = 2;
      SendAnswer();
      answered_ = true;
      return true;
    }
    if (ExtResolve()) {
      askedExternally_ = false;
      return false;
    }
    const bool givenUp = askedExternally_;
    TimeOut = now + 10;
    askedExternally_ = true;
    if (givenUp) {
      answered_ = true;
      WakeWaiters();
    }
    return givenUp;
  } catch (const std::exception& e) {
    engine_.Report("clDNSReq Check", e);
    answered_ = true;
    return true;
  }
}

void clDNSRequest::AddLeaseAnswers(DateTime now) {
  LeaseSource* leases = engine_.leases_;
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
      SectionAdd(2, record);
    }
  }
}

bool clDNSRequest::UnderOwnZone(const std::string& name) const {
  for (const auto& it : engine_.store_.records.PermanentZoneRecords())
    if (!it->RootHint && EndsWith(name, it->Name)) return true;
  return false;
}

// Only CNAME and ANY questions stop at an alias: for every other type Check
// has already followed the chain, so there is nothing left to add.
bool clDNSRequest::CNAMERes() {
  if (RecType != RecordType::kCNAME && RecType != RecordType::kAll) return false;
  const RecordList& records = engine_.store_.records;
  for (std::size_t i = 0; i < answer_.size(); ++i) {
    if (answer_[i].RecType != RecordType::kCNAME) continue;
    std::string target = answer_[i].Data;
    for (int hops = 0; hops < DnsEngine::kMaxAliasHops; ++hops) {
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
      if (!known && RD && !IsSub() && !UnderOwnZone(target) &&
          std::find(subAsked_.begin(), subAsked_.end(), target) == subAsked_.end() &&
          StartSubRequest(target))
        return true;
      break;
    }
  }
  return false;
}

bool clDNSRequest::StartSubRequest(const std::string& name) {
  if (subDepth_ >= DnsEngine::kMaxSubDepth || subRequests_ >= DnsEngine::kMaxSubRequests ||
      engine_.requests_.size() >= DnsEngine::kMaxRequests)
    return false;
  auto sub = std::make_unique<clDNSRequest>(engine_);
  sub->FromIP = "SUB";
  sub->RD = true;
  sub->Name = name;
  sub->RecType = RecordType::kA;
  sub->subDepth_ = subDepth_ + 1;
  // Checked from the engine's queue, not by a timer walk in progress.
  sub->TimeOut = engine_.store_.clock.Now() + 2;
  subAsked_.push_back(name);
  ++subRequests_;
  SubRequest = sub->Serial();
  waitingSub_ = true;
  engine_.QueueCheck(sub->Serial());
  engine_.AddRequest(std::move(sub));
  return true;
}

void clDNSRequest::CheckSub() {
  waitingSub_ = false;
  SubRequest = 0;
  regather_ = true;
  engine_.QueueCheck(serial_);
}

void clDNSRequest::WakeWaiters() {
  for (const auto& request : engine_.requests_)
    if (request->waitingSub_ && request->SubRequest == serial_) request->CheckSub();
}

}  // namespace korvane
