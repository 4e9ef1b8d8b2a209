// The DNS request engine: takes datagrams from the two DNS sockets and the
// timer ticks, resolves requests and sends answers and external queries
// through the injected senders. No I/O of its own, no Qt; one thread.
//
// The shell's part:
//   - SetRunning(true) once WSDNS is bound, with SetServicePort; Pause()
//     when the server pauses; SetLocalNetworks with the networks of LocalIPs;
//   - every datagram read from WSDNS goes to OnDnsDatagram (with the local
//     address it was sent to), every one from a query channel (WSDNS2) to
//     OnDns2Datagram with the channel's Id;
//   - socket error events go to SocketError, a channel's to ChannelError;
//   - a 1000 ms timer calls Timer() while the engine wants it: the engine
//     says so through the callback given to SetTimerSwitch.
// Nothing here throws. Bad datagrams get their logged result (or are
// dropped); unexpected failures go to the store's error reporter with the
// procedure's tag ("modDNS ProcReq", "modDNS ProcAns", "frmMain Timer",
// "clDNSReq Check", ...) and the call returns.
//
// One call at a time: a datagram, a tick or a pause that arrives while one
// of them runs (the shell ran a nested event loop from inside a callback:
// the log, the error reporter, a sender, the timer switch) would find
// requests half-way through and could delete one still in use. Such a call
// is ignored, and logged at most once a minute ("DNS engine busy: a nested
// call was ignored."); a nested Pause() is not lost: the engine stops taking
// datagrams at once and drops its requests when the running call returns.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dns/query_channel.h"
#include "dns/request.h"
#include "dns/request_host.h"
#include "store/lease_source.h"
#include "store/store.h"
#include "wire/dns_message.h"
#include "wire/ip_network.h"
#include "wire/services.h"

namespace korvane {

// Plain counts since start, read by the shell once a second for its status
// display; each costs the answer path one increment.
struct DnsCounters {
  uint64_t queries = 0;          // query datagrams taken by ProcReq
  uint64_t answersOwn = 0;       // from the own records, hosts or leases, or refused here
  uint64_t answersCache = 0;     // answered from the cache without asking anyone
  uint64_t answersOthers = 0;    // answered after asking other servers (or giving up)
};

class DnsEngine : private RequestHost {
 public:
  static constexpr int kTimerIntervalMs = 1000;
  static constexpr int kCleanIntervalMs = 60000;
  // Most requests held at once; a request that would have to wait beyond
  // this is answered at once with "Server Failure".
  static constexpr std::size_t kMaxRequests = 10000;
  static constexpr int kMaxQueriesPerRequest = clDNSRequest::kMaxQueries;
  static constexpr int kMaxAliasHops = clDNSRequest::kMaxAliasHops;
  static constexpr int kDnsPort = clDNSRequest::kDnsPort;
  static constexpr std::size_t kMaxReplyRecords = clDNSRequest::kMaxReplyRecords;
  static constexpr std::size_t kMaxReplyBytes = clDNSRequest::kMaxReplyBytes;
  // Nested calls are logged at most this often.
  static constexpr double kBusyLogInterval = 60;

  // `leases` may be null (no DHCP service). Until SetRandom is called the
  // choice among name servers uses a generator seeded by the system's
  // random device; until SetQueryIdSource is called query IDs come from
  // the random device itself.
  DnsEngine(StoreContext& store, DatagramSender& WSDNS, QueryChannels& WSDNS2,
            LeaseSource* leases = nullptr);
  ~DnsEngine() override;
  DnsEngine(const DnsEngine&) = delete;
  DnsEngine& operator=(const DnsEngine&) = delete;

  // A uniform random source in [0, 1) for the choice among name servers.
  void SetRandom(std::function<double()> random);
  // Unpredictable numbers for query IDs (a cryptographic source: an ID that
  // can be guessed lets a forged reply into the cache).
  void SetQueryIdSource(std::function<uint32_t()> source);
  // Called with true when the timer must run, false when it may stop.
  void SetTimerSwitch(std::function<void(bool)> timerSwitch);
  void SetLeaseSource(LeaseSource* leases) { leases_ = leases; }
  // The port WSDNS is bound to: a name server on this machine at the DNS
  // port would be this server itself. 0 (unknown) until set.
  void SetServicePort(int port) { servicePort_ = port; }
  // The networks of LocalIPs: their clients (and loopback, and those of
  // RecursionFrom) may have names resolved through other servers.
  void SetLocalNetworks(std::vector<modIP::Network> networks) {
    localNetworks_ = std::move(networks);
  }

  void SetRunning(bool running) { running_ = running; }
  bool Running() const { return running_; }
  bool TimerEnabled() const { return timerEnabled_; }

  // WSDNS data arrival: dropped while not running or below 12 bytes; a query
  // goes to ProcReq, a reply to ProcAns.
  void OnDnsDatagram(const std::string& host, int port, std::string_view data,
                     const std::string& localAddress = "");
  // Data arrival on the query channel `channel`: only replies are taken.
  void OnDns2Datagram(uint64_t channel, const std::string& host, int port,
                      std::string_view data);
  // Socket error events: one log line each. `socket` 1 is WSDNS, 2 WSDNS2.
  void SocketError(int socket, int number, const std::string& description);
  // An error the network reported for a query channel (its server's port
  // is closed, say): logged as a WSDNS2 error, and the request that asked
  // asks its next server at once.
  void ChannelError(uint64_t channel, int number, const std::string& description);

  // One query datagram from host:port; the answer leaves from `localAddress`.
  void ProcReq(const std::string& host, int port, std::string_view data,
               const std::string& localAddress = "");
  // One reply of another name server, from host:port, read on the query
  // channel `channel` (0: on WSDNS, where no query left from). It counts
  // only on the channel of the query, from the server and port asked, with
  // the query's ID and question.
  void ProcAns(uint64_t channel, const std::string& host, int port, std::string_view data);
  // The timer's tick: re-checks timed-out requests, cleans the cache every
  // minute of running time, and switches the timer off when idle.
  void Timer();
  // Empties Requests, switches the timer off and stops taking datagrams.
  void Pause();

  const std::vector<std::unique_ptr<clDNSRequest>>& Requests() const { return requests_; }
  int32_t TickCounter() const { return tickCounter_; }
  const DnsCounters& Counters() const { return counters_; }

  // Keeps the sources of the last answers while on (a look-up window is
  // open); off, nothing is kept.
  void TrackAnswerSources(bool on) { recent_.Enable(on); }
  // What was noted of the answer to client:port with `id`; null when
  // nothing was (tracking off, or the answer is long gone).
  const AnsweredRequest* AnswerSources(const std::string& client, int port, int id) const {
    return recent_.Find(client, port, id);
  }

 private:
  class Entry;

  // RequestHost: what the requests may reach.
  StoreContext& Store() override { return store_; }
  LeaseSource* Leases() override { return leases_; }
  DatagramSender& AnswerSocket() override { return WSDNS_; }
  QueryChannels& Channels() override { return WSDNS2_; }
  uint64_t NewSerial() override { return nextSerial_++; }
  bool Holds(uint64_t serial) const override { return Find(serial) != nullptr; }
  bool Full() const override { return requests_.size() >= kMaxRequests; }
  void AddSubRequest(std::unique_ptr<clDNSRequest> sub) override;
  void CheckSoon(uint64_t serial) override { pendingChecks_.push_back(serial); }
  void SubRequestDone(uint64_t serial) override;
  int32_t NextQueryId() override;
  double Random() override;
  void EnableTimer() override { SwitchTimer(true); }
  void AnswerSent(AnswerSource source) override;
  bool IsLoop(const std::string& address) override;
  bool RecursionAllowed(const std::string& client) const override;
  AnsweredRequest* NoteAnswer(const std::string& client, int port, int id) override {
    return recent_.Add(client, port, id);
  }

  void RunProcReq(const std::string& host, int port, std::string_view data,
                  const std::string& localAddress);
  void RunProcAns(uint64_t channel, const std::string& host, int port, std::string_view data);
  // The request whose query left from our own channel at `port` and came
  // back to us from `host` (a loop), or null.
  clDNSRequest* LoopedQuery(const std::string& host, int port) const;
  // The looped query is answered "Server Failure"; its asker moves on.
  void RefuseLoop(std::unique_ptr<clDNSRequest> looped, clDNSRequest& asker);
  // Drops a held request from Requests when `done` (what its Check said).
  void RemoveIfDone(const clDNSRequest* request, bool done);
  // The request that owns the query channel `channel`, or null.
  clDNSRequest* ChannelOwner(uint64_t channel) const;
  bool IdPending(int32_t id) const;
  void NotImplemented(const std::string& host, int port, std::string_view data,
                      const std::string& text, const std::string& localAddress);
  void AddRequest(std::unique_ptr<clDNSRequest> request);
  clDNSRequest* Find(uint64_t serial) const;
  void RunPendingChecks();
  void SwitchTimer(bool on);
  void StopWork();
  void RefuseNested();

  // Taking a reply (reply.cpp): match it to the request that asked, store
  // what it carries, wake the requests that wait for its question.
  void TakeReply(uint64_t channel, const std::string& host, int port, std::string_view data);
  clDNSRequest* ReplyOwner(uint64_t channel, const std::string& host, int port, int32_t id,
                           const modDNS::Question& question);
  void WakeAskers(const clDNSRequest& owner, const ReplyOutcome& outcome, int16_t questionType);

  StoreContext& store_;
  DatagramSender& WSDNS_;
  QueryChannels& WSDNS2_;
  LeaseSource* leases_;
  std::function<double()> random_;
  std::function<uint32_t()> queryIds_;
  std::function<void(bool)> timerSwitch_;

  std::vector<std::unique_ptr<clDNSRequest>> requests_;
  std::deque<uint64_t> pendingChecks_;
  bool runningChecks_ = false;
  bool running_ = false;
  bool timerEnabled_ = false;
  int32_t tickCounter_ = 0;
  int servicePort_ = 0;
  std::vector<modIP::Network> localNetworks_;
  // Name servers found to be this server; each was logged once.
  std::vector<std::string> loops_;
  uint64_t nextSerial_ = 1;
  DnsCounters counters_;

  RecentAnswers recent_;
  bool busy_ = false;            // a call from outside is running
  bool pauseDeferred_ = false;   // Pause() came nested: drop the requests on return
  bool busyLogged_ = false;
  DateTime busyLoggedAt_ = 0;
};

}  // namespace korvane
