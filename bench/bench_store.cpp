// The record store: adding one record to, and looking one name up in, a list
// of 100,000 records of distinct names; adding records to one name that
// already holds many (a blocklist's shared reverse name), at growing sizes;
// the bytes a blocklist line costs; and the cache file and the lease file
// written and read back whole with 100,000 entries.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "dhcp/dhcp_server.h"
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

struct Store {
  RecordList records;
  Options options;
  FixedClock clock;
  NoLog log;
  std::vector<std::string> localIPs;
  DHCPifList dhcpifs;
  StoreContext ctx{records, options, clock, log, DefaultErrorReporter(), "/tmp", localIPs, dhcpifs};
};

const std::string kAddress("\x0a\x00\x00\x01", 4);

void BM_CacheAddAndLookup(benchmark::State& state) {
  constexpr std::size_t kRecords = 100'000;
  constexpr std::size_t kNewNames = 1 << 20;
  Store s;
  for (std::size_t i = 0; i < kRecords; ++i) modDNS::CacheAdd(s.ctx, HostName(i), 1, 3600, kAddress, 0, false);
  std::vector<std::string> fresh;
  fresh.reserve(kNewNames);
  for (std::size_t i = 0; i < kNewNames; ++i) fresh.push_back("new" + std::to_string(i) + ".example.org.");
  const std::string looked = HostName(kRecords / 2);

  std::size_t next = 0;
  for (auto _ : state) {
    modDNS::CacheAdd(s.ctx, fresh[next], 1, 3600, kAddress, 0, false);
    next = (next + 1) & (kNewNames - 1);
    benchmark::DoNotOptimize(s.records.Named(looked).empty());
  }
  state.counters["records"] = static_cast<double>(s.records.size());
}

// The cost of one more PTR record on "0.0.0.0.in-addr.arpa." holding
// range(0) already: the same at every size. (After a million adds the names
// come round again, and refresh their records instead.)
void BM_CacheAddToACrowdedName(benchmark::State& state) {
  constexpr std::size_t kFresh = 1 << 20;
  Store s;
  const auto crowd = static_cast<std::size_t>(state.range(0));
  for (std::size_t i = 0; i < crowd; ++i)
    modDNS::CacheAdd(s.ctx, "0.0.0.0.in-addr.arpa.", 12, 3600, HostName(i), -1, true);
  std::vector<std::string> fresh;
  for (std::size_t i = 0; i < kFresh; ++i) fresh.push_back("new" + std::to_string(i) + ".example.org.");
  std::size_t next = 0;
  for (auto _ : state) {
    modDNS::CacheAdd(s.ctx, "0.0.0.0.in-addr.arpa.", 12, 3600, fresh[next], -1, true);
    next = (next + 1) & (kFresh - 1);
  }
}

// Bytes the heap holds per blocklist line once a hosts file of range(0)
// lines is loaded (an A and a PTR record each).
void BM_BlocklistBytesPerLine(benchmark::State& state) {
  const auto lines = static_cast<std::size_t>(state.range(0));
  const std::string path = "/tmp/korvane-bench-hosts";
  {
    std::ofstream file(path);
    for (std::size_t i = 0; i < lines; ++i) file << "0.0.0.0 track" << i << ".pixel-ads.example\n";
  }
  double bytes = 0;
  for (auto _ : state) {
    Store s;
    s.options.HOSTS = path;
    malloc_trim(0);
    const struct mallinfo2 before = mallinfo2();
    modDNS::LoadHosts(s.ctx);
    malloc_trim(0);
    const struct mallinfo2 after = mallinfo2();
    bytes = static_cast<double>(after.uordblks + after.hblkhd) - static_cast<double>(before.uordblks + before.hblkhd);
  }
  std::remove(path.c_str());
  state.counters["bytes/line"] = bytes / static_cast<double>(lines);
}

// saveCache and LoadFile of a cache of 100,000 learnt records.
void BM_CacheFileSaveAndLoad(benchmark::State& state) {
  Store s;
  s.ctx.folder = "/tmp";
  for (std::size_t i = 0; i < 100'000; ++i)
    modDNS::CacheAdd(s.ctx, HostName(i), i % 3 ? 1 : 5, 3600, i % 3 ? kAddress : HostName(i + 1), 0, false);
  for (auto _ : state) {
    modDNS::saveCache(s.ctx);
    Store back;
    modDNS::LoadFile(back.ctx, "/tmp/named.cache", false, false);
    if (back.records.size() != s.records.size()) state.SkipWithError("the cache did not read back whole");
  }
  std::remove("/tmp/named.cache");
}

// The lease file of 100,000 leases, written and read back.
void BM_LeaseFileSaveAndLoad(benchmark::State& state) {
  Store s;
  DhcpServer dhcp(s.dhcpifs, s.options, s.records, s.clock, s.log, DefaultErrorReporter(), "/tmp");
  {
    std::ofstream file("/tmp/dhcp.dat");
    for (std::size_t i = 0; i < 100'000; ++i)
      file << "pc" << i << ".example.com. 10." << (i >> 16) << "." << ((i >> 8) & 255) << "." << (i & 255)
           << " 0100A0C9" << i << " 2099-01-01 00:00:00\r\n";
  }
  dhcp.Load();
  for (auto _ : state) {
    dhcp.Save();
    dhcp.Load();
  }
  state.counters["leases"] = static_cast<double>(dhcp.Leases().size());
  std::remove("/tmp/dhcp.dat");
}

BENCHMARK(BM_CacheAddAndLookup)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CacheAddToACrowdedName)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_BlocklistBytesPerLine)->Arg(200'000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CacheFileSaveAndLoad)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LeaseFileSaveAndLoad)->Unit(benchmark::kMillisecond);

}  // namespace
