// What the fuzz harnesses share: an error reporter that turns an unexpected
// exception into a crash (so the fuzzer sees it), a log that only counts,
// the splitting of one input into several datagrams, a scratch folder for
// the file loaders, and a small DNS world with the engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dns/engine.h"
#include "dns/recording_channels.h"
#include "store/store.h"
#include "support/fakes.h"

using namespace korvane;

// Hostile input has its reported results (pointer loops, overflowing SOA
// numbers, a missing file); an exception that reaches a procedure's catch
// is a fault of the code and aborts the run.
class FuzzErrors : public ErrorReporter {
 public:
  void Report(const std::string& tag, const std::string& additional, int number,
              const std::string& description) override;
  int reports = 0;
};

class CountingLog : public LogSink {
 public:
  void AddLine(const std::string& text) override { bytes += text.size(); }
  std::size_t bytes = 0;
};

// Stops the run with a message when `condition` is false.
void Require(bool condition, const char* what);

// The input cut at each "#next#": one datagram (or file) per piece.
constexpr std::string_view kSplit = "#next#";
std::vector<std::string_view> Pieces(std::string_view input);

std::string_view AsView(const uint8_t* data, std::size_t size);

// One folder per process under $TMPDIR, reused by every input.
const TempDir& Scratch();

// A standard query with RD set, class IN.
std::string QueryBytes(int id, const std::string& name, int type);

// Our own answers and queries must be well-formed whatever came in: they
// decode whole, with the question first.
void RequireWellFormed(const std::string& message, const char* what);

// A store with own records (example.com), root hints, and the engine with
// a recording sender and recording query channels; clients on 10.0.0.0/24
// may have names resolved through other servers. `control` picks the options: bit 0 forwards to two
// external servers, bit 1 follows aliases, bit 2 lets a lease table answer.
struct DnsFuzzWorld {
  explicit DnsFuzzWorld(uint8_t control);

  // Every answer to a client and every query to another server so far.
  void CheckSent() const;
  // The timer, `seconds` ticks of one second.
  void Run(int seconds);

  RecordList records;
  Options options;
  FakeClock clock;
  CountingLog log;
  FuzzErrors errors;
  std::vector<std::string> localIPs{"10.0.0.1"};
  DHCPifList dhcpIfs;
  StoreContext store{records, options, clock, log, errors, "/nonexistent", localIPs, dhcpIfs};
  RecordingSender wsdns;
  RecordingChannels wsdns2;
  DnsEngine engine{store, wsdns, wsdns2};
};
