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
    // Checked again before the server had its time: keep waiting.
    if (sameQuestion && !regather_ && awaitingReply_ && now < TimeOut) return true;
    if (queries_ >= kMaxQueries) return false;

    if (!sameQuestion || regather_) {
      nservs_.clear();
      awaitingReply_ = false;
      regather_ = false;
      GatherServers();
      if (waitingSub_) {
        TimeOut = now + 2;
        return true;
      }
    } else if (awaitingReply_) {
      // The last server stayed silent: ask another.
      const std::string silent = lastServer_;
      nservs_.erase(std::remove_if(nservs_.begin(), nservs_.end(),
                                   [&](const clNServ& s) { return s.Address == silent; }),
                    nservs_.end());
      awaitingReply_ = false;
    }
    if (nservs_.empty()) return false;

    auto index = static_cast<std::size_t>(std::floor(host_.Random() * nservs_.size()));
    if (index >= nservs_.size()) index = nservs_.size() - 1;
    const clNServ server = nservs_[index];

    LastQ = currentName_;
    LastQType = RecType;
    LastQID = host_.NextQueryId();
    TimeOut = now + 2;
    lastServer_ = server.Address;
    lastServerName_ = server.Name;
    awaitingReply_ = true;
    if (queries_++ == 0) firstQueryAt_ = now;
    SendQuery(server);
    host_.EnableTimer();
    return true;
  } catch (const std::exception& e) {
    ReportException(store_.errors, "clDNSReq ExtResolve", e);
    return false;
  }
}

void clDNSRequest::SendQuery(const clNServ& server) {
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
  if (!host_.QuerySocket().Send(server.Address, kDnsPort, query, "", error))
    store_.log.AddLine("XR-WS Error " + std::to_string(error.number) + " " + error.description);
}

}  // namespace korvane
