#include "app/program_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "app/options_file.h"
#include "dns/local_names.h"
#include "store/files.h"
#include "store/record_line.h"
#include "wire/ip.h"

namespace korvane {

namespace modMain {

namespace {

// Why `path` cannot be read as a file; nullopt when it can.
std::optional<std::string> ReadProblem(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::string(std::strerror(errno));
  struct stat info {};
  const bool folder = fstat(fd, &info) == 0 && S_ISDIR(info.st_mode);
  close(fd);
  if (folder) return std::string(std::strerror(EISDIR));
  return std::nullopt;
}

// A second reading of the record file must not log or report again.
class Silent : public LogSink, public ErrorReporter {
 public:
  void AddLine(const std::string&) override {}
  void Report(const std::string&, const std::string&, int, const std::string&) override {}
};

}  // namespace

FolderLoad LoadProgramFolder(StoreContext& store, Options& options, DhcpServer& dhcp) {
  FolderLoad load;
  const std::string optionsPath = store.PathOf("korvane.ini");
  struct stat info {};
  if (stat(optionsPath.c_str(), &info) != 0 && errno == ENOENT) {
    options = Options{};
    store.log.AddLine("Options file " + optionsPath + " not found - starting with the default options.");
  } else {
    LoadOptions(optionsPath, options, store.errors, &store.log);
  }
  modDNS::LoadPerm(store);
  const std::string rootHints = store.PathOf("named.root");
  if (std::optional<std::string> why = ReadProblem(rootHints)) {
    load.rootHintsUnread = true;
    store.log.AddLine("Root server file " + rootHints + " could not be read: " + *why + ".");
  }
  store.log.AddLine("Loading cache...");
  modDNS::LoadFile(store, store.PathOf("named.cache"), false, false);
  store.log.AddLine("Loading DHCP Leases...");
  dhcp.Load();
  return load;
}

bool RootHintsNeeded(const Options& options) { return !options.RECURSIONOUT || options.NS.empty(); }

std::optional<std::string> FolderWriteProblem(const std::string& folder) {
  std::string probe = folder + "/.korvane-write-test.XXXXXX";
  const int fd = mkstemp(probe.data());
  if (fd >= 0) {
    close(fd);
    unlink(probe.c_str());
    return std::nullopt;
  }
  return "The program folder " + folder + " cannot be written: " + std::strerror(errno) +
         ". The cache and the DHCP leases cannot be saved.";
}

std::vector<std::string> PoolsOnNoInterface(StoreContext& store) {
  std::optional<std::string> content = ReadWholeFile(store.PathOf("named.perm"));
  if (!content) return {};
  Silent silent;
  StoreContext quiet{store.records, store.options, store.clock,   silent,
                     silent,        store.folder,  store.LocalIPs, store.DHCPifs};
  std::vector<std::string> problems;
  modDNS::ReaderState state;
  std::size_t lineNumber = 1, counted = 0;
  modDNS::ForEachLogicalLine(*content, [&](std::string line, std::size_t end) {
    const std::size_t first = lineNumber;
    lineNumber += static_cast<std::size_t>(
        std::count(content->begin() + counted, content->begin() + end, '\n'));
    counted = end;
    modDNS::RecordLine record;
    clDHCPif pool;
    if (!modDNS::ParseRecordLine(quiet, std::move(line), state, 0, record) || record.type != "DHCP" ||
        modDNS::PoolOf(quiet, record, pool))
      return;
    problems.push_back("named.perm:" + std::to_string(first) + ": DHCP pool " + pool.ScopeFrom + " - " +
                       pool.ScopeTo + " is on no local interface, pool skipped");
  });
  return problems;
}

std::vector<std::string> ForwardingLoops(const Options& options,
                                         const std::vector<std::string>& localIPs, int dnsPort) {
  std::vector<std::string> loops;
  if (!options.RECURSIONOUT) return loops;
  for (const std::string& server : options.NS)
    if (IsThisServer(server, options.DNSBIND, localIPs, dnsPort))
      loops.push_back(ForwardingLoopLine(server));
  return loops;
}

std::optional<std::string> DnsBindProblem(const std::string& address,
                                          const std::vector<std::string>& localIPs) {
  if (address.empty() || modIP::SameNet(address, "127.0.0.0", "255.0.0.0") ||
      std::find(localIPs.begin(), localIPs.end(), address) != localIPs.end())
    return std::nullopt;
  return "DNSBind: " + address + " is not an address of this machine - the DNS service will not start.";
}

}  // namespace modMain

}  // namespace korvane
