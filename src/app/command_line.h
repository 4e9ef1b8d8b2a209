// The program's command line. Kept in one place so that new options are
// added here and nowhere else.
#pragma once

#include <QStringList>

#include <optional>
#include <string>

namespace korvane {

namespace modMain {

struct CommandLine {
  bool headless = false;
  bool quiet = false;
  // Logs the longest event-loop stall to standard error at exit (benchmarks).
  bool stallProbe = false;
  std::string folder;  // "" : the executable's folder
  int dnsPort = 53;
  int dhcpPort = 67;
};

// What the parse decided: run with `line`, or end at once with `exitCode`
// after `output` was printed (to standard output for --help and --version,
// to standard error for a usage error, which names the bad option and
// gives exit code 2).
struct ParseResult {
  CommandLine line;
  std::optional<int> exitCode;
  std::string output;
  bool toStandardError = false;
};

// `arguments` holds the program name first, as argv does.
ParseResult ParseCommandLine(const QStringList& arguments);

extern const char* const kUsage;

}  // namespace modMain

}  // namespace korvane
