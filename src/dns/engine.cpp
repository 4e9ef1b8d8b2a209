#include "dns/engine.h"

#include <chrono>
#include <algorithm>
#include <exception>
#include <random>

#include "wire/dns_codec.h"
#include "wire/ip.h"

namespace korvane {

namespace {

uint8_t Byte(std::string_view data, std::size_t i) { return static_cast<uint8_t>(data[i]); }

int Short(std::string_view data, std::size_t i) { return Byte(data, i) * 256 + Byte(data, i + 1); }

std::string OpcodeText(int opcode) {
  switch (opcode) {
    case 1: return "Inverse Query Request";
    case 2: return "Server Status Request";
    default: return "Unknown Query Type";
  }
}

std::string ClassText(int qclass) {
  switch (qclass) {
    case 2: return "CSNET class record";
    case 3: return "CHAOS class record";
    case 4: return "Hesiod [Dyer 87] class record";
    default: return "Unknown class";
  }
}

bool Implemented(int type) {
  switch (type) {
    case RecordType::kA: case RecordType::kNS: case RecordType::kCNAME: case RecordType::kSOA:
    case RecordType::kPTR: case RecordType::kMX: case RecordType::kAll:
      return true;
    default:
      return false;
  }
}

}  // namespace

const std::string& SectionName(int section) {
  static const std::string names[] = {"", "Question", "Answer", "Authority", "Additional"};
  return names[(section >= 1 && section <= 4) ? section : 0];
}

DnsEngine::DnsEngine(StoreContext& store, DatagramSender& WSDNS, DatagramSender& WSDNS2,
                     LeaseSource* leases)
    : store_(store), WSDNS_(WSDNS), WSDNS2_(WSDNS2), leases_(leases) {
  auto seed = static_cast<std::mt19937::result_type>(
      std::chrono::system_clock::now().time_since_epoch().count());
  random_ = [generator = std::mt19937(seed)]() mutable {
    return std::uniform_real_distribution<double>(0.0, 1.0)(generator);
  };
}

DnsEngine::~DnsEngine() = default;

void DnsEngine::SetRandom(std::function<double()> random) { random_ = std::move(random); }

void DnsEngine::SetTimerSwitch(std::function<void(bool)> timerSwitch) {
  timerSwitch_ = std::move(timerSwitch);
}

void DnsEngine::Report(const std::string& tag, const std::exception& e) {
  ReportException(store_.errors, tag, e);
}

double DnsEngine::Random() {
  double r = random_ ? random_() : 0.0;
  return (r >= 0.0 && r < 1.0) ? r : 0.0;
}

int32_t DnsEngine::NextQueryId() {
  ++queryId_;
  if (queryId_ > 65535) queryId_ = 1;
  return queryId_;
}

void DnsEngine::EnableTimer(bool on) {
  if (timerEnabled_ == on) return;
  timerEnabled_ = on;
  if (timerSwitch_) timerSwitch_(on);
}

void DnsEngine::SocketError(int socket, int number, const std::string& description) {
  store_.log.AddLine(std::string(socket == 2 ? "MAIN-WS2 Error " : "MAIN-WS Error ") +
                     std::to_string(number) + " " + description);
}

void DnsEngine::OnDnsDatagram(const std::string& host, int port, std::string_view data,
                              const std::string& localAddress) {
  if (!running_ || data.size() < 12) return;
  if (Byte(data, 2) & 0x80)
    ProcAns(host, data);
  else
    ProcReq(host, port, data, localAddress);
}

void DnsEngine::OnDns2Datagram(const std::string& host, int /*port*/, std::string_view data) {
  if (!running_ || data.size() < 12 || !(Byte(data, 2) & 0x80)) return;
  ProcAns(host, data);
}

void DnsEngine::ProcReq(const std::string& host, int port, std::string_view data,
                        const std::string& localAddress) {
  try {
    if (data.size() < 13 || Short(data, 4) == 0) {
      store_.log.AddLine("Incomplete DNS Request from " + host);
      return;
    }
    int opcode = (Byte(data, 2) & 120) / 8;
    if (opcode != 0) {
      std::string text = OpcodeText(opcode);
      store_.log.AddLine("DNS Request from " + host + "(" + text + ")");
      NotImplemented(host, port, data, text, localAddress);
      return;
    }
    auto request = std::make_unique<clDNSRequest>(*this);
    request->FromIP = host;
    request->FromPort = port;
    request->LocalAddress = localAddress;
    request->Id = Short(data, 0);
    request->RD = Byte(data, 2) & 1;

    std::string_view rest = data.substr(12);
    request->Name = modDNS::ExtractName(data, rest, true, store_.errors);
    // A pointer loop gives an empty name: as unusable as a cut one.
    if (rest.size() < 4 || request->Name.empty()) {
      store_.log.AddLine("Incomplete DNS Request from " + host);
      return;
    }
    request->RecType = static_cast<int16_t>(modDNS::ExtractShort(rest, true));
    int qclass = modDNS::ExtractShort(rest, true);
    if (qclass != 1) {
      std::string text = ClassText(qclass);
      store_.log.AddLine("DNS Request from " + host + " for " + text);
      NotImplemented(host, port, data, text, localAddress);
      return;
    }
    const std::string typeName = modDNS::RTypeN(request->RecType);
    store_.log.AddLine({"Request from ", host, " for ", typeName, "-record for ", request->Name});
    if (!Implemented(request->RecType)) {
      NotImplemented(host, port, data, typeName + "-record for " + request->Name, localAddress);
      return;
    }
    if (requests_.empty()) modDNS::CleanCache(store_);
    if (!request->Check()) AddRequest(std::move(request));
    RunPendingChecks();
  } catch (const std::exception& e) {
    Report("modDNS ProcReq", e);
  }
}

void DnsEngine::NotImplemented(const std::string& host, int port, std::string_view data,
                               const std::string& text, const std::string& localAddress) {
  store_.log.AddLine("Sending answer to " + host + " about " + text);
  store_.log.AddLine("-> Error 4: Not implemented.");
  std::string reply(data);
  reply[2] = static_cast<char>(Byte(data, 2) | 0x80);
  reply[3] = static_cast<char>(132);
  SendError error;
  if (!WSDNS_.Send(host, port, reply, localAddress, error))
    store_.log.AddLine("PRCREQ-WS Error " + std::to_string(error.number) + " " +
                       error.description);
}

void DnsEngine::AddRequest(std::unique_ptr<clDNSRequest> request) {
  request->queued_ = true;
  requests_.push_back(std::move(request));
  // A waiting request needs the timer even when no query went out.
  EnableTimer(true);
}

clDNSRequest* DnsEngine::Find(uint64_t serial) const {
  for (const auto& request : requests_)
    if (request->Serial() == serial) return request.get();
  return nullptr;
}

void DnsEngine::QueueCheck(uint64_t serial) { pendingChecks_.push_back(serial); }

// Checks deferred from inside another request's Check (new sub-requests,
// woken parents) run here, after the walk that caused them, so no walk of
// Requests ever sees the collection change under it.
void DnsEngine::RunPendingChecks() {
  if (runningChecks_) return;
  runningChecks_ = true;
  // Each check can queue at most a few more (bounded sub-requests); the cap
  // only guards against a mistake turning into a hang.
  int budget = 4 * static_cast<int>(kMaxRequests);
  while (!pendingChecks_.empty() && budget-- > 0) {
    uint64_t serial = pendingChecks_.front();
    pendingChecks_.pop_front();
    for (std::size_t i = 0; i < requests_.size(); ++i) {
      if (requests_[i]->Serial() != serial) continue;
      if (requests_[i]->Check()) requests_.erase(requests_.begin() + static_cast<long>(i));
      break;
    }
  }
  pendingChecks_.clear();
  runningChecks_ = false;
}

void DnsEngine::ProcAns(const std::string& host, std::string_view data) {
  try {
    TakeReply(host, data);
    RunPendingChecks();
  } catch (const std::exception& e) {
    runningChecks_ = false;
    Report("modDNS ProcAns", e);
  }
}

void DnsEngine::TakeReply(const std::string& host, std::string_view data) {
  if (data.size() < 12) return;
  const int32_t id = Short(data, 0);
  const int rcode = Byte(data, 3) & 15;
  const int counts[5] = {0, Short(data, 4), Short(data, 6), Short(data, 8), Short(data, 10)};

  std::string_view rest = data.substr(12);
  std::string qname;
  int qtype = -1, qclass = -1;
  if (counts[1] > 0) {
    qname = modDNS::ExtractName(data, rest, true, store_.errors);
    if (rest.size() >= 4) {
      qtype = modDNS::ExtractShort(rest, true);
      qclass = modDNS::ExtractShort(rest, true);
    }
  }

  // Only the server that was asked, answering the question that was asked.
  clDNSRequest* owner = nullptr;
  for (const auto& request : requests_) {
    if (request->LastQID == id && request->awaitingReply_) {
      owner = request.get();
      break;
    }
  }
  if (!owner || owner->lastServer_ != host || qclass != 1 || qname != owner->LastQ ||
      qtype != static_cast<uint16_t>(owner->LastQType)) {
    store_.log.AddLine("Reply from " + host + " (about nothing ?):");
    return;
  }
  const std::string question = owner->LastQ;
  const int16_t questionType = owner->LastQType;
  const std::string typeName = modDNS::RTypeN(questionType);
  store_.log.AddLine("Reply from " + host + " about " + typeName + "-record for " + question + ":");
  if (rcode > 0)
    store_.log.AddLine("-> Header: " + modDNS::RCodeN(rcode));
  else if (counts[2] == 0)
    store_.log.AddLine("-> Answer: There are no " + typeName + "-Records for " + question);

  for (int i = 1; i < counts[1]; ++i) {  // further questions are passed over
    modDNS::ExtractName(data, rest, true, store_.errors);
    rest.remove_prefix(std::min<std::size_t>(4, rest.size()));
  }

  // The records, section by section.
  std::string soaOwner;
  double soaMinimum = -1;
  bool referral = false;
  bool stop = false;
  for (int section = 2; section <= 4 && !stop; ++section) {
    for (int n = 0; n < counts[section]; ++n) {
      std::string name = modDNS::ExtractName(data, rest, true, store_.errors);
      if (rest.size() < 10 || name.empty() || name == "incomplete.") {
        stop = true;
        break;
      }
      int type = modDNS::ExtractShort(rest, true);
      int rclass = modDNS::ExtractShort(rest, true);
      double ttlValue = modDNS::ExtractLong(rest, true);
      std::size_t length = static_cast<std::size_t>(modDNS::ExtractShort(rest, true));
      if (length > rest.size()) {
        stop = true;
        break;
      }
      std::string_view rdata = rest.substr(0, length);
      rest.remove_prefix(length);
      if (rclass != 1 || type < 1 || type > 15) continue;
      const auto ttl = static_cast<int32_t>(ttlValue);

      std::string stored, shown;
      int32_t pref = 0;
      switch (type) {
        case RecordType::kA:
          if (length != 4) continue;
          stored.assign(rdata);
          shown = modIP::DataToIP(stored);
          break;
        case RecordType::kNS: case RecordType::kCNAME: case RecordType::kPTR: {
          std::string_view view = rdata;
          stored = modDNS::ExtractName(data, view, true, store_.errors);
          if (stored.empty() || stored == "incomplete.") continue;
          shown = stored;
          break;
        }
        case RecordType::kMX: {
          std::string_view view = rdata;
          if (view.size() < 3) continue;
          pref = modDNS::ExtractShort(view, true);
          stored = modDNS::ExtractName(data, view, true, store_.errors);
          if (stored.empty() || stored == "incomplete.") continue;
          shown = stored;
          break;
        }
        case RecordType::kSOA: {
          std::string_view view = rdata;
          std::string primary = modDNS::ExtractName(data, view, true, store_.errors);
          std::string mailbox = modDNS::ExtractName(data, view, true, store_.errors);
          if (view.size() < 20 || primary.empty() || mailbox.empty() ||
              primary.find('\0') != std::string::npos || mailbox.find('\0') != std::string::npos)
            continue;
          shown = primary;
          // Kept with their dots, as the record file gives them.
          stored = primary;
          stored += '\0';
          stored += mailbox;
          stored += '\0';
          stored.append(view.substr(0, 20));
          if (section == 3 && soaOwner.empty()) {
            std::string_view minimum = view.substr(16, 4);
            soaOwner = name;
            soaMinimum = modDNS::ExtractLong(minimum, false);
          }
          break;
        }
        case 3: case 4: case 7: case 8: case 9: case 14: {
          // Names kept in their uncompressed wire form, so that an ANY answer
          // can carry them as they stand.
          std::string_view view = rdata;
          int names = type == 14 ? 2 : 1;
          bool bad = false;
          for (int k = 0; k < names; ++k) {
            std::string target = modDNS::ExtractName(data, view, true, store_.errors);
            if (target.empty() || target == "incomplete.") bad = true;
            if (k == 0) shown = target;
            stored += modDNS::ZipName("", target, store_.errors);
          }
          if (bad) continue;
          break;
        }
        default:
          stored.assign(rdata);
          break;
      }
      if (type == RecordType::kNS && section == 3) referral = true;
      if (type == RecordType::kA)
        store_.log.AddLine("-> " + SectionName(section) + ": A-record for " + name + " = " + shown);
      else if (!shown.empty())
        store_.log.AddLine("-> " + SectionName(section) + ": " + modDNS::RTypeN(type) +
                           "-record for " + name + " = " + shown);
      modDNS::CacheAdd(store_, name, type, ttl, stored, pref, false);
    }
  }

  // Negative answers. An answer for "any" type is never stored as a negative
  // entry; the request learns that the reply was final instead.
  bool final = counts[2] > 0 || rcode == 3;
  if (counts[2] == 0 && rcode == 3) {
    int32_t ttl = soaMinimum >= 0 ? static_cast<int32_t>(soaMinimum) : 600;
    modDNS::CacheAdd(store_, question, RecordType::kNameError, ttl, soaOwner, 0, false);
  } else if (counts[2] == 0 && rcode == 0 && (!soaOwner.empty() || !referral)) {
    final = true;
    if (questionType != RecordType::kAll) {
      int32_t ttl = soaMinimum >= 0 ? static_cast<int32_t>(soaMinimum) : 600;
      modDNS::CacheAdd(store_, question, RecordType::kNegativeBase + questionType, ttl, soaOwner,
                       0, false);
    }
  }

  // Other response codes: the server failed us; it is dropped like a silent one.
  const bool useful = rcode == 0 || rcode == 3;
  if (useful)
    owner->awaitingReply_ = false;
  else
    owner->TimeOut = store_.clock.Now();
  for (std::size_t i = 0; i < requests_.size();) {
    clDNSRequest& request = *requests_[i];
    bool concerned = useful ? (request.LastQ == question && request.LastQType == questionType)
                            : &request == owner;
    if (concerned) {
      if (useful) {
        request.regather_ = true;
        request.awaitingReply_ = false;
        if (final) request.finalFor_ = question;
      }
      if (request.Check()) {
        requests_.erase(requests_.begin() + static_cast<long>(i));
        continue;
      }
    }
    ++i;
  }
}

void DnsEngine::Timer() {
  try {
    DateTime now = store_.clock.Now();
    for (std::size_t i = 0; i < requests_.size();) {
      if (now >= requests_[i]->TimeOut && requests_[i]->Check()) {
        requests_.erase(requests_.begin() + static_cast<long>(i));
        continue;
      }
      ++i;
    }
    RunPendingChecks();
    if (!requests_.empty()) {
      tickCounter_ += kTimerIntervalMs;
      if (tickCounter_ >= kCleanIntervalMs) {
        modDNS::CleanCache(store_);
        tickCounter_ = 0;
      }
    } else {
      EnableTimer(false);
      tickCounter_ = 0;
    }
  } catch (const std::exception& e) {
    runningChecks_ = false;
    Report("frmMain Timer", e);
  }
}

void DnsEngine::Pause() {
  EnableTimer(false);
  tickCounter_ = 0;
  requests_.clear();
  pendingChecks_.clear();
  running_ = false;
}

}  // namespace korvane
