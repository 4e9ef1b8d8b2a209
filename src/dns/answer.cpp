#include <algorithm>
#include <exception>
#include <cmath>

#include "dns/request.h"
#include "wire/zone_names.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"

namespace korvane {

const std::string& SectionName(int section) {
  static const std::string names[] = {"", "Question", "Answer", "Authority", "Additional"};
  return names[(section >= 1 && section <= 4) ? section : 0];
}

void clDNSRequest::SectionAdd(int section, const clDNSRecord& record) {
  if (section < 2 || section > 4) return;
  // Every add compares with all held records: a bound keeps a huge learnt
  // record set from costing quadratic time on every query.
  if (answer_.size() + authority_.size() + additional_.size() >= kMaxReplyRecords) return;
  for (int s = 2; s <= section; ++s) {
    for (const clDNSRecord& held : Section(s))
      if (held.RecType == record.RecType && held.Name == record.Name && held.Data == record.Data)
        return;
  }
  (section == 2 ? answer_ : section == 3 ? authority_ : additional_).push_back(record);
}

void clDNSRequest::AddAddl(std::string name) {
  const RecordList& records = store_.records;
  for (int hops = 0; hops <= kMaxAliasHops; ++hops) {
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
  const RecordList& records = store_.records;
  const DateTime now = store_.clock.Now();
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
  const RecordList& records = store_.records;
  const DateTime now = store_.clock.Now();
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
  const RecordList& records = store_.records;
  for (const clDNSRecord* server : servers) {
    SectionAdd(3, *server);
    for (const auto& it : records.Named(server->Data))
      if (it->RecType == RecordType::kA) SectionAdd(4, *it);
  }
}

void clDNSRequest::AppendRecord(std::string& message, const clDNSRecord& record, int section,
                                DateTime now) {
  ErrorReporter& errors = store_.errors;
  message += modDNS::ZipName(message, record.Name, errors);
  message += '\0';
  message += static_cast<char>(record.RecType & 255);
  message += '\0';
  message += '\1';
  message += modDNS::MakeLong(std::max(record.TTL(now), 0), errors);

  LogSink& log = store_.log;
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
      log.AddLine({"-> ", sectionName, ": ", modDNS::RTypeN(record.RecType), "-record for ",
                   record.Name, " = ", record.Data});
      break;
    case RecordType::kSOA: {
      modDNS::SoaData soa = modDNS::SoaData::Parse(record.Data);
      // A name may be stored without its final dot.
      for (std::string* name : {&soa.Primary, &soa.Mailbox})
        if (name->empty() || name->back() != '.') *name += '.';
      data = modDNS::ZipName(message, soa.Primary, errors) +
             modDNS::ZipName(message, soa.Mailbox, errors) + soa.NumberBytes();
      log.AddLine({"-> ", sectionName, ": SOA-record for ", record.Name, " = ", soa.Primary});
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

// Neither authoritative nor asked to recurse: the client is pointed at the
// servers of the names held.
void clDNSRequest::AddReferral() {
  if (answer_.empty()) {
    AddAuth(Name);
    return;
  }
  std::vector<std::string> done;
  for (std::size_t i = 0; i < answer_.size(); ++i) {
    if (answer_[i].RecType == RecordType::kCNAME && RecType != RecordType::kCNAME) continue;
    std::string owner = answer_[i].Name;
    if (std::find(done.begin(), done.end(), owner) != done.end()) continue;
    done.push_back(owner);
    AddAuth(owner);
  }
}

std::string clDNSRequest::BuildAnswer(DateTime now) {
  std::string message;
  message.reserve(512);
  message += modDNS::MakeShort(Id);
  message += static_cast<char>(128 + (AA_ ? 4 : 0) + (RD ? 1 : 0));
  message += static_cast<char>(128 + (rcode_ & 15));
  message += modDNS::MakeShort(1);
  message += modDNS::MakeShort(static_cast<int32_t>(answer_.size()));
  message += modDNS::MakeShort(static_cast<int32_t>(authority_.size()));
  message += modDNS::MakeShort(static_cast<int32_t>(additional_.size()));
  message += modDNS::ZipName(message, Name, store_.errors);
  message += '\0';
  message += static_cast<char>(RecType & 255);
  message += '\0';
  message += '\1';
  // Compression pointers reach only 16383 bytes into a message: records
  // that would start beyond that are left out and the counts follow.
  int counts[3] = {0, 0, 0};
  for (int section = 2; section <= 4; ++section) {
    for (const clDNSRecord& record : Section(section)) {
      if (message.size() >= kMaxReplyBytes) break;
      AppendRecord(message, record, section, now);
      ++counts[section - 2];
    }
  }
  for (int i = 0; i < 3; ++i) message.replace(6 + 2 * i, 2, modDNS::MakeShort(counts[i]));
  return message;
}

void clDNSRequest::NoteSources(AnsweredRequest& noted, DateTime now) const {
  const std::string_view asked = queries_ > 0 ? std::string_view(lastServer_) : std::string_view();
  for (const clDNSRecord& record : answer_) {
    if (noted.Count == AnsweredRequest::kMaxSources) break;
    noted.Sources[noted.Count++] = SourceOf(record, now, store_.origins, asked);
  }
  if (asked.empty()) return;
  CopyText(noted.Server, asked);
  CopyText(noted.ServerName, lastServerName_);
  noted.Milliseconds = static_cast<int32_t>(std::lround(std::max(0.0, now - firstQueryAt_) * 1000));
}

void clDNSRequest::SendAnswer() {
  try {
    if (IsSub()) {
      host_.SubRequestDone(serial_);
      return;
    }
    const DateTime now = store_.clock.Now();
    if (!AA_ && !RD) AddReferral();

    const std::string typeName = modDNS::RTypeN(RecType);
    store_.log.AddLine({"Sending reply to ", FromIP, " about ", typeName, "-record for ", Name, ":"});
    if (rcode_ == 0) {
      if (answer_.empty() && (RD || AA_))
        store_.log.AddLine({"-> Answer: There are no ", typeName, "-Records for ", Name});
    } else {
      store_.log.AddLine({"-> Header: ", modDNS::RCodeN(rcode_)});
    }
    const std::string message = BuildAnswer(now);
    if (AnsweredRequest* noted = host_.NoteAnswer(FromIP, FromPort, Id)) NoteSources(*noted, now);
    host_.AnswerSent(queries_ > 0 || subRequests_ > 0 ? AnswerSource::kOtherServers
                     : fromCache_                     ? AnswerSource::kCache
                                                      : AnswerSource::kOwnRecords);
    SendError error;
    if (!host_.AnswerSocket().Send(FromIP, FromPort, message, LocalAddress, error))
      store_.log.AddLine("SA-WS Error " + std::to_string(error.number) + " " + error.description);
  } catch (const std::exception& e) {
    ReportException(store_.errors, "clDNSReq SendAnswer", e);
  }
}

}  // namespace korvane
