// Why a UDP service socket could not be bound, in the operator's words: no
// permission for a low port, the port held by another program (found through
// /proc), or an address this machine does not have.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

namespace modMain {

// The reason line for a failed bind of UDP `address`:`port` ("" = all
// addresses) with the system's error `errnum`, for example
// "Permission denied: ports below 1024 need root or cap_net_bind_service" or
// "Address already in use: port 53 is used by dnsmasq (pid 812)".
// `procRoot` is where /proc is mounted (tests give a tree of their own).
std::string BindFailureReason(int errnum, const std::string& address, int port,
                              const std::string& procRoot = "/proc");

// What would make binding UDP `address`:`port` fail, found without opening
// a socket: the reason line of BindFailureReason for a port below the
// unprivileged ones without the capability, or for a port another socket
// holds; nullopt when neither.
std::optional<std::string> BindObstacle(const std::string& address, int port,
                                        const std::string& procRoot = "/proc");

struct PortHolder {
  std::string name;  // the process's command name
  int pid = 0;
};

// The socket inodes of a /proc/net/udp or /proc/net/udp6 table that stand
// in the way of binding `address`:`port`: those on the same port and on the
// same address or on all addresses (for `address` "": every one on the port).
std::vector<uint64_t> BlockingSocketInodes(std::string_view table, const std::string& address,
                                           int port);

// The process with the lowest pid that holds one of `inodes` open; nullopt
// when none is found (or /proc cannot be read).
std::optional<PortHolder> ProcessHolding(const std::vector<uint64_t>& inodes,
                                         const std::string& procRoot);

// The process holding a socket in the way of binding UDP `address`:`port`;
// nullopt when nothing is in the way or the holder cannot be seen.
std::optional<PortHolder> PortHolderOf(const std::string& address, int port,
                                       const std::string& procRoot = "/proc");

// Whether process `pid` runs this program's executable on the program folder
// `folder` (its --dir, or the default its environment gives), so that a
// port it holds is the running server's own. False when /proc does not tell.
bool ServesFolder(int pid, const std::string& folder, const std::string& procRoot = "/proc");

}  // namespace modMain

}  // namespace korvane
