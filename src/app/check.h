// `korvane --check`: the program folder loaded as the start loads it, without
// a socket, and every problem said in one place.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

namespace modMain {

// Loads options, records, cache and leases of `folder` as the start does
// (for a machine with the addresses `localIPs`), printing every line of the
// load to `out`, then what would keep the server from serving as configured:
// a DHCP pool on no local interface, a DNSBind address this machine does not
// have, a DNS port (`dnsPort`) that may not be bound or is held by another
// program, a folder that cannot be written, a root server file that is
// needed and cannot be read. Leaves no file behind. Returns ExitStatus::kClean when
// there was no warning and no problem, else ExitStatus::kFailed.
int RunCheck(const std::string& folder, int dnsPort, const std::vector<std::string>& localIPs,
             std::FILE* out);

// Whether a log line is a loader's warning about one line of a file
// ("named.perm:12: unknown type AA, line skipped").
bool IsLineWarning(std::string_view line);

}  // namespace modMain

}  // namespace korvane
