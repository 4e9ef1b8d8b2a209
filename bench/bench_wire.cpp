// Cost of writing and reading names in a typical answer message.
#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <vector>

#include "wire/dns_codec.h"
#include "wire/dns_message.h"

using namespace korvane;

namespace {

constexpr std::array<const char*, 10> kNames = {
    "www.example.com",      "example.com",          "mail.example.com", "ns1.example.com",
    "ns2.example.com",      "www.example.org",      "cdn.www.example.com",
    "a.b.c.example.net",    "b.c.example.net",      "host-42.lan.example.com"};

std::string Header() { return std::string("\x12\x34\x81\x80\0\1\0\x0a\0\0\0\0", 12); }

// One answer record per name: name, type A, class IN, TTL, length 4, address.
std::string BuildAnswer(std::vector<std::size_t>* offsets) {
  std::string message = Header();
  for (const char* name : kNames) {
    if (offsets) offsets->push_back(message.size());
    message += modDNS::ZipName(message, name);
    message += modDNS::MakeShort(1);
    message += modDNS::MakeShort(1);
    message += modDNS::MakeLong(3600);
    message += modDNS::MakeShort(4);
    message += std::string("\x0a\0\0\x07", 4);
  }
  return message;
}

void BM_ZipName(benchmark::State& state) {
  for (auto _ : state) {
    std::string message = BuildAnswer(nullptr);
    benchmark::DoNotOptimize(message);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kNames.size()));
}
BENCHMARK(BM_ZipName);

void BM_ExtractName(benchmark::State& state) {
  std::vector<std::size_t> offsets;
  const std::string message = BuildAnswer(&offsets);
  std::string_view first = std::string_view(message).substr(12);
  if (modDNS::ExtractName(message, first, false) != "www.example.com.") {
    state.SkipWithError("the answer does not decode");
    return;
  }
  for (auto _ : state) {
    std::string_view rest = std::string_view(message).substr(12);
    for (std::size_t i = 0; i < kNames.size(); ++i) {
      std::string name = modDNS::ExtractName(message, rest, true);
      benchmark::DoNotOptimize(name);
      rest.remove_prefix(std::min<std::size_t>(rest.size(), 14));  // fixed fields and address
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kNames.size()));
}
BENCHMARK(BM_ExtractName);

// A whole answer of ten A records decoded, as a reply from another server is.
void BM_DecodeMessage(benchmark::State& state) {
  std::string message = BuildAnswer(nullptr);
  message[5] = 0;  // the records stand where the question would
  if (modDNS::DecodeMessage(message).Records.size() != kNames.size()) {
    state.SkipWithError("the answer does not decode");
    return;
  }
  for (auto _ : state) {
    modDNS::DnsMessage decoded = modDNS::DecodeMessage(message);
    benchmark::DoNotOptimize(decoded);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kNames.size()));
}
BENCHMARK(BM_DecodeMessage);

}  // namespace
