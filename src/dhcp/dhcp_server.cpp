#include "dhcp/dhcp_server.h"

#include <new>

#include "wire/clean_name.h"
#include "wire/ip.h"

namespace korvane {

namespace {

constexpr std::size_t kHeaderLength = 240;  // fixed header and magic cookie
constexpr std::size_t kChaddrOffset = 28;
constexpr std::size_t kChaddrLength = 16;
constexpr unsigned char kEndOption = 255;
constexpr std::size_t kMaxBuffered = 65536;

std::uint32_t AddressNumber(std::string_view text) {
  std::string data = modIP::IPToData(text);
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = (value << 8) | static_cast<unsigned char>(data[i]);
  return value;
}

unsigned char Byte(std::string_view bytes, std::size_t index) {
  return static_cast<unsigned char>(bytes[index]);
}

std::string Lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

void AppendOption(std::string& out, unsigned char code, std::string_view data) {
  // Lengths come from one-byte option lengths, except a long domain; a longer
  // value would corrupt every option after it.
  if (data.size() > 255) data = data.substr(0, 255);
  out += static_cast<char>(code);
  out += static_cast<char>(data.size());
  out += data;
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

void DhcpServer::AfterChange(std::uint64_t versionBefore) {
  if (leases_.Version() != versionBefore && LeasesChanged) LeasesChanged();
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

void DhcpServer::ReadMessage(int16_t k, const std::string& sender) {
  std::string& buffer = buffers_[k];
  if (buffer.size() < kHeaderLength + 1) return;
  std::string_view message = buffer;
  if (Byte(message, 0) != 1) {
    buffer.clear();
    return;
  }

  const std::string& localAddress = sockets_[k].localAddress;
  clDHCPRequest request;
  request.WSIndex = k;
  for (const clDHCPif& candidate : DHCPifs_) {
    if (candidate.IPaddr == localAddress) {
      request.Interface = &candidate;
      break;
    }
  }
  if (!request.Interface) {
    buffer.clear();
    return;
  }

  request.HWType = Byte(message, 1);
  std::size_t hardwareLength = Byte(message, 2);
  request.txID = std::string(message.substr(4, 4));
  request.ClientIP = modIP::DataToIP(message.substr(12, 4));
  request.HWAddr = std::string(message.substr(kChaddrOffset, hardwareLength));

  std::string_view options = message.substr(kHeaderLength);
  int messageType = 0;
  std::string serverIdentifier;
  bool hasClientID = false;
  for (;;) {
    if (options.empty()) return;  // no end option yet: wait for more
    if (Byte(options, 0) == kEndOption) {
      buffer.clear();
      break;
    }
    unsigned char code = Byte(options, 0);
    options.remove_prefix(1);
    if (code == 0) continue;
    if (options.empty()) return;
    std::size_t length = Byte(options, 0);
    if (options.size() < length + 2) return;
    std::string_view data = options.substr(1, length);
    options.remove_prefix(length + 1);
    switch (code) {
      case 12: {
        std::string_view name = data.substr(0, data.find('\0'));
        // Control characters and blanks would forge log lines and lease-file
        // fields; ";" would start a comment there.
        std::string clean;
        for (char c : name.substr(0, name.find('.')))
          if (static_cast<unsigned char>(c) > ' ' && c != 0x7f && c != ';') clean.push_back(c);
        request.ClientName = Lower(clean);
        // An empty name must match no other lease, also with the domain added.
        request.DomainName =
            request.ClientName.empty() ? "" : request.ClientName + "." + request.Interface->Domain;
        break;
      }
      case 50:
        request.ReqIP = modIP::DataToIP(data);
        break;
      case 53:
        messageType = data.empty() ? 0 : static_cast<unsigned char>(data[0]);
        break;
      case 54:
        serverIdentifier = modIP::DataToIP(data);
        break;
      case 61:
        request.ClientID = std::string(data);
        hasClientID = true;
        break;
      default:
        break;
    }
  }
  // From here on `message` is gone with the buffer; only `request` remains.
  // An empty option 61 identifies no one: such clients fall back to their
  // hardware address like those that send none.
  request.Identity = hasClientID && !request.ClientID.empty()
                         ? request.ClientID
                         : static_cast<char>(request.HWType) + request.HWAddr;

  switch (messageType) {
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
      } else if (serverIdentifier != localAddress) {
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
  std::uint64_t before = leases_.Version();
  try {
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
  } catch (const std::exception& error) {
    Fault("modDHCP Discover", error);
  }
  AfterChange(before);
}

void DhcpServer::Request(const clDHCPRequest& request) {
  std::uint64_t before = leases_.Version();
  try {
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
  } catch (const std::exception& error) {
    Fault("modDHCP Request", error);
  }
  AfterChange(before);
}

void DhcpServer::Release(const std::string& clientID) {
  std::uint64_t before = leases_.Version();
  try {
    const LeaseTable::Ids& ids = leases_.WithClientID(clientID);
    if (!ids.empty()) leases_.SetExpires(*ids.begin(), clock_.Now());
  } catch (const std::exception& error) {
    Fault("modDHCP Release", error);
  }
  AfterChange(before);
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
  std::uint64_t before = leases_.Version();
  try {
    const LeaseTable::Ids& ids = leases_.WithClientID(clientID);
    std::vector<LeaseTable::Id> doomed(ids.begin(), ids.end());
    for (LeaseTable::Id id : doomed) leases_.Erase(id);
    Refresh();
  } catch (const std::exception& error) {
    Fault("frmMain mnuDHCPDel", error);
  }
  AfterChange(before);
}

void DhcpServer::Send(const clDHCPRequest& request, int16_t type, const std::string& address) {
  try {
    if (!request.Interface) return;
    const clDHCPif& interface = *request.Interface;
    std::string reply;
    reply.reserve(kHeaderLength + 80);
    reply += '\x02';
    reply += static_cast<char>(request.HWType);
    reply += static_cast<char>(request.HWAddr.size());
    reply += '\0';
    reply += (request.txID + std::string(4, '\0')).substr(0, 4);
    reply += std::string(4, '\0');
    reply += modIP::IPToData(request.ClientIP);
    bool carriesAddress = type == modDHCP::kOffer || type == modDHCP::kAck;
    reply += carriesAddress ? modIP::IPToData(address) : std::string(4, '\0');
    reply += std::string(8, '\0');
    reply += (request.HWAddr + std::string(kChaddrLength, '\0')).substr(0, kChaddrLength);
    reply += std::string(192, '\0');
    reply += "\x63\x82\x53\x63";

    AppendOption(reply, 53, std::string(1, static_cast<char>(type)));
    // A client that sent no identifier gets none back: a zero-length option
    // 61 makes common clients throw the whole reply away.
    if (!request.ClientID.empty()) AppendOption(reply, 61, request.ClientID);
    AppendOption(reply, 1, modIP::IPToData(interface.Subnet));
    AppendOption(reply, 54, modIP::IPToData(interface.IPaddr));
    std::uint32_t leaseTime = static_cast<std::uint32_t>(interface.TTL);
    std::string leaseBytes;
    for (int shift = 24; shift >= 0; shift -= 8) leaseBytes += static_cast<char>((leaseTime >> shift) & 255);
    AppendOption(reply, 51, leaseBytes);
    AppendOption(reply, 6,
                 modIP::IPToData(options_.DNSBIND.empty() ? interface.IPaddr : options_.DNSBIND));
    if (interface.Gateway != "0.0.0.0") AppendOption(reply, 3, modIP::IPToData(interface.Gateway));
    AppendOption(reply, 12, request.ClientName);
    AppendOption(reply, 15, modMain::CleanName(interface.Domain));
    reply += static_cast<char>(kEndOption);

    switch (type) {
      case modDHCP::kOffer:
        log_.AddLine("Sending DHCP Offer to " + request.ClientName + " for " + address);
        break;
      case modDHCP::kAck:
        log_.AddLine("Sending DHCP Acknowledgement to " + request.ClientName + " for " + address);
        break;
      case modDHCP::kNak:
        log_.AddLine("Sending DHCP Negative to " + request.ClientName + " for " + address);
        break;
      default:
        break;
    }

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
