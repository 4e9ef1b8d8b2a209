// What keeps the engine from being misused: query IDs nobody can predict,
// forwarding loops found and cut, recursion offered only to the networks it
// is meant for.
#include <algorithm>

#include "dns/engine.h"
#include "dns/local_names.h"

namespace korvane {

bool DnsEngine::IdPending(int32_t id) const {
  for (const auto& request : requests_)
    if (request->AwaitingReply() && request->LastQID == id) return true;
  return false;
}

int32_t DnsEngine::NextQueryId() {
  // Drawn again while a query that is still out has it, so that a reply
  // names exactly one of them; there are far fewer queries out than IDs.
  auto draw = [this] { return static_cast<int32_t>(queryIds_() & 0xFFFF); };
  int32_t id = draw();
  for (int draws = 1; IdPending(id); ++draws) id = draws < 64 ? draw() : (id + 1) & 0xFFFF;
  return id;
}

bool DnsEngine::IsLoop(const std::string& address) {
  if (std::find(loops_.begin(), loops_.end(), address) != loops_.end()) return true;
  if (!IsThisServer(address, store_.options.DNSBIND, store_.LocalIPs, servicePort_)) return false;
  loops_.push_back(address);
  store_.log.AddLine(ForwardingLoopLine(address));
  return true;
}

bool DnsEngine::RecursionAllowed(const std::string& client) const {
  std::optional<uint32_t> ip = modIP::ParseAddress(client);
  if (!ip) return false;
  if (modIP::IsLoopback(*ip)) return true;
  for (const modIP::Network& network : localNetworks_)
    if (network.Contains(*ip)) return true;
  for (const std::string& entry : store_.options.RECURSIONFROM) {
    if (entry == "any") return true;
    std::optional<modIP::Network> network = modIP::ParseNetwork(entry);
    if (network && network->Contains(*ip)) return true;
  }
  return false;
}

clDNSRequest* DnsEngine::ChannelOwner(uint64_t channel) const {
  if (channel == 0) return nullptr;
  for (const auto& request : requests_)
    if (request->AwaitingReply() && request->ChannelId() == channel) return request.get();
  return nullptr;
}

void DnsEngine::RemoveIfDone(const clDNSRequest* request, bool done) {
  if (!done) return;
  for (std::size_t i = 0; i < requests_.size(); ++i) {
    if (requests_[i].get() != request) continue;
    requests_.erase(requests_.begin() + static_cast<long>(i));
    return;
  }
}

clDNSRequest* DnsEngine::LoopedQuery(const std::string& host, int port) const {
  if (requests_.empty()) return nullptr;
  std::optional<uint32_t> ip = modIP::ParseAddress(host);
  // Sent from this machine, or from the address our query went to (an
  // address of ours that LocalIPs does not list).
  const bool local = (ip && modIP::IsLoopback(*ip)) ||
                     std::find(store_.LocalIPs.begin(), store_.LocalIPs.end(), host) !=
                         store_.LocalIPs.end();
  for (const auto& request : requests_)
    if (request->AwaitingReply() && request->ChannelPort() == port &&
        (local || request->LastServer() == host))
      return request.get();
  return nullptr;
}

void DnsEngine::RefuseLoop(std::unique_ptr<clDNSRequest> looped, clDNSRequest& asker) {
  const std::string server = asker.LastServer();
  if (std::find(loops_.begin(), loops_.end(), server) == loops_.end()) {
    loops_.push_back(server);
    store_.log.AddLine(ForwardingLoopLine(server));
  }
  looped->SendServerFailure();
  RemoveIfDone(&asker, asker.QueryFailed("forwarding loop"));
}

}  // namespace korvane
