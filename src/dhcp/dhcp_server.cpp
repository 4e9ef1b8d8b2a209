#include "dhcp/dhcp_server.h"

#include "wire/ip.h"

namespace korvane {

namespace {

constexpr std::size_t kMaxBuffered = 65536;

std::uint32_t AddressNumber(std::string_view text) {
  std::string data = modIP::IPToData(text);
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = (value << 8) | static_cast<unsigned char>(data[i]);
  return value;
}

}  // namespace

DhcpServer::DhcpServer(const DHCPifList& DHCPifs, const Options& options, const RecordList& records,
                       const Clock& clock, LogSink& log, ErrorReporter& errors, std::string folder)
    : DHCPifs_(DHCPifs),
      options_(options),
      records_(records),
      clock_(clock),
      log_(log),
      errors_(errors),
      folder_(std::move(folder)) {}

void DhcpServer::Fault(const char* tag, const std::exception& error) {
  ReportException(errors_, tag, error);
}

void DhcpServer::SetSocket(int k, DatagramSender* sender, std::string localAddress) {
  if (k < 0 || k >= modDHCP::kSocketCount) return;
  sockets_[k] = {sender, std::move(localAddress)};
}

void DhcpServer::CloseSocket(int k) {
  if (k < 0 || k >= modDHCP::kSocketCount) return;
  sockets_[k] = {};
}

void DhcpServer::Refresh() {
  if (DHCPRefresh) DHCPRefresh();
}

template <class Change>
void DhcpServer::Changing(const char* tag, Change change) {
  std::uint64_t before = leases_.Version();
  try {
    change();
  } catch (const std::exception& error) {
    Fault(tag, error);
  }
  if (leases_.Version() != before && LeasesChanged) LeasesChanged();
}

void DhcpServer::DataArrival(int k, std::string_view datagram, const std::string& sender) {
  if (k < 0 || k >= modDHCP::kSocketCount) {
    errors_.Report("modDHCP Arrival", "socket index " + std::to_string(k), ErrorNumber::kInvalidCall,
                   "Invalid procedure call or argument");
    return;
  }
  try {
    buffers_[k].append(datagram);
  } catch (const std::exception& error) {
    buffers_[k].clear();
    Fault("modDHCP Arrival", error);
    return;
  }
  Arrival(static_cast<int16_t>(k), sender);
}

void DhcpServer::Arrival(int16_t k, const std::string& sender) {
  if (k < 0 || k >= modDHCP::kSocketCount) {
    errors_.Report("modDHCP Arrival", "socket index " + std::to_string(k), ErrorNumber::kInvalidCall,
                   "Invalid procedure call or argument");
    return;
  }
  try {
    ReadMessage(k, sender);
    // A peer that never sends an end option would otherwise grow the buffer
    // and the cost of re-reading it without bound.
    if (buffers_[k].size() > kMaxBuffered) buffers_[k].clear();
  } catch (const std::exception& error) {
    // A message that faulted once would fault again with every datagram appended.
    buffers_[k].clear();
    Fault("modDHCP Arrival", error);
  }
}

const clDHCPif* DhcpServer::InterfaceOf(const std::string& localAddress) const {
  for (const clDHCPif& candidate : DHCPifs_)
    if (candidate.IPaddr == localAddress) return &candidate;
  return nullptr;
}

void DhcpServer::ReadMessage(int16_t k, const std::string& sender) {
  std::string& buffer = buffers_[k];
  const std::string& localAddress = sockets_[k].localAddress;
  modDHCP::ParsedMessage parsed = modDHCP::ParseMessage(buffer, InterfaceOf(localAddress));
  if (parsed.outcome == modDHCP::ParseOutcome::kIncomplete) return;  // wait for more
  buffer.clear();
  if (parsed.outcome != modDHCP::ParseOutcome::kRead) return;
  parsed.request.WSIndex = k;
  Dispatch(parsed, sender, localAddress);
}

void DhcpServer::Dispatch(modDHCP::ParsedMessage& parsed, const std::string& sender,
                          const std::string& localAddress) {
  clDHCPRequest& request = parsed.request;
  switch (parsed.messageType) {
    case modDHCP::kDiscover: {
      std::string line = "DHCP Discovery from " + request.ClientName;
      if (!request.ReqIP.empty()) line += " (Looking for " + request.ReqIP + ")";
      log_.AddLine(line);
      Discover(request);
      break;
    }
    case modDHCP::kRequest:
      if (sender == request.ClientIP && sender != "0.0.0.0") {
        request.ReqIP = sender;
        log_.AddLine("DHCP Renewal Request from " + request.ClientName + " for " + request.ReqIP);
      } else if (parsed.serverIdentifier != localAddress) {
        return;  // meant for another server
      } else {
        log_.AddLine("DHCP Lease Request from " + request.ClientName + " for " + request.ReqIP);
      }
      Request(request);
      break;
    case modDHCP::kDecline:
      log_.AddLine("DHCP Decline from " + request.ClientName);
      break;
    case modDHCP::kRelease:
      log_.AddLine("DHCP Release from " + sender);
      Release(request.Identity);
      Refresh();
      break;
    default:
      break;
  }
}

bool DhcpServer::NameMayLease(const std::string& name, bool reuse) const {
  if (name == options_.NAME + ".") return false;
  if (!name.empty()) {
    DateTime now = clock_.Now();
    for (LeaseTable::Id id : leases_.WithName(name))
      if (reuse || leases_.At(id).Expires > now) return false;
  }
  // Deliberately the empty name, not the client's: a permanent record without
  // a name stops all assignment.
  for (const auto& record : records_.Named(""))
    if (record->Permanent) return false;
  return true;
}

bool DhcpServer::ValidLease(const clDHCPif& interface, const std::string& address,
                            const std::string& name, bool reuse) {
  try {
    if (address.empty() || address == "0.0.0.0") return false;
    if (address == interface.IPaddr) return false;
    std::uint32_t number = AddressNumber(address);
    if (number < AddressNumber(interface.ScopeFrom) || number > AddressNumber(interface.ScopeTo))
      return false;
    DateTime now = clock_.Now();
    for (LeaseTable::Id id : leases_.WithAddress(address))
      if (!reuse || leases_.At(id).Expires > now) return false;
    return NameMayLease(name, reuse);
  } catch (const std::exception& error) {
    Fault("modDHCP ValidLease", error);
    return false;
  }
}

std::optional<std::string> DhcpServer::SearchPool(const clDHCPif& interface, const std::string& name,
                                                  bool reuse) {
  try {
    if (!NameMayLease(name, reuse)) return std::nullopt;
    std::uint64_t from = AddressNumber(interface.ScopeFrom);
    std::uint64_t to = AddressNumber(interface.ScopeTo);
    if (from > to) return std::nullopt;
    // The walk tries ScopeFrom as written, then canonical addresses only; a
    // non-canonical first address is matched against the table as text.
    if (!CanonicalAddress(interface.ScopeFrom)) {
      if (ValidLease(interface, interface.ScopeFrom, name, reuse)) return interface.ScopeFrom;
      ++from;
    }
    std::optional<std::uint32_t> own = CanonicalAddress(interface.IPaddr);
    DateTime now = clock_.Now();
    // At most two refused candidates (0.0.0.0 and the own address) before an answer.
    while (from <= to) {
      std::optional<std::uint32_t> found =
          reuse ? leases_.LowestWithoutActive(from, to, now) : leases_.LowestUnleased(from, to);
      if (!found) return std::nullopt;
      if (*found != 0 && found != own) return DottedAddress(*found);
      from = std::uint64_t(*found) + 1;
    }
    return std::nullopt;
  } catch (const std::exception& error) {
    Fault("modDHCP ValidLease", error);
    return std::nullopt;
  }
}

void DhcpServer::RemoveFirstOf(const std::string& clientID) {
  const LeaseTable::Ids& ids = leases_.WithClientID(clientID);
  if (!ids.empty()) leases_.Erase(*ids.begin());
}

void DhcpServer::Discover(const clDHCPRequest& request) {
  Changing("modDHCP Discover", [&] {
    if (!request.Interface) return;
    RemoveFirstOf(request.Identity);
    const clDHCPif& interface = *request.Interface;
    DateTime now = clock_.Now();
    std::optional<std::string> address;
    DateTime expires = now;
    if (ValidLease(interface, request.ReqIP, request.DomainName, true)) {
      address = request.ReqIP;
    } else {
      address = SearchPool(interface, request.DomainName, false);
      if (!address) address = SearchPool(interface, request.DomainName, true);
      // Already expired: holds the address against other clients' first pass
      // until the REQUEST makes it active.
      expires = now - kSecondsPerDay;
    }
    if (address) {
      Remove(*address, request.DomainName);
      leases_.Append({expires, *address, request.DomainName, request.Identity});
      Send(request, modDHCP::kOffer, *address);
    }
    Refresh();
  });
}

void DhcpServer::Request(const clDHCPRequest& request) {
  Changing("modDHCP Request", [&] {
    if (!request.Interface) return;
    RemoveFirstOf(request.Identity);
    const clDHCPif& interface = *request.Interface;
    if (!ValidLease(interface, request.ReqIP, request.DomainName, true)) {
      Send(request, modDHCP::kNak, request.ReqIP);
    } else {
      Remove(request.ReqIP, request.DomainName);
      leases_.Append({clock_.Now() + interface.TTL, request.ReqIP, request.DomainName,
                      request.Identity});
      Send(request, modDHCP::kAck, request.ReqIP);
    }
    Refresh();
  });
}

void DhcpServer::Release(const std::string& clientID) {
  Changing("modDHCP Release", [&] {
    const LeaseTable::Ids& ids = leases_.WithClientID(clientID);
    if (!ids.empty()) leases_.SetExpires(*ids.begin(), clock_.Now());
  });
}

void DhcpServer::Remove(const std::string& address, const std::string& name) {
  try {
    std::vector<LeaseTable::Id> doomed(leases_.WithAddress(address).begin(),
                                       leases_.WithAddress(address).end());
    if (!name.empty()) {
      const LeaseTable::Ids& named = leases_.WithName(name);
      doomed.insert(doomed.end(), named.begin(), named.end());
    }
    for (LeaseTable::Id id : doomed) leases_.Erase(id);
  } catch (const std::exception& error) {
    Fault("modDHCP Remove", error);
  }
}

void DhcpServer::DeleteClient(const std::string& clientID) {
  Changing("frmMain mnuDHCPDel", [&] {
    const LeaseTable::Ids& ids = leases_.WithClientID(clientID);
    std::vector<LeaseTable::Id> doomed(ids.begin(), ids.end());
    for (LeaseTable::Id id : doomed) leases_.Erase(id);
    Refresh();
  });
}

void DhcpServer::LogReply(int16_t type, const std::string& clientName, const std::string& address) {
  switch (type) {
    case modDHCP::kOffer:
      log_.AddLine("Sending DHCP Offer to " + clientName + " for " + address);
      break;
    case modDHCP::kAck:
      log_.AddLine("Sending DHCP Acknowledgement to " + clientName + " for " + address);
      break;
    case modDHCP::kNak:
      log_.AddLine("Sending DHCP Negative to " + clientName + " for " + address);
      break;
    default:
      break;
  }
}

void DhcpServer::Send(const clDHCPRequest& request, int16_t type, const std::string& address) {
  try {
    if (!request.Interface) return;
    std::string reply =
        modDHCP::BuildReply(request, type, address, *request.Interface, options_.DNSBIND);
    LogReply(type, request.ClientName, address);
    std::string destination = request.ClientIP != "0.0.0.0" ? request.ClientIP : "255.255.255.255";
    const Socket* socket =
        request.WSIndex >= 0 && request.WSIndex < modDHCP::kSocketCount ? &sockets_[request.WSIndex]
                                                                         : nullptr;
    SendError error;
    if (!socket || !socket->sender ||
        !socket->sender->Send(destination, modDHCP::kClientPort, reply, socket->localAddress, error))
      log_.AddLine("Socket Error sending DHCP messages.");
  } catch (const std::exception& error) {
    Fault("modDHCP Send", error);
  }
}

std::vector<clLease> DhcpServer::ActiveLeases() const {
  std::vector<clLease> active;
  DateTime now = clock_.Now();
  for (const clLease& lease : leases_)
    if (lease.Expires > now) active.push_back(lease);
  return active;
}

std::optional<DateTime> DhcpServer::NextExpiry() const {
  return leases_.NextExpiryAfter(clock_.Now());
}

std::vector<PoolUse> DhcpServer::PoolsInUse() const {
  std::vector<PoolUse> pools;
  const DateTime now = clock_.Now();
  for (const clDHCPif& interface : DHCPifs_) {
    PoolUse use{interface.IPaddr};
    std::optional<std::uint32_t> from = CanonicalAddress(interface.ScopeFrom);
    std::optional<std::uint32_t> to = CanonicalAddress(interface.ScopeTo);
    if (from && to && *from <= *to) {
      use.size = std::uint64_t(*to) - *from + 1;
      for (const clLease& lease : leases_) {
        std::optional<std::uint32_t> address = CanonicalAddress(lease.IPaddr);
        if (lease.Expires > now && address && *address >= *from && *address <= *to) ++use.inUse;
      }
    }
    pools.push_back(std::move(use));
  }
  return pools;
}

std::vector<LeaseView> DhcpServer::Views(const LeaseTable::Ids& ids) const {
  std::vector<LeaseView> views;
  for (LeaseTable::Id id : ids) {
    const clLease& lease = leases_.At(id);
    views.push_back({lease.ClientName, lease.IPaddr, lease.Expires});
  }
  return views;
}

std::vector<LeaseView> DhcpServer::LeasesNamed(const std::string& name) const {
  return Views(leases_.WithName(name));
}

std::vector<LeaseView> DhcpServer::LeasesOfAddress(const std::string& ip) const {
  return Views(leases_.WithAddress(ip));
}

}  // namespace korvane
