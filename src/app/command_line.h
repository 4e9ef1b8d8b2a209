// The command line: what the program is asked to do, or why it refuses.
#pragma once

#include <QStringList>

#include <optional>
#include <string>

namespace korvane {

namespace modMain {

// The program's exit statuses.
namespace ExitStatus {
constexpr int kClean = 0;
constexpr int kFailed = 1;  // a failed start or save, or --check found a problem
constexpr int kUsage = 2;   // a bad command line
}  // namespace ExitStatus

struct CommandLine {
  enum class Action { kRun, kCheck, kHelp, kVersion };
  Action action = Action::kRun;
  bool headless = false;
  bool quiet = false;    // print no log lines
  // Logs the longest event-loop stall to standard error at exit (benchmarks).
  bool stallProbe = false;
  std::string folder;    // the program folder: absolute, no trailing "/"
  bool folderGiven = false;  // by --dir; else the default, which may not exist yet
  int dnsPort = 53;
  int dhcpPort = 67;
};

struct ParsedCommandLine {
  std::optional<CommandLine> commandLine;  // nullopt when refused
  std::string error;  // which option and why, e.g. "--dns-port: 99999 is not a port"
};

// `arguments` as the program got them, its own name first. Without --dir the
// folder is `defaultFolder` (not required to exist).
ParsedCommandLine ParseCommandLine(const QStringList& arguments, const std::string& defaultFolder);

// The --help text: usage, options, signals and exit statuses.
const char* UsageText();

}  // namespace modMain

}  // namespace korvane
