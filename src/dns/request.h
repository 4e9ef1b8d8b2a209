// One pending DNS request: resolution against the record list and the DHCP
// leases, answer assembly, and resolution through other name servers.
// Requests live in DnsEngine::Requests; the engine drives them through
// Check and TakeOutcome, and a request reaches the engine only through the
// narrow RequestHost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dns/request_host.h"
#include "store/record.h"
#include "wire/services.h"

namespace korvane {

// Section names of a DNS message, as the log writes them (1 "Question" ... 4 "Additional").
const std::string& SectionName(int section);

// A candidate name server: "external" for a configured server, else the
// server's own name.
struct clNServ {
  std::string Name;
  std::string Address;  // dotted
};

// What a reply of another server meant for the requests that asked its
// question.
struct ReplyOutcome {
  std::string Question;  // the name that was asked
  bool Useful = false;   // response code 0 or 3: the server did answer
  bool Final = false;    // the servers have said all they know of the name
  int RCode = 0;         // the reply's response code
};

class clDNSRequest {
 public:
  static constexpr int kMaxQueries = 16;      // queries to other servers per request
  static constexpr int kMaxAliasHops = 16;
  static constexpr int kMaxSubRequests = 4;   // per request
  static constexpr int kMaxSubDepth = 3;      // sub-requests of sub-requests
  static constexpr int kDnsPort = 53;
  // Most records one reply carries, and the size past which no further
  // record is started (compression pointers reach 16383 bytes).
  static constexpr std::size_t kMaxReplyRecords = 256;
  static constexpr std::size_t kMaxReplyBytes = 12000;

  explicit clDNSRequest(RequestHost& host);

  // Set at intake.
  std::string FromIP;   // client address, or "SUB" for a sub-request
  int32_t FromPort = 0;
  std::string LocalAddress;  // address the query was sent to; the reply leaves from it
  int32_t Id = 0;
  bool RD = false;
  std::string Name;     // question name, lower case with trailing dot
  int16_t RecType = 0;  // question type

  // External resolution.
  DateTime TimeOut = 0;
  std::string LastQ;
  int16_t LastQType = 0;
  int32_t LastQID = 0;
  // The sub-request this request waits for (its Serial), 0 when none.
  uint64_t SubRequest = 0;
  // Held in Requests: set by the engine when it keeps the request.
  bool Held = false;

  // Unique for the host's lifetime; sub-requests refer to their parent by it.
  uint64_t Serial() const { return serial_; }
  bool IsSub() const { return FromIP == "SUB"; }
  bool Answered() const { return answered_; }
  bool WaitingForSub() const { return waitingSub_; }
  int ResponseCode() const { return rcode_; }
  bool Authoritative() const { return AA_; }
  int QueriesSent() const { return queries_; }
  // Address of the server asked last ("" before the first query).
  const std::string& LastServer() const { return lastServer_; }
  // A query is out and no reply was taken for it.
  bool AwaitingReply() const { return awaitingReply_; }
  // The channel the query that is out left from (0 and 0 when none is out).
  uint64_t ChannelId() const { return channel_ ? channel_->Id() : 0; }
  int ChannelPort() const { return channel_ ? channel_->LocalPort() : 0; }

  // True when the request is finished (answered or given up) and may leave
  // Requests; false while it waits for another server or a sub-request.
  // An unexpected failure is reported as "clDNSReq Check" and gives true.
  bool Check();
  // Takes what a reply to the question this request asked last meant, then
  // checks the request again; returns what Check returns. A reply that was
  // not useful counts as the asked server failing: the next is asked at once.
  bool TakeOutcome(const ReplyOutcome& outcome);
  // The server asked last failed at once (its port is closed, it sent our
  // own query back to us): the next one is asked without waiting. Returns
  // what Check returns.
  bool QueryFailed(const std::string& why);
  // Called when the sub-request this request waits for has finished
  // (answered or given up): the request is checked again soon.
  void CheckSub();
  // Sends the reply (nothing for a sub-request, which wakes its waiters).
  void SendAnswer();
  // Answers at once with "Server Failure" and nothing else (a question this
  // server must not resolve).
  void SendServerFailure();
  // Appends `record` to section 2, 3 or 4 unless that section or an
  // earlier one already holds the same type, name and data.
  void SectionAdd(int section, const clDNSRecord& record);
  // Adds the A records of `name` (following aliases) to the additional section.
  void AddAddl(std::string name);
  // Adds, when AUTOCNAME is on, the alias targets' records to the answer.
  // True when a target had to be resolved first (a sub-request was started
  // and the answer waits for it).
  bool CNAMERes();

  const std::vector<clDNSRecord>& Section(int section) const;
  const std::vector<clNServ>& NServs() const { return nservs_; }

 private:
  // What resolving against the records found.
  struct Resolution {
    bool complete = false;
    bool nameExists = false;
    const clDNSRecord* zoneRecord = nullptr;
  };
  void Resolve(DateTime now, Resolution& found);
  // One pass of the records of the current name; the alias met, or null.
  const SharedText* AnswerFromRecords(Resolution& found);
  // Sends the answer or asks another server; Check's result.
  bool Conclude(bool complete, DateTime now);
  // Settles a question that would have to be asked of another server but
  // may not be (a private or bare name; a client recursion is not offered
  // to). True when it did.
  bool AnsweredWithoutAsking();
  // The request is given up: the client gets "Server Failure" and the log
  // says why.
  void GiveUp(DateTime now);
  std::string GiveUpReason(DateTime now) const;
  void ClearSections();

  void AddAuth(const std::string& name);
  // Climbs from `zone` (itself included) to "." and stops at the first zone
  // with usable NS records (permanent, root hints included, or cached and
  // unexpired), which it appends to `servers`. False when none up to ".".
  bool GetNS(std::string& zone, std::vector<const clDNSRecord*>& servers) const;
  // The addresses of `servers` from the A records of their names.
  std::vector<clNServ> FillNS(const std::vector<const clDNSRecord*>& servers) const;
  // True when a query was sent (or a sub-request started); false when no
  // server is left to ask or the request's query bound is reached. A
  // server that fails at once (no route, a loop) is dropped and the next
  // one asked at once.
  bool ExtResolve();
  // Drops the server of lastServer_ from the candidates: it stayed silent,
  // or it failed (`why`).
  void DropServer(bool failed, const std::string& why);
  // Closes the channel of the query that is out; its reply no longer counts.
  void EndQuery();
  // Fills the candidates for the current question; may start a sub-request.
  void GatherServers();
  bool StartSubRequest(const std::string& name);
  void AddLeaseAnswers(DateTime now);
  bool UnderOwnZone(const std::string& name) const;
  void AppendRecord(std::string& message, const clDNSRecord& record, int section, DateTime now);
  void AddReferral();
  std::string BuildAnswer(DateTime now);
  // Notes where each answer record came from.
  void NoteSources(AnsweredRequest& noted, DateTime now) const;
  // False when the query could not leave (logged as "XR-WS Error"), with
  // the system's reason in `failure`.
  bool SendQuery(const clNServ& server, std::string& failure);

  RequestHost& host_;
  StoreContext& store_;
  uint64_t serial_;
  std::string currentName_;
  bool answered_ = false;
  bool waitingSub_ = false;
  bool askedExternally_ = false;
  bool fromCache_ = false;       // a cached record (or negative entry) answered
  bool AA_ = false;
  int rcode_ = 0;
  std::vector<clDNSRecord> answer_, authority_, additional_;

  // External resolution state.
  std::vector<clNServ> nservs_;
  std::string lastServer_;       // address the last query went to
  std::string lastServerName_;   // and that server's name
  bool awaitingReply_ = false;   // a query is out and no reply was taken for it
  std::unique_ptr<QueryChannel> channel_;  // the socket that query left from
  // Why servers were dropped, for the line that says why the request was
  // given up. A request whose last dropped server failed (rather than
  // stayed silent) is given up as soon as no server is left.
  enum class Drop { kNone, kSilent, kFailed };
  Drop lastDrop_ = Drop::kNone;
  int silentServers_ = 0;
  int failedServers_ = 0;
  std::string lastFailure_;
  DateTime firstQueryAt_ = 0;
  bool regather_ = true;         // candidates must be gathered afresh
  std::string finalFor_;         // name for which a final reply (answer, NXDOMAIN, NODATA) came
  int queries_ = 0;
  int subRequests_ = 0;
  int subDepth_ = 0;             // 0 for a client's request
  std::vector<std::string> subAsked_;  // names already given to a sub-request
};

}  // namespace korvane
