// Cost of adding one record to, and looking one name up in, a record list
// that already holds 100,000 records of distinct names.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "store/store.h"

using namespace korvane;

namespace {

class FixedClock : public Clock {
 public:
  DateTime Now() const override { return 1'790'000'000.0; }
};

class NoLog : public LogSink {
 public:
  void AddLine(const std::string&) override {}
};

std::string HostName(std::size_t i) { return "host" + std::to_string(i) + ".example.com."; }

void BM_CacheAddAndLookup(benchmark::State& state) {
  constexpr std::size_t kRecords = 100'000;
  constexpr std::size_t kNewNames = 1 << 20;
  RecordList records;
  Options options;
  FixedClock clock;
  NoLog log;
  std::vector<std::string> localIPs;
  DHCPifList dhcpifs;
  StoreContext ctx{records, options, clock, log, DefaultErrorReporter(), "/tmp", localIPs, dhcpifs};

  const std::string address("\x0a\x00\x00\x01", 4);
  for (std::size_t i = 0; i < kRecords; ++i) modDNS::CacheAdd(ctx, HostName(i), 1, 3600, address, 0, false);
  std::vector<std::string> fresh;
  fresh.reserve(kNewNames);
  for (std::size_t i = 0; i < kNewNames; ++i) fresh.push_back("new" + std::to_string(i) + ".example.org.");
  const std::string looked = HostName(kRecords / 2);

  std::size_t next = 0;
  for (auto _ : state) {
    modDNS::CacheAdd(ctx, fresh[next], 1, 3600, address, 0, false);
    next = (next + 1) & (kNewNames - 1);
    benchmark::DoNotOptimize(records.Named(looked).size());
  }
  state.counters["records"] = static_cast<double>(records.size());
}

BENCHMARK(BM_CacheAddAndLookup)->Unit(benchmark::kMicrosecond);

}  // namespace
