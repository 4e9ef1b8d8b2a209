// DHCP intake: the first byte picks the receiving socket, the sender and
// how much time passes between messages; every piece after it is a datagram
// on that socket. Every reply is a well-formed BOOTP reply, and the lease
// table reads back whole from the lease file that it writes.
#include "dhcp/dhcp_server.h"
#include "fuzz_world.h"

namespace {

void RequireWellFormedReply(const std::string& reply) {
  Require(reply.size() > 240 && reply[0] == 2, "a reply shorter than its header");
  Require(reply.compare(236, 4, "\x63\x82\x53\x63") == 0, "a reply without the magic cookie");
  std::size_t at = 240;
  while (at < reply.size() && static_cast<unsigned char>(reply[at]) != 255) {
    if (reply[at] == 0) {
      ++at;
      continue;
    }
    Require(at + 1 < reply.size(), "a reply option cut before its length");
    at += 2 + static_cast<unsigned char>(reply[at + 1]);
  }
  Require(at < reply.size(), "a reply without the end option");
}

std::vector<std::string> Described(const LeaseTable& leases) {
  std::vector<std::string> out;
  for (const clLease& l : leases)
    out.push_back(l.IPaddr + " " + modDHCP::HWToHex(l.ClientID) + " " +
                  std::to_string(static_cast<long long>(l.Expires)));
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input = AsView(data, size);
  if (input.empty()) return 0;
  const auto control = static_cast<uint8_t>(input[0]);
  DHCPifList ifs{{"10.0.0.1", "10.0.0.10", "10.0.0.20", "255.255.255.0", "10.0.0.254", 3600,
                  "example.com."}};
  Options options;
  options.NAME = "dns.example.com";
  RecordList records;
  FakeClock clock;
  CountingLog log;
  FuzzErrors errors;
  RecordingSender sender;
  DhcpServer server(ifs, options, records, clock, log, errors, Scratch().path());
  server.SetSocket(1, &sender, "10.0.0.1");
  server.SetSocket(2, &sender, "10.9.9.9");  // no interface holds it
  const int socket = (control & 1) ? 2 : 1;
  const std::string from = (control & 2) ? "10.0.0.12" : "0.0.0.0";
  for (std::string_view datagram : Pieces(input.substr(1))) {
    server.DataArrival(socket, datagram, from);
    clock.Advance((control >> 2) * 300);
  }
  for (const SentDatagram& reply : sender.sent) RequireWellFormedReply(reply.bytes);

  Require(server.Save(), "the lease file could not be written");
  DhcpServer restarted(ifs, options, records, clock, log, errors, Scratch().path());
  restarted.Load();
  Require(Described(restarted.Leases()) == Described(server.Leases()), "a lease lost in the file");
  return 0;
}
