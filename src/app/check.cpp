#include "app/check.h"

#include <optional>

#include "app/bind_failure.h"
#include "app/command_line.h"
#include "app/program_folder.h"
#include "dhcp/dhcp_server.h"
#include "store/store.h"

namespace korvane {

namespace modMain {

namespace {

// Prints what the load logs and reports, and counts what is wrong.
class CheckOutput : public LogSink, public ErrorReporter {
 public:
  explicit CheckOutput(std::FILE* out) : out_(out) {}

  void AddLine(const std::string& text) override {
    std::fprintf(out_, "%s\n", text.c_str());
    if (IsLineWarning(text)) ++problems;
  }
  void Report(const std::string& tag, const std::string& additional, int number,
              const std::string& description) override {
    if (number == 0) return;
    std::fprintf(out_, "Error %d (%s) in %s%s\n", number, description.c_str(), tag.c_str(),
                 additional.empty() ? "" : (": " + additional).c_str());
    ++problems;
  }
  void Problem(const std::optional<std::string>& text) {
    if (!text) return;
    std::fprintf(out_, "%s\n", text->c_str());
    ++problems;
  }

  int problems = 0;

 private:
  std::FILE* out_;
};

}  // namespace

bool IsLineWarning(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == 0 || colon == std::string_view::npos) return false;
  if (line.substr(0, colon).find(' ') != std::string_view::npos) return false;
  std::size_t at = colon + 1;
  while (at < line.size() && line[at] >= '0' && line[at] <= '9') ++at;
  return at > colon + 1 && line.substr(at, 2) == ": ";
}

int RunCheck(const std::string& folder, int dnsPort, const std::vector<std::string>& localIPs,
             std::FILE* out) {
  CheckOutput output(out);
  Options options;
  RecordList records;
  DHCPifList pools;
  SystemClock clock;
  StoreContext store{records, options, clock, output, output, folder, localIPs, pools};
  DhcpServer dhcp(pools, options, records, clock, output, output, folder);

  const FolderLoad load = LoadProgramFolder(store, options, dhcp);
  if (load.rootHintsUnread && RootHintsNeeded(options)) ++output.problems;
  for (const std::string& loop : ForwardingLoops(options, localIPs, dnsPort)) output.Problem(loop);
  std::optional<std::string> bindProblem = DnsBindProblem(options.DNSBIND, localIPs);
  if (!bindProblem) {
    // Checked before a reload, the running server's own socket is in the way
    // of nothing.
    const std::optional<PortHolder> holder = PortHolderOf(options.DNSBIND, dnsPort);
    if (holder && ServesFolder(holder->pid, folder))
      std::fprintf(out, "Port %d is used by the server running on this folder (pid %d).\n",
                   dnsPort, holder->pid);
    else if (std::optional<std::string> obstacle = BindObstacle(options.DNSBIND, dnsPort))
      bindProblem = *obstacle + " - the DNS service will not start.";
  }
  output.Problem(bindProblem);
  output.Problem(FolderWriteProblem(folder));

  if (output.problems == 0) {
    std::fprintf(out, "%s: no problems found.\n", folder.c_str());
    return ExitStatus::kClean;
  }
  std::fprintf(out, "%s: %d problem%s found.\n", folder.c_str(), output.problems,
               output.problems == 1 ? "" : "s");
  return ExitStatus::kFailed;
}

}  // namespace modMain

}  // namespace korvane
