// Cost of one DISCOVER on a /16 pool whose lowest 50,000 addresses are
// leased: intake, the pool search, the lease change and the offer.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "dhcp/dhcp_server.h"
#include "wire/ip.h"

using namespace korvane;

namespace {

class StillClock : public Clock {
 public:
  DateTime Now() const override { return now; }
  DateTime now = 1'790'000'000.0;
};

class NoLog : public LogSink {
 public:
  void AddLine(const std::string&) override {}
};

class NoErrors : public ErrorReporter {
 public:
  void Report(const std::string&, const std::string&, int, const std::string&) override {}
};

class CountingSender : public DatagramSender {
 public:
  bool Send(const std::string&, int, const std::string& bytes, const std::string&, SendError&) override {
    last = bytes;
    ++count;
    return true;
  }
  std::string last;
  long count = 0;
};

std::string ClientMessage(int type, std::uint32_t client, const std::string& requested) {
  std::string m = std::string("\x01\x01\x06\x00", 4) + "\x01\x02\x03\x04" + std::string(20, '\0');
  std::string mac = std::string("\x02\x00", 2);
  for (int shift = 24; shift >= 0; shift -= 8) mac += static_cast<char>((client >> shift) & 255);
  m += (mac + std::string(208, '\0')).substr(0, 208);
  m += "\x63\x82\x53\x63";
  m += std::string("\x35\x01", 2) + static_cast<char>(type);
  if (!requested.empty()) {
    m += std::string("\x32\x04", 2) + modIP::IPToData(requested);
    m += std::string("\x36\x04", 2) + modIP::IPToData("10.1.0.1");
  }
  m += '\xff';
  return m;
}

struct BigPool {
  DHCPifList ifs{{"10.1.0.1", "10.1.0.2", "10.1.255.254", "255.255.0.0", "10.1.0.1", 86400,
                  "example.com."}};
  Options options;
  RecordList records;
  StillClock clock;
  NoLog log;
  NoErrors errors;
  CountingSender sender;
  DhcpServer server{ifs, options, records, clock, log, errors, "/nonexistent"};

  // `leased` clients take the lowest addresses by a full discover and request.
  explicit BigPool(std::uint32_t leased) {
    server.SetSocket(1, &sender, "10.1.0.1");
    for (std::uint32_t client = 0; client < leased; ++client) {
      server.DataArrival(1, ClientMessage(1, client, ""), "0.0.0.0");
      std::string offered = modIP::DataToIP(sender.last.substr(16, 4));
      server.DataArrival(1, ClientMessage(3, client, offered), "0.0.0.0");
    }
  }
};

// Pass 1: the lowest never-leased address lies past 50,000 leased ones. The
// same new client asks each time, so its previous offer is replaced and the
// table stays the same size.
void BM_DiscoverBigPool(benchmark::State& state) {
  BigPool pool(50'000);
  const std::string discover = ClientMessage(1, 900'000, "");
  for (auto _ : state) {
    pool.server.DataArrival(1, discover, "0.0.0.0");
    benchmark::DoNotOptimize(pool.sender.last.data());
  }
  if (modIP::DataToIP(pool.sender.last.substr(16, 4)) != "10.1.195.82")
    state.SkipWithError("unexpected offer");
  state.counters["leases"] = static_cast<double>(pool.server.Leases().size());
}
BENCHMARK(BM_DiscoverBigPool)->Unit(benchmark::kMicrosecond);

// Pass 2: the whole /16 has been leased and every lease has expired, so the
// search reuses the lowest expired address. Two clients take turns, each
// taking the address of the other's (expired) offer.
void BM_DiscoverFullPoolExpired(benchmark::State& state) {
  BigPool pool(65'533);
  pool.clock.now += 2 * 86400.0;
  const std::string discovers[2] = {ClientMessage(1, 900'000, ""), ClientMessage(1, 900'001, "")};
  int turn = 0;
  for (auto _ : state) {
    pool.server.DataArrival(1, discovers[turn ^= 1], "0.0.0.0");
    benchmark::DoNotOptimize(pool.sender.last.data());
  }
  if (modIP::DataToIP(pool.sender.last.substr(16, 4)) != "10.1.0.2")
    state.SkipWithError("unexpected offer");
}
BENCHMARK(BM_DiscoverFullPoolExpired)->Unit(benchmark::kMicrosecond);

}  // namespace
