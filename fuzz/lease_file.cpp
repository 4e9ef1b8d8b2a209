// The lease file: the input is dhcp.dat, loaded as at start-up. Saved and
// loaded again, every lease that has an address and an identity is there
// once more, unchanged.
#include "dhcp/dhcp_server.h"
#include "fuzz_world.h"

namespace {

std::vector<std::string> Described(const LeaseTable& leases) {
  std::vector<std::string> out;
  for (const clLease& l : leases) {
    if (l.IPaddr.empty() || l.ClientID.empty()) continue;
    out.push_back("[" + l.ClientName + "] " + l.IPaddr + " " + modDHCP::HWToHex(l.ClientID) + " " +
                  std::to_string(l.Expires));
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  DHCPifList ifs;
  Options options;
  RecordList records;
  FakeClock clock;
  CountingLog log;
  FuzzErrors errors;
  Scratch().Write("dhcp.dat", std::string(AsView(data, size)));
  DhcpServer server(ifs, options, records, clock, log, errors, Scratch().path());
  server.Load();
  Require(server.Save(), "dhcp.dat not written");
  DhcpServer restarted(ifs, options, records, clock, log, errors, Scratch().path());
  restarted.Load();
  Require(Described(restarted.Leases()) == Described(server.Leases()), "a lease lost in a save");
  return 0;
}
