// Names that are never asked of other servers: reverse names of private and
// special address ranges, and names of a single label. Nothing outside this
// network can know them, and asking leaks the network's layout (and loads
// the root servers with questions they can only deny).
#pragma once

#include <string>
#include <vector>

#include "store/options.h"

namespace korvane {

enum class LocalName {
  kNo,          // may be asked of other servers
  kEmptyZone,   // the apex of a private reverse zone: it exists, holds nothing
  kNoSuchName,  // inside a private reverse zone, or a bare name
};

// The reverse zones 10/8, 172.16/12, 192.168/16, 127/8, 169.254/16,
// 100.64/10 and 0/8 (as the empty zones of RFC 6303): kEmptyZone for a
// zone's own name, kNoSuchName below it, kNo for every other name.
LocalName PrivateReverseName(const std::string& name);

// A name of one label ("printer."): kNoSuchName for the types a client asks
// when it looks a host up; kNo for NS and SOA, which ask about a top-level
// domain, and for the root.
LocalName BareName(const std::string& name, int type);

// What the options make of a question that would otherwise go to another
// server.
LocalName KeptLocal(const std::string& name, int type, const Options& options);

// Whether the DNS server at `address` (port 53) is this one, serving on
// `servicePort`: its bind address, or, bound to every address, any address
// of this machine, loopback and 0.0.0.0 included. Asking it would be a loop.
bool IsThisServer(const std::string& address, const std::string& dnsBind,
                  const std::vector<std::string>& localIPs, int servicePort);

// The line that says `server` is this one: "Forwarding loop: 127.0.0.1 is
// this server."
std::string ForwardingLoopLine(const std::string& server);

}  // namespace korvane
