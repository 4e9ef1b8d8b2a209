#include <algorithm>
#include <exception>

#include "dns/engine.h"
#include "dns/request.h"
#include "dns/zone_names.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"

namespace korvane {

void clDNSRequest::SectionAdd(int section, const clDNSRecord& record) {
  if (section < 2 || section > 4) return;
  // Every add compares with all held records: a bound keeps a huge learnt
  // record set from costing quadratic time on every query.
  if (answer_.size() + authority_.size() + additional_.size() >= DnsEngine::kMaxReplyRecords) return;
  for (int s = 2; s <= section; ++s) {
    for (const clDNSRecord& held : Section(s))
      if (held.RecType == record.RecType && held.Name == record.Name && held.Data == record.Data)
        return;
  }
  (section == 2 ? answer_ : section == 3 ? authority_ : additional_).push_back(record);
}

void clDNSRequest::AddAddl(std::string name) {
  const RecordList& records = engine_.store_.records;
  for (int hops = 0; hops <= DnsEngine::kMaxAliasHops; ++hops) {
    const clDNSRecord* alias = nullptr;
    for (const auto& it : records.Named(name)) {
      if (it->RecType == RecordType::kA) {
        SectionAdd(4, *it);
      } else if (it->RecType == RecordType::kCNAME) {
        alias = &*it;
        break;
      }
    }
    if (!alias) return;
    SectionAdd(4, *alias);
    name = alias->Data;
  }
}

bool clDNSRequest::GetNS(std::string& zone, std::vector<const clDNSRecord*>& servers) const {
  const RecordList& records = engine_.store_.records;
  const DateTime now = engine_.store_.clock.Now();
  std::string current = zone.empty() ? "." : zone;
  // Each step is shorter than the last; the guard only bounds odd names.
  for (int guard = 0; guard < 256; ++guard) {
    for (const auto& it : records.Named(current))
      if (it->RecType == RecordType::kNS && (it->Permanent || it->TTL(now) >= 0))
        servers.push_back(&*it);
    if (!servers.empty()) {
      zone = current;
      return true;
    }
    if (current == ".") break;
    current = dnsnames::Parent(current);
  }
  return false;
}

std::vector<clNServ> clDNSRequest::FillNS(const std::vector<const clDNSRecord*>& servers) const {
  const RecordList& records = engine_.store_.records;
  const DateTime now = engine_.store_.clock.Now();
  std::vector<clNServ> found;
  for (const clDNSRecord* server : servers) {
    for (const auto& it : records.Named(server->Data))
      if (it->RecType == RecordType::kA && it->Data.size() == 4 &&
          (it->Permanent || it->TTL(now) >= 0))
        found.push_back({server->Data, modIP::DataToIP(it->Data)});
  }
  return found;
}

void clDNSRequest::AddAuth(const std::string& name) {
  std::string zone = name;
  std::vector<const clDNSRecord*> servers;
  if (!GetNS(zone, servers)) return;
  const RecordList& records = engine_.store_.records;
  for (const clDNSRecord* server : servers) {
    SectionAdd(3, *server);
    for (const auto& it : records.Named(server->Data))
      if (it->RecType == RecordType::kA) SectionAdd(4, *it);
  }
}

void clDNSRequest::AppendRecord(std::string& message, const clDNSRecord& record, int section,
                                DateTime now) {
  ErrorReporter& errors = engine_.store_.errors;
  message += modDNS::ZipName(message, record.Name, errors);
  message += '\0';
  message += static_cast<char>(record.RecType & 255);
  message += '\0';
  message += '\1';
  message += modDNS::MakeLong(std::max(record.TTL(now), 0), errors);

  LogSink& log = engine_.store_.log;
  const std::string& sectionName = SectionName(section);
  std::string data;
  switch (record.RecType) {
    case RecordType::kA:
      data = record.Data;
      log.AddLine({"-> ", sectionName, ": A-record for ", record.Name, " = ",
                   modIP::DataToIP(record.Data)});
      break;
    case RecordType::kNS:
    case RecordType::kCNAME:
      data = modDNS::ZipName(message, record.Data, errors);
      log.AddLine({"-> ", sectionName, ": ", modDNS::RTypeN(record.RecType), "-record for ", record.Name,
                   " = ", record.Data});
      break;
    case RecordType::kSOA: {
      // Primary server, a zero byte, mailbox, a zero byte, then 20 number bytes.
      const std::string& soa = record.Data;
      std::size_t first = soa.find('\0');
      std::size_t second = first == std::string::npos ? std::string::npos : soa.find('\0', first + 1);
      auto dotted = [](std::string name) {
        if (name.empty() || name.back() != '.') name += '.';
        return name;
      };
      std::string primary = dotted(soa.substr(0, first));
      std::string mailbox, numbers;
      if (first != std::string::npos) mailbox = dotted(soa.substr(first + 1, second - first - 1));
      if (second != std::string::npos) numbers = soa.substr(second + 1);
      data = modDNS::ZipName(message, primary, errors) + modDNS::ZipName(message, mailbox, errors) +
             numbers;
      log.AddLine({"-> ", sectionName, ": SOA-record for ", record.Name, " = ", primary});
      break;
    }
    case RecordType::kPTR:
      data = modDNS::ZipName(message, record.Data, errors);
      log.AddLine({"-> ", sectionName, ": PTR-record for ", modDNS::ArpaToIP(record.Name), " = ",
                   record.Data});
      break;
    case RecordType::kMX:
      data = modDNS::MakeShort(record.Pref) + modDNS::ZipName(message, record.Data, errors);
      log.AddLine({"-> ", sectionName, ": MX-record for ", record.Name, " = ", record.Data});
      break;
    default:
      data = record.Data;
      break;
  }
  message += modDNS::MakeShort(static_cast<int32_t>(std::min<std::size_t>(data.size(), 65535)));
  message += data;
}

void clDNSRequest::SendAnswer() {
  try {
    if (IsSub()) {
      WakeWaiters();
      return;
    }
    StoreContext& store = engine_.store_;
    const DateTime now = store.clock.Now();

    if (!AA_ && !RD) {
      if (answer_.empty()) {
        AddAuth(Name);
      } else {
        std::vector<std::string> done;
        for (std::size_t i = 0; i < answer_.size(); ++i) {
          if (answer_[i].RecType == RecordType::kCNAME && RecType != RecordType::kCNAME) continue;
          std::string owner = answer_[i].Name;
          if (std::find(done.begin(), done.end(), owner) != done.end()) continue;
          done.push_back(owner);
          AddAuth(owner);
        }
      }
    }

    const std::string typeName = modDNS::RTypeN(RecType);
    store.log.AddLine({"Sending reply to ", FromIP, " about ", typeName, "-record for ", Name, ":"});
    if (rcode_ == 0) {
      if (answer_.empty() && (RD || AA_))
        store.log.AddLine({"-> Answer: There are no ", typeName, "-Records for ", Name});
    } else {
      store.log.AddLine({"-> Header: ", modDNS::RCodeN(rcode_)});
    }

    std::string message;
    message.reserve(512);
    message += modDNS::MakeShort(Id);
    message += static_cast<char>(128 + (AA_ ? 4 : 0) + (RD ? 1 : 0));
    message += static_cast<char>(128 + (rcode_ & 15));
    message += modDNS::MakeShort(1);
    message += modDNS::MakeShort(static_cast<int32_t>(answer_.size()));
    message += modDNS::MakeShort(static_cast<int32_t>(authority_.size()));
    message += modDNS::MakeShort(static_cast<int32_t>(additional_.size()));
    message += modDNS::ZipName(message, Name, store.errors);
    message += '\0';
    message += static_cast<char>(RecType & 255);
    message += '\0';
    message += '\1';
    // Compression pointers reach only 16383 bytes into a message: records
    // that would start beyond that are left out and the counts follow.
    int counts[3] = {0, 0, 0};
    for (int section = 2; section <= 4; ++section) {
      for (const clDNSRecord& record : Section(section)) {
        if (message.size() >= DnsEngine::kMaxReplyBytes) break;
        AppendRecord(message, record, section, now);
        ++counts[section - 2];
      }
    }
    for (int i = 0; i < 3; ++i) message.replace(6 + 2 * i, 2, modDNS::MakeShort(counts[i]));

    SendError error;
    if (!engine_.WSDNS_.Send(FromIP, FromPort, message, LocalAddress, error))
      store.log.AddLine("SA-WS Error " + std::to_string(error.number) + " " + error.description);
  } catch (const std::exception& e) {
    engine_.Report("clDNSReq SendAnswer", e);
  }
}

}  // namespace korvane
