#include <algorithm>
#include <cmath>
#include <exception>

#include "dns/request.h"
#include "wire/dns_codec.h"
#include "wire/zone_names.h"

namespace korvane {

void clDNSRequest::GatherServers() {
  const Options& options = store_.options;
  if (options.RECURSIONOUT) {
    for (const std::string& address : options.NS) nservs_.push_back({"external", address});
    return;
  }
  // The deepest zone with an addressed server wins. When the deepest zone's
  // servers have no address, one of them is looked up first; a server inside
  // the zone itself could only be found through that zone, so it is skipped.
  std::string zone = currentName_;
  bool deepest = true;
  for (int guard = 0; guard < 256; ++guard) {
    std::vector<const clDNSRecord*> servers;
    if (!GetNS(zone, servers)) return;
    nservs_ = FillNS(servers);
    if (!nservs_.empty()) return;
    if (deepest) {
      deepest = false;
      for (const clDNSRecord* server : servers) {
        const std::string& host = server->Data;
        if (dnsnames::InZone(host, zone)) continue;
        if (std::find(subAsked_.begin(), subAsked_.end(), host) != subAsked_.end()) continue;
        if (StartSubRequest(host)) return;
        break;
      }
    }
    if (zone == ".") return;
    zone = dnsnames::Parent(zone);
  }
}

bool clDNSRequest::ExtResolve() {
  try {
    const DateTime now = store_.clock.Now();
    const bool sameQuestion = queries_ > 0 && currentName_ == LastQ && RecType == LastQType;
    if (sameQuestion && !regather_ && awaitingReply_) {
      // Checked again before the server had its time: keep waiting.
      if (now < TimeOut) return true;
      DropServer(false, "");
    }
    if (queries_ >= kMaxQueries) return false;

    if (!sameQuestion || regather_) {
      nservs_.clear();
      EndQuery();
      regather_ = false;
      GatherServers();
      if (waitingSub_) {
        TimeOut = now + 2;
        return true;
      }
    }
    while (!nservs_.empty() && queries_ < kMaxQueries) {
      auto index = static_cast<std::size_t>(std::floor(host_.Random() * nservs_.size()));
      if (index >= nservs_.size()) index = nservs_.size() - 1;
      const clNServ server = nservs_[index];
      lastServer_ = server.Address;
      lastServerName_ = server.Name;
      if (host_.IsLoop(server.Address)) {
        DropServer(true, "forwarding loop");
        continue;
      }
      LastQ = currentName_;
      LastQType = RecType;
      LastQID = host_.NextQueryId();
      TimeOut = now + 2;
      if (queries_++ == 0) firstQueryAt_ = now;
      std::string failure;
      if (SendQuery(server, failure)) {
        awaitingReply_ = true;
        host_.EnableTimer();
        return true;
      }
      DropServer(true, failure);
    }
    return false;
  } catch (const std::exception& e) {
    ReportException(store_.errors, "clDNSReq ExtResolve", e);
    return false;
  }
}

void clDNSRequest::DropServer(bool failed, const std::string& why) {
  const std::string dropped = lastServer_;
  nservs_.erase(std::remove_if(nservs_.begin(), nservs_.end(),
                               [&](const clNServ& s) { return s.Address == dropped; }),
                nservs_.end());
  EndQuery();
  if (failed) {
    ++failedServers_;
    lastFailure_ = why;
    lastDrop_ = Drop::kFailed;
  } else {
    ++silentServers_;
    lastDrop_ = Drop::kSilent;
  }
}

void clDNSRequest::EndQuery() {
  awaitingReply_ = false;
  channel_.reset();
}

bool clDNSRequest::SendQuery(const clNServ& server, std::string& failure) {
  std::string query = modDNS::MakeShort(LastQID);
  // Recursion is wanted of a configured resolver, not of the servers we walk.
  query += static_cast<char>(store_.options.RECURSIONOUT ? 1 : 0);
  query += '\0';
  query += modDNS::MakeShort(1);
  query.append(6, '\0');
  query += modDNS::ZipName("", LastQ, store_.errors);
  query += modDNS::MakeShort(static_cast<uint16_t>(LastQType));
  query += modDNS::MakeShort(1);

  store_.log.AddLine("Sending request to " + server.Address + " (" + server.Name + ") for " +
                     modDNS::RTypeN(LastQType) + "-record for " + LastQ);
  SendError error;
  // A socket of its own for each query: its port is as unpredictable as its ID.
  channel_ = host_.Channels().Open(server.Address, kDnsPort, error);
  if (channel_ && channel_->Send(query, error)) return true;
  channel_.reset();
  store_.log.AddLine("XR-WS Error " + std::to_string(error.number) + " " + error.description);
  failure = error.description;
  return false;
}

void clDNSRequest::GiveUp(DateTime now) {
  EndQuery();
  if (IsSub()) {
    SendAnswer();
    answered_ = true;
    return;
  }
  store_.log.AddLine({"Gave up on ", modDNS::RTypeN(RecType), "-record for ", Name, ": ",
                      GiveUpReason(now), "."});
  // Whatever was found on the way is not the answer.
  SendServerFailure();
}

std::string clDNSRequest::GiveUpReason(DateTime now) const {
  auto servers = [](int count) {
    return std::to_string(count) + (count == 1 ? " server" : " servers");
  };
  if (queries_ >= kMaxQueries) return "no answer after " + std::to_string(queries_) + " queries";
  if (silentServers_ > 0) {
    const long seconds = std::lround(std::max(0.0, now - firstQueryAt_));
    return "no answer from " + servers(silentServers_ + failedServers_) + " in " +
           std::to_string(seconds) + " s";
  }
  if (failedServers_ > 0) return servers(failedServers_) + " failed (" + lastFailure_ + ")";
  return "no server to ask";
}

}  // namespace korvane
