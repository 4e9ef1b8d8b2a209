// What a request needs of the engine that holds it, and nothing more: the
// store, the leases, the answer socket and the query channels, the other
// pending requests (by serial, for sub-requests), query IDs, chance, the
// timer, and who this server is and serves. The engine implements it; a
// test can give a request a small fake instead.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "dns/query_channel.h"
#include "dns/recent_answers.h"
#include "store/lease_source.h"
#include "store/store.h"
#include "wire/services.h"

namespace korvane {

class clDNSRequest;

// Where the answer a client got came from, for the counters the status
// display samples. kOwnRecords also covers what the server decides alone:
// a refusal, a name kept local, a full request table.
enum class AnswerSource { kOwnRecords, kCache, kOtherServers };

class RequestHost {
 public:
  virtual ~RequestHost() = default;

  virtual StoreContext& Store() = 0;
  // Null when there is no DHCP service.
  virtual LeaseSource* Leases() = 0;
  // WSDNS, from which answers go to clients.
  virtual DatagramSender& AnswerSocket() = 0;
  // WSDNS2: the channels queries to other servers leave from.
  virtual QueryChannels& Channels() = 0;

  // A serial no other request of this host has had.
  virtual uint64_t NewSerial() = 0;
  // True while the request `serial` is held in Requests.
  virtual bool Holds(uint64_t serial) const = 0;
  // True when Requests holds as many requests as it may: no more may wait.
  virtual bool Full() const = 0;
  // Takes a sub-request into Requests; it is checked soon.
  virtual void AddSubRequest(std::unique_ptr<clDNSRequest> sub) = 0;
  // Checks the request `serial` again once the walk in progress is over.
  virtual void CheckSoon(uint64_t serial) = 0;
  // Calls CheckSub on every request that waits for the sub-request `serial`.
  virtual void SubRequestDone(uint64_t serial) = 0;

  // The ID of the next query to another server: unpredictable, and not the
  // ID of a query that still waits for its reply.
  virtual int32_t NextQueryId() = 0;
  // Uniform in [0, 1).
  virtual double Random() = 0;
  // The timer must run: a request waits.
  virtual void EnableTimer() = 0;
  // An answer left for a client; a host that keeps no counters ignores it.
  virtual void AnswerSent(AnswerSource /*source*/) {}

  // True when a query to `address` on the DNS port would reach this server
  // itself (a forwarding loop); the first time for an address it is logged.
  virtual bool IsLoop(const std::string& address) = 0;
  // True when `client` may have names resolved through other servers.
  virtual bool RecursionAllowed(const std::string& client) const = 0;
  // Where to note the sources of the answer about to leave to client:port
  // with `id`; null (the default) while no one wants them.
  virtual AnsweredRequest* NoteAnswer(const std::string& /*client*/, int /*port*/, int /*id*/) {
    return nullptr;
  }
};

}  // namespace korvane
