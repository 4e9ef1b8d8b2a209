#include "dns/engine.h"

#include <exception>
#include <random>

#include "store/cache_bound.h"
#include "wire/dns_codec.h"

namespace korvane {

namespace {

uint8_t Byte(std::string_view data, std::size_t i) { return static_cast<uint8_t>(data[i]); }

bool IsReply(std::string_view data) { return Byte(data, 2) & 0x80; }

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

// Marks the engine busy for one call from outside, and refuses a call that
// arrives while another runs. The outermost call carries out a pause that
// came nested before it returns.
class DnsEngine::Entry {
 public:
  explicit Entry(DnsEngine& engine) : engine_(engine), entered_(!engine.busy_) {
    if (entered_)
      engine_.busy_ = true;
    else
      engine_.RefuseNested();
  }
  ~Entry() {
    if (!entered_) return;
    if (engine_.pauseDeferred_) {
      engine_.pauseDeferred_ = false;
      engine_.StopWork();
    }
    engine_.busy_ = false;
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;
  bool Entered() const { return entered_; }

 private:
  DnsEngine& engine_;
  bool entered_;
};

DnsEngine::DnsEngine(StoreContext& store, DatagramSender& WSDNS, QueryChannels& WSDNS2,
                     LeaseSource* leases)
    : store_(store), WSDNS_(WSDNS), WSDNS2_(WSDNS2), leases_(leases) {
  // The core reads no clock: the shell sets its own source, tests a fixed one.
  auto device = std::make_shared<std::random_device>();
  random_ = [generator = std::mt19937((*device)())]() mutable {
    return std::uniform_real_distribution<double>(0.0, 1.0)(generator);
  };
  queryIds_ = [device] { return static_cast<uint32_t>((*device)()); };
}

DnsEngine::~DnsEngine() = default;

void DnsEngine::SetRandom(std::function<double()> random) { random_ = std::move(random); }

void DnsEngine::SetQueryIdSource(std::function<uint32_t()> source) {
  queryIds_ = std::move(source);
}

void DnsEngine::SetTimerSwitch(std::function<void(bool)> timerSwitch) {
  timerSwitch_ = std::move(timerSwitch);
}

void DnsEngine::RefuseNested() {
  const DateTime now = store_.clock.Now();
  if (busyLogged_ && now >= busyLoggedAt_ && now < busyLoggedAt_ + kBusyLogInterval) return;
  busyLogged_ = true;
  busyLoggedAt_ = now;
  store_.log.AddLine("DNS engine busy: a nested call was ignored.");
}

double DnsEngine::Random() {
  double r = random_ ? random_() : 0.0;
  return (r >= 0.0 && r < 1.0) ? r : 0.0;
}

void DnsEngine::SwitchTimer(bool on) {
  if (timerEnabled_ == on) return;
  timerEnabled_ = on;
  if (timerSwitch_) timerSwitch_(on);
}

void DnsEngine::AnswerSent(AnswerSource source) {
  switch (source) {
    case AnswerSource::kOwnRecords: ++counters_.answersOwn; break;
    case AnswerSource::kCache: ++counters_.answersCache; break;
    case AnswerSource::kOtherServers: ++counters_.answersOthers; break;
  }
}

void DnsEngine::SocketError(int socket, int number, const std::string& description) {
  store_.log.AddLine(std::string(socket == 2 ? "MAIN-WS2 Error " : "MAIN-WS Error ") +
                     std::to_string(number) + " " + description);
}

void DnsEngine::OnDnsDatagram(const std::string& host, int port, std::string_view data,
                              const std::string& localAddress) {
  Entry entry(*this);
  if (!entry.Entered() || !running_ || data.size() < 12) return;
  if (IsReply(data))
    RunProcAns(0, host, port, data);
  else
    RunProcReq(host, port, data, localAddress);
}

void DnsEngine::OnDns2Datagram(uint64_t channel, const std::string& host, int port,
                               std::string_view data) {
  Entry entry(*this);
  if (!entry.Entered() || !running_ || data.size() < 12 || !IsReply(data)) return;
  RunProcAns(channel, host, port, data);
}

void DnsEngine::ChannelError(uint64_t channel, int number, const std::string& description) {
  Entry entry(*this);
  if (!entry.Entered()) return;
  try {
    SocketError(2, number, description);
    if (clDNSRequest* owner = ChannelOwner(channel))
      RemoveIfDone(owner, owner->QueryFailed(description));
    RunPendingChecks();
  } catch (const std::exception& e) {
    runningChecks_ = false;
    ReportException(store_.errors, "modDNS ProcAns", e);
  }
}

void DnsEngine::ProcReq(const std::string& host, int port, std::string_view data,
                        const std::string& localAddress) {
  Entry entry(*this);
  if (entry.Entered()) RunProcReq(host, port, data, localAddress);
}

void DnsEngine::RunProcReq(const std::string& host, int port, std::string_view data,
                           const std::string& localAddress) {
  ++counters_.queries;
  try {
    modDNS::MessageReader reader(data, store_.errors);
    modDNS::MessageHeader header;
    if (data.size() < 13 || !reader.ReadHeader(header) || header.QDCount == 0) {
      store_.log.AddLine("Incomplete DNS Request from " + host);
      return;
    }
    if (header.Opcode != 0) {
      std::string text = OpcodeText(header.Opcode);
      store_.log.AddLine("DNS Request from " + host + "(" + text + ")");
      NotImplemented(host, port, data, text, localAddress);
      return;
    }
    RequestHost& self = *this;
    auto request = std::make_unique<clDNSRequest>(self);
    request->FromIP = host;
    request->FromPort = port;
    request->LocalAddress = localAddress;
    request->Id = header.Id;
    request->RD = header.RD;

    modDNS::Question question;
    // A pointer loop gives an empty name: as unusable as a cut one.
    if (!reader.ReadQuestion(question)) {
      store_.log.AddLine("Incomplete DNS Request from " + host);
      return;
    }
    request->Name = question.Name;
    request->RecType = static_cast<int16_t>(question.Type);
    if (question.Class != 1) {
      std::string text = ClassText(question.Class);
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
    if (clDNSRequest* asker = LoopedQuery(host, port)) {
      RefuseLoop(std::move(request), *asker);
    } else {
      if (requests_.empty()) modDNS::CleanCache(store_);
      if (!request->Check()) AddRequest(std::move(request));
    }
    RunPendingChecks();
  } catch (const std::exception& e) {
    ReportException(store_.errors, "modDNS ProcReq", e);
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
  request->Held = true;
  requests_.push_back(std::move(request));
  // A waiting request needs the timer even when no query went out.
  SwitchTimer(true);
}

void DnsEngine::AddSubRequest(std::unique_ptr<clDNSRequest> sub) {
  CheckSoon(sub->Serial());
  AddRequest(std::move(sub));
}

void DnsEngine::SubRequestDone(uint64_t serial) {
  for (const auto& request : requests_)
    if (request->WaitingForSub() && request->SubRequest == serial) request->CheckSub();
}

clDNSRequest* DnsEngine::Find(uint64_t serial) const {
  for (const auto& request : requests_)
    if (request->Serial() == serial) return request.get();
  return nullptr;
}

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

void DnsEngine::ProcAns(uint64_t channel, const std::string& host, int port,
                        std::string_view data) {
  Entry entry(*this);
  if (entry.Entered()) RunProcAns(channel, host, port, data);
}

void DnsEngine::RunProcAns(uint64_t channel, const std::string& host, int port,
                           std::string_view data) {
  try {
    TakeReply(channel, host, port, data);
    RunPendingChecks();
    // Only replies add to the cache; the requests they woke have been
    // answered from it by now.
    modDNS::TrimCache(store_);
  } catch (const std::exception& e) {
    runningChecks_ = false;
    ReportException(store_.errors, "modDNS ProcAns", e);
  }
}

void DnsEngine::Timer() {
  Entry entry(*this);
  if (!entry.Entered()) return;
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
      SwitchTimer(false);
      tickCounter_ = 0;
    }
  } catch (const std::exception& e) {
    runningChecks_ = false;
    ReportException(store_.errors, "frmMain Timer", e);
  }
}

void DnsEngine::Pause() {
  // Stops taking datagrams at once; the requests a running call may hold
  // are dropped when it returns.
  running_ = false;
  if (busy_) {
    pauseDeferred_ = true;
    return;
  }
  Entry entry(*this);
  StopWork();
}

void DnsEngine::StopWork() {
  SwitchTimer(false);
  tickCounter_ = 0;
  requests_.clear();
  pendingChecks_.clear();
  // Options may change while paused: loops are found afresh.
  loops_.clear();
}

}  // namespace korvane
