#include "fuzz_world.h"

#include <cstdio>
#include <cstdlib>

#include "support/dns_bytes.h"
#include "wire/dns_codec.h"
#include "wire/dns_message.h"
#include "wire/ip.h"
#include "wire/ip_network.h"
#include "wire/soa_data.h"

void FuzzErrors::Report(const std::string& tag, const std::string& additional, int number,
                        const std::string& description) {
  ++reports;
  if (number == ErrorNumber::kInternal || number == ErrorNumber::kOutOfMemory) {
    std::fprintf(stderr, "unexpected failure: %s (%s): %d %s\n", tag.c_str(), additional.c_str(),
                 number, description.c_str());
    std::abort();
  }
}

void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

std::vector<std::string_view> Pieces(std::string_view input) {
  std::vector<std::string_view> out;
  for (;;) {
    std::size_t at = input.find(kSplit);
    out.push_back(input.substr(0, at));
    if (at == std::string_view::npos) return out;
    input.remove_prefix(at + kSplit.size());
  }
}

std::string_view AsView(const uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

const TempDir& Scratch() {
  static const TempDir dir;
  return dir;
}

std::string QueryBytes(int id, const std::string& name, int type) {
  return U16(id) + Bytes({1, 0}) + U16(1) + U16(0) + U16(0) + U16(0) + Wire(name) + U16(type) +
         U16(1);
}

void RequireWellFormed(const std::string& message, const char* what) {
  FuzzErrors errors;
  modDNS::DnsMessage decoded = modDNS::DecodeMessage(message, errors);
  Require(decoded.End == modDNS::DecodeEnd::kWhole && decoded.Stop == message.size(), what);
  Require(decoded.Header.QDCount == 1 && decoded.Questions.size() == 1, what);
}

namespace {

class OneLease : public LeaseSource {
 public:
  std::vector<LeaseView> LeasesNamed(const std::string& name) const override {
    return name == lease_.ClientName ? std::vector<LeaseView>{lease_} : std::vector<LeaseView>{};
  }
  std::vector<LeaseView> LeasesOfAddress(const std::string& ip) const override {
    return ip == lease_.IPaddr ? std::vector<LeaseView>{lease_} : std::vector<LeaseView>{};
  }

 private:
  LeaseView lease_{"pc1.example.com.", "10.0.0.10", 1'790'003'600.0};
};

}  // namespace

DnsFuzzWorld::DnsFuzzWorld(uint8_t control) {
  static OneLease lease;
  auto own = [this](const std::string& name, int type, const std::string& data, int32_t pref = 0) {
    modDNS::CacheAdd(store, name, type, 3600, data, pref, true);
  };
  own("example.com.", 6,
      modDNS::SoaData{"ns1.example.com.", "hostmaster.example.com.", 1, 3600, 600, 86400, 60}.Pack());
  own("example.com.", 2, "ns1.example.com.");
  own("ns1.example.com.", 1, modIP::IPToData("10.0.0.1"));
  own("www.example.com.", 1, modIP::IPToData("10.0.0.2"));
  own("2.0.0.10.in-addr.arpa.", 12, "www.example.com.");
  own("example.com.", 15, "mail.example.com.", 10);
  own("mail.example.com.", 5, "www.example.com.");
  own("loop.example.com.", 5, "loop.example.com.");
  modDNS::CacheAdd(store, ".", 2, 3600000, "a.root-servers.net.", 0, true, true);
  modDNS::CacheAdd(store, "a.root-servers.net.", 1, 3600000, modIP::IPToData("127.0.0.11"), 0,
                   true, true);
  if (control & 1) {
    options.RECURSIONOUT = true;
    options.NS = {"127.0.0.12", "127.0.0.13"};
  }
  options.AUTOCNAME = (control & 2) != 0;
  if (control & 4) engine.SetLeaseSource(&lease);
  engine.SetLocalNetworks({*modIP::ParseNetwork("10.0.0.0/24")});
  engine.SetRandom([] { return 0.5; });
  // Replayed inputs must take the same path: IDs from a counter.
  engine.SetQueryIdSource([id = 0u]() mutable { return ++id; });
  engine.SetTimerSwitch([](bool) {});
  engine.SetRunning(true);
}

void DnsFuzzWorld::CheckSent() const {
  for (const SentDatagram& d : wsdns.sent) {
    // Not-implemented answers echo the request as it came.
    const int rcode = d.bytes.size() > 3 ? static_cast<unsigned char>(d.bytes[3]) & 15 : -1;
    if (rcode != 4) RequireWellFormed(d.bytes, "answer to a client");
  }
  for (const SentDatagram& d : wsdns2.sent) RequireWellFormed(d.bytes, "query to another server");
}

void DnsFuzzWorld::Run(int seconds) {
  for (int i = 0; i < seconds; ++i) {
    clock.Advance(1);
    engine.Timer();
  }
}
