// A small DHCP world for the tests: one interface 10.0.0.1 with the pool
// 10.0.0.10 - 10.0.0.20, a recording sender on socket 1, and a builder for
// client messages.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dhcp/dhcp_server.h"
#include "support/fakes.h"
#include "wire/datetime.h"
#include "wire/ip.h"

using namespace korvane;

// What a client puts in its message.
struct Client {
  std::string mac = std::string("\x00\x11\x22\x33\x44\x55", 6);
  std::optional<std::string> hostName;     // option 12
  std::optional<std::string> clientID;     // option 61
  std::optional<std::string> requestedIP;  // option 50
  std::optional<std::string> serverID;     // option 54
  std::string ciaddr = "0.0.0.0";
  std::string cookie = std::string("\x63\x82\x53\x63", 4);
};

// A client with a host name, told apart from others by its address's last byte.
inline Client Named(const std::string& name, int macLast = 0x55) {
  Client c;
  c.hostName = name;
  c.mac[5] = static_cast<char>(macLast);
  return c;
}

using Lines = std::vector<std::string>;

inline std::string Option(int code, const std::string& data) {
  return std::string(1, static_cast<char>(code)) + static_cast<char>(data.size()) + data;
}

// The message without the end option; `extraOptions` go before it.
inline std::string MessageBody(int type, const Client& c, const std::string& extraOptions = "") {
  // op, htype (Ethernet), hlen, hops, xid 12 34 56 78, secs, flags
  std::string m = Bytes({1, 1, static_cast<int>(c.mac.size()), 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 0});
  m += modIP::IPToData(c.ciaddr) + std::string(12, '\0');
  // chaddr, sname and file: the hardware address may run into sname.
  m += (c.mac + std::string(208, '\0')).substr(0, 208) + c.cookie;
  if (type >= 0) m += Option(53, std::string(1, static_cast<char>(type)));
  if (c.clientID) m += Option(61, *c.clientID);
  if (c.hostName) m += Option(12, *c.hostName);
  if (c.requestedIP) m += Option(50, modIP::IPToData(*c.requestedIP));
  if (c.serverID) m += Option(54, modIP::IPToData(*c.serverID));
  m += extraOptions;
  return m;
}

inline std::string Message(int type, const Client& c, const std::string& extraOptions = "") {
  return MessageBody(type, c, extraOptions) + '\xff';
}

inline std::string YourAddress(const std::string& reply) {
  return modIP::DataToIP(reply.substr(16, 4));
}

inline int ReplyType(const std::string& reply) {
  // Option 53 is always the first option.
  return static_cast<unsigned char>(reply.at(242));
}

struct DhcpWorld {
  DHCPifList ifs{{"10.0.0.1", "10.0.0.10", "10.0.0.20", "255.255.255.0", "0.0.0.0", 86400,
                  "example.com."}};
  Options options;
  RecordList records;
  FakeClock clock;
  RecordingLog log;
  RecordingErrorReporter errors;
  TempDir dir;
  RecordingSender sender;
  DhcpServer server{ifs, options, records, clock, log, errors, dir.path()};
  int refreshes = 0;
  int changes = 0;

  DhcpWorld() {
    options.NAME = "dns.example.com";
    server.SetSocket(1, &sender, "10.0.0.1");
    server.DHCPRefresh = [this] { ++refreshes; };
    server.LeasesChanged = [this] { ++changes; };
  }

  void Receive(const std::string& bytes, const std::string& from = "0.0.0.0", int k = 1) {
    server.DataArrival(k, bytes, from);
  }
  // Sends a message and returns the one reply, or nullopt when none was sent.
  std::optional<std::string> Exchange(int type, const Client& c, const std::string& from = "0.0.0.0") {
    std::size_t before = sender.sent.size();
    Receive(Message(type, c), from);
    if (sender.sent.size() == before) return std::nullopt;
    return sender.sent.back().bytes;
  }
  // A REQUEST for `ip` naming this server; the reply or nullopt.
  std::optional<std::string> Request(Client c, const std::string& ip) {
    c.requestedIP = ip;
    c.serverID = ifs[0].IPaddr;
    return Exchange(modDHCP::kRequest, c);
  }
  // The address offered to `c`, or "" when no offer came.
  std::string Offer(const Client& c) {
    std::optional<std::string> reply = Exchange(modDHCP::kDiscover, c);
    return reply ? YourAddress(*reply) : "";
  }
  // A full discover-request exchange; the acknowledged address or "".
  std::string Lease(Client c) {
    std::string offered = Offer(c);
    if (offered.empty()) return "";
    std::optional<std::string> reply = Request(c, offered);
    return reply && ReplyType(*reply) == modDHCP::kAck ? YourAddress(*reply) : "";
  }
  // Stages a lease for the lease file, with its own identity unless one is
  // given (an empty one would not read back); LoadStaged() loads them all.
  void StageLease(const std::string& name, const std::string& ip, double secondsLeft,
                  std::string id = "") {
    if (id.empty()) id = "L" + std::to_string(++addedLeases);
    extraLines += name + " " + ip + " " + modDHCP::HWToHex(id) + " " +
                  FormatDateTime(clock.Now() + secondsLeft) + "\r\n";
  }
  void LoadStaged() {
    dir.Write("dhcp.dat", extraLines);
    server.Load();
  }
  // Leases or views of them, one "name address seconds-left" each.
  template <class List>
  Lines Describe(const List& leases) const {
    Lines out;
    for (const auto& l : leases)
      out.push_back(l.ClientName + " " + l.IPaddr + " " +
                    std::to_string(static_cast<long long>(l.Expires - clock.Now())));
    return out;
  }
  Lines Table() const { return Describe(server.Leases()); }
  // The identities in table order, in hexadecimal.
  Lines Ids() const {
    Lines out;
    for (const clLease& l : server.Leases()) out.push_back(modDHCP::HWToHex(l.ClientID));
    return out;
  }
  std::string extraLines;
  int addedLeases = 0;
};
