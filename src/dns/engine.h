// The DNS request engine: takes datagrams from the two DNS sockets and the
// timer ticks, resolves requests and sends answers and external queries
// through the injected senders. No I/O of its own, no Qt; one thread.
//
// The shell's part:
//   - SetRunning(true) once WSDNS is bound; Pause() when the server pauses.
//   - every datagram read from WSDNS goes to OnDnsDatagram (with the local
//     address it was sent to), every one from WSDNS2 to OnDns2Datagram;
//   - socket error events go to SocketError;
//   - a 1000 ms timer calls Timer() while the engine wants it: the engine
//     says so through the callback given to SetTimerSwitch.
// Nothing here throws. Bad datagrams get their logged result (or are
// dropped); unexpected failures go to the store's error reporter with the
// procedure's tag ("modDNS ProcReq", "modDNS ProcAns", "frmMain Timer",
// "clDNSReq Check", ...) and the call returns.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dns/request.h"
#include "store/lease_source.h"
#include "store/store.h"
#include "wire/services.h"

namespace korvane {

class DnsEngine {
 public:
  static constexpr int kTimerIntervalMs = 1000;
  static constexpr int kCleanIntervalMs = 60000;
  // Most requests held at once; a request that would have to wait beyond
  // this is answered at once with "Server Failure".
  static constexpr std::size_t kMaxRequests = 10000;
  static constexpr int kMaxQueriesPerRequest = 16;
  static constexpr int kMaxAliasHops = 16;
  static constexpr int kMaxSubRequests = 4;   // per request
  static constexpr int kMaxSubDepth = 3;      // sub-requests of sub-requests
  static constexpr int kDnsPort = 53;
  // Most records one reply carries, and the size past which no further
  // record is started (compression pointers reach 16383 bytes).
  static constexpr std::size_t kMaxReplyRecords = 256;
  static constexpr std::size_t kMaxReplyBytes = 12000;

  // `leases` may be null (no DHCP service).
  DnsEngine(StoreContext& store, DatagramSender& WSDNS, DatagramSender& WSDNS2,
            LeaseSource* leases = nullptr);
  ~DnsEngine();
  DnsEngine(const DnsEngine&) = delete;
  DnsEngine& operator=(const DnsEngine&) = delete;

  // A uniform random source in [0, 1) for the choice among name servers.
  void SetRandom(std::function<double()> random);
  // Called with true when the timer must run, false when it may stop.
  void SetTimerSwitch(std::function<void(bool)> timerSwitch);
  void SetLeaseSource(LeaseSource* leases) { leases_ = leases; }

  void SetRunning(bool running) { running_ = running; }
  bool Running() const { return running_; }
  bool TimerEnabled() const { return timerEnabled_; }

  // WSDNS data arrival: dropped while not running or below 12 bytes; a query
  // goes to ProcReq, a reply to ProcAns.
  void OnDnsDatagram(const std::string& host, int port, std::string_view data,
                     const std::string& localAddress = "");
  // WSDNS2 data arrival: only replies are taken.
  void OnDns2Datagram(const std::string& host, int port, std::string_view data);
  // Socket error events: one log line each. `socket` 1 is WSDNS, 2 WSDNS2.
  void SocketError(int socket, int number, const std::string& description);

  // One query datagram from host:port; the answer leaves from `localAddress`.
  void ProcReq(const std::string& host, int port, std::string_view data,
               const std::string& localAddress = "");
  // One reply of another name server.
  void ProcAns(const std::string& host, std::string_view data);
  // The timer's tick: re-checks timed-out requests, cleans the cache every
  // minute of running time, and switches the timer off when idle.
  void Timer();
  // Empties Requests, switches the timer off and stops taking datagrams.
  void Pause();

  const std::vector<std::unique_ptr<clDNSRequest>>& Requests() const { return requests_; }
  // The ID of the last external query (0 before the first).
  int32_t QueryId() const { return queryId_; }
  void SetQueryId(int32_t id) { queryId_ = id; }
  int32_t TickCounter() const { return tickCounter_; }

 private:
  friend class clDNSRequest;

  void NotImplemented(const std::string& host, int port, std::string_view data,
                      const std::string& text, const std::string& localAddress);
  void AddRequest(std::unique_ptr<clDNSRequest> request);
  clDNSRequest* Find(uint64_t serial) const;
  void QueueCheck(uint64_t serial);
  void RunPendingChecks();
  void EnableTimer(bool on);
  int32_t NextQueryId();
  double Random();
  void Report(const std::string& tag, const std::exception& e);
  void TakeReply(const std::string& host, std::string_view data);

  StoreContext& store_;
  DatagramSender& WSDNS_;
  DatagramSender& WSDNS2_;
  LeaseSource* leases_;
  std::function<double()> random_;
  std::function<void(bool)> timerSwitch_;

  std::vector<std::unique_ptr<clDNSRequest>> requests_;
  std::deque<uint64_t> pendingChecks_;
  bool runningChecks_ = false;
  bool running_ = false;
  bool timerEnabled_ = false;
  int32_t queryId_ = 0;
  int32_t tickCounter_ = 0;
  uint64_t nextSerial_ = 1;
};

// Section names of a DNS message, as the log writes them (1 "Question" ... 4 "Additional").
const std::string& SectionName(int section);

}  // namespace korvane
