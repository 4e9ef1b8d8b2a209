#include "app/program_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "app/options_file.h"
#include "dns/local_names.h"
#include "wire/ip.h"

namespace korvane {

namespace modMain {

namespace {

bool Stopping(const StoreContext& store) { return store.progress && store.progress->StopRequested(); }

}  // namespace

FolderLoad LoadProgramFolder(StoreContext& store, Options& options, DhcpServer& dhcp) {
  FolderLoad load;
  const int warningsBefore = store.warnings;
  const std::string optionsPath = store.PathOf("korvane.ini");
  struct stat info {};
  if (stat(optionsPath.c_str(), &info) != 0 && errno == ENOENT) {
    options = Options{};
    store.log.AddLine("Options file " + optionsPath + " not found - starting with the default options.");
  } else {
    load.warnings += LoadOptions(optionsPath, options, store.errors, &store.log);
  }
  load.rootHintsUnread = modDNS::LoadPerm(store).rootHintsUnread;
  load.stopped = Stopping(store);
  if (!load.stopped) {
    store.log.AddLine("Loading cache...");
    modDNS::LoadFile(store, store.PathOf("named.cache"), false, false);
    load.stopped = Stopping(store);
    load.cacheLoaded = !load.stopped;
  }
  if (!load.stopped) {
    store.log.AddLine("Loading DHCP Leases...");
    load.warnings += dhcp.Load();
    load.leasesLoaded = true;
  }
  load.warnings += store.warnings - warningsBefore;
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
