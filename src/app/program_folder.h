// What the start loads from the program folder, and what in the folder would
// keep the server from running as configured. Shared by the start sequence
// and by `korvane --check`.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dhcp/dhcp_server.h"
#include "store/options.h"
#include "store/store.h"

namespace korvane {

namespace modMain {

struct FolderLoad {
  bool rootHintsUnread = false;  // named.root could not be read
  // The progress display asked to stop (the program is closing): the steps
  // after it were not taken, so their files must not be saved over either.
  bool stopped = false;
  bool cacheLoaded = false;
  bool leasesLoaded = false;
  int warnings = 0;  // lines skipped or cut, each one logged as "file:N: why"
};

// The loading steps of the start, in order: the options (a missing
// korvane.ini is one log line and the defaults, not an error), the records
// (a named.root that cannot be read is logged, and so is each DHCP pool on
// no local interface), the cache file and the lease file.
FolderLoad LoadProgramFolder(StoreContext& store, Options& options, DhcpServer& dhcp);

// Whether the root hints are needed: names outside the own domains are
// resolved from them unless external servers are used.
bool RootHintsNeeded(const Options& options);

// The line that says the folder cannot be written (no file can be made in
// it), naming the system's reason; nullopt when it can be written.
std::optional<std::string> FolderWriteProblem(const std::string& folder);

// One line for each NS server that is this server itself, when names are
// resolved through them: the server would never ask it.
std::vector<std::string> ForwardingLoops(const Options& options,
                                         const std::vector<std::string>& localIPs, int dnsPort);

// The line that says DNSBIND is not an address of this machine (neither in
// `localIPs` nor a loopback address); nullopt when it is, or is empty.
std::optional<std::string> DnsBindProblem(const std::string& address,
                                          const std::vector<std::string>& localIPs);

}  // namespace modMain

}  // namespace korvane
