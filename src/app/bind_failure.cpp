#include "app/bind_failure.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "app/default_folder.h"
#include "store/files.h"

namespace korvane {

namespace modMain {

namespace {

namespace fs = std::filesystem;

// A 32-bit word of an address as the kernel prints it in /proc/net/udp*.
std::string TableWord(uint32_t raw) {
  char text[9];
  std::snprintf(text, sizeof text, "%08X", raw);
  return text;
}

std::optional<std::string> TableAddress(const std::string& address) {
  in_addr parsed{};
  if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) return std::nullopt;
  return TableWord(parsed.s_addr);
}

bool Blocks(std::string_view entry, const std::optional<std::string>& ours) {
  const std::string any4 = TableWord(0);
  if (entry.size() == 8) return !ours || entry == any4 || entry == *ours;
  if (entry.size() != 32) return false;
  // A v6 socket stands in the way only on all addresses or on a v4-mapped one.
  if (entry == std::string(32, '0')) return true;
  if (entry.substr(0, 16) != std::string(16, '0') || entry.substr(16, 8) != TableWord(htonl(0xffff)))
    return false;
  return !ours || entry.substr(24) == *ours || entry.substr(24) == any4;
}

std::vector<uint64_t> InodesInTheWay(const std::string& address, int port, const std::string& procRoot) {
  std::vector<uint64_t> inodes;
  for (const char* table : {"/net/udp", "/net/udp6"}) {
    if (std::optional<std::string> text = ReadWholeFile(procRoot + table)) {
      std::vector<uint64_t> found = BlockingSocketInodes(*text, address, port);
      inodes.insert(inodes.end(), found.begin(), found.end());
    }
  }
  return inodes;
}

std::string InUseReason(const std::string& address, int port, const std::string& procRoot) {
  const std::vector<uint64_t> inodes = InodesInTheWay(address, port, procRoot);
  std::string holder = "another program";
  if (std::optional<PortHolder> process = ProcessHolding(inodes, procRoot))
    holder = process->name + " (pid " + std::to_string(process->pid) + ")";
  return "Address already in use: port " + std::to_string(port) + " is used by " + holder;
}

// The path a /proc link names; an executable replaced by an upgrade reads
// "/usr/bin/korvane (deleted)".
std::optional<fs::path> LinkTarget(const std::string& link) {
  std::error_code error;
  std::string target = fs::read_symlink(link, error).string();
  if (error) return std::nullopt;
  const std::string deleted = " (deleted)";
  if (target.size() > deleted.size() && target.ends_with(deleted))
    target.resize(target.size() - deleted.size());
  return fs::path(target);
}

// The folder a server started without --dir uses, chosen from its own
// environment as its start chose it.
fs::path DefaultFolderOf(const std::string& process, const fs::path& executableFolder) {
  std::string xdgDataHome, home;
  std::istringstream environment(ReadWholeFile(process + "/environ").value_or(""));
  for (std::string entry; std::getline(environment, entry, '\0');) {
    if (entry.starts_with("XDG_DATA_HOME=")) xdgDataHome = entry.substr(entry.find('=') + 1);
    if (entry.starts_with("HOME=")) home = entry.substr(entry.find('=') + 1);
  }
  return ChooseDefaultFolder(ReadFolderFacts(executableFolder.string(), xdgDataHome, home)).folder;
}

// The program folder a command line names: the value of --dir (or -dir, or
// --dir=...), relative to `cwd`; nullopt without one.
std::optional<fs::path> DirArgument(const std::string& cmdline, const fs::path& cwd) {
  std::vector<std::string> arguments;
  std::istringstream parts(cmdline);
  for (std::string part; std::getline(parts, part, '\0');) arguments.push_back(part);
  std::optional<std::string> value;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if ((argument == "--dir" || argument == "-dir") && i + 1 < arguments.size())
      value = arguments[++i];
    else if (argument.starts_with("--dir=") || argument.starts_with("-dir="))
      value = argument.substr(argument.find('=') + 1);
  }
  if (!value) return std::nullopt;
  return cwd / *value;
}

int UnprivilegedPortStart(const std::string& procRoot) {
  std::optional<std::string> text = ReadWholeFile(procRoot + "/sys/net/ipv4/ip_unprivileged_port_start");
  int start = 0;
  if (text && std::sscanf(text->c_str(), "%d", &start) == 1) return start;
  return 1024;
}

// Root has every capability; others may have been given this one.
bool MayBindLowPorts(const std::string& procRoot) {
  constexpr unsigned long long kNetBindService = 1ull << 10;
  std::istringstream status(ReadWholeFile(procRoot + "/self/status").value_or(""));
  for (std::string line; std::getline(status, line);) {
    unsigned long long capabilities = 0;
    if (std::sscanf(line.c_str(), "CapEff: %llx", &capabilities) == 1)
      return (capabilities & kNetBindService) != 0;
  }
  return false;
}

}  // namespace

std::vector<uint64_t> BlockingSocketInodes(std::string_view table, const std::string& address,
                                           int port) {
  std::optional<std::string> ours;
  if (!address.empty()) {
    ours = TableAddress(address);
    if (!ours) return {};
  }
  std::vector<uint64_t> inodes;
  std::istringstream lines{std::string(table)};
  std::string line;
  std::getline(lines, line);  // the heading
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout;
    uint64_t inode = 0;
    if (!(fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >>
          timeout >> inode))
      continue;
    const std::size_t colon = local.find(':');
    if (colon == std::string::npos) continue;
    unsigned long localPort = std::strtoul(local.c_str() + colon + 1, nullptr, 16);
    if (static_cast<int>(localPort) != port || inode == 0) continue;
    if (Blocks(std::string_view(local).substr(0, colon), ours)) inodes.push_back(inode);
  }
  return inodes;
}

std::optional<PortHolder> ProcessHolding(const std::vector<uint64_t>& inodes,
                                         const std::string& procRoot) {
  if (inodes.empty()) return std::nullopt;
  std::vector<int> pids;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(procRoot, error)) {
    const std::string name = entry.path().filename().string();
    const bool digits = std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!name.empty() && digits) pids.push_back(std::atoi(name.c_str()));
  }
  std::sort(pids.begin(), pids.end());
  for (int pid : pids) {
    const std::string folder = procRoot + "/" + std::to_string(pid);
    // A process may end, or be out of our sight, while we look: skip it.
    for (const fs::directory_entry& fd : fs::directory_iterator(folder + "/fd", error)) {
      std::error_code linkError;
      const std::string target = fs::read_symlink(fd.path(), linkError).string();
      unsigned long long inode = 0;
      if (linkError || std::sscanf(target.c_str(), "socket:[%llu]", &inode) != 1) continue;
      if (std::find(inodes.begin(), inodes.end(), inode) == inodes.end()) continue;
      std::string name = ReadWholeFile(folder + "/comm").value_or("?");
      while (!name.empty() && (name.back() == '\n' || name.back() == ' ')) name.pop_back();
      return PortHolder{name, pid};
    }
  }
  return std::nullopt;
}

std::optional<PortHolder> PortHolderOf(const std::string& address, int port,
                                       const std::string& procRoot) {
  return ProcessHolding(InodesInTheWay(address, port, procRoot), procRoot);
}

bool ServesFolder(int pid, const std::string& folder, const std::string& procRoot) {
  const std::string process = procRoot + "/" + std::to_string(pid);
  const std::optional<fs::path> exe = LinkTarget(process + "/exe");
  const std::optional<fs::path> ours = LinkTarget(procRoot + "/self/exe");
  if (!exe || !ours || *exe != *ours) return false;
  const std::optional<std::string> cmdline = ReadWholeFile(process + "/cmdline");
  const std::optional<fs::path> cwd = LinkTarget(process + "/cwd");
  if (!cmdline || !cwd) return false;
  const fs::path served =
      DirArgument(*cmdline, *cwd).value_or(DefaultFolderOf(process, exe->parent_path()));
  auto plain = [](const fs::path& path, std::error_code& error) {
    fs::path resolved = fs::weakly_canonical(path, error);
    return resolved.has_filename() ? resolved : resolved.parent_path();  // "dir/" is "dir"
  };
  std::error_code servedError, folderError;
  const fs::path a = plain(served, servedError), b = plain(folder, folderError);
  return !servedError && !folderError && a == b;
}

std::optional<std::string> BindObstacle(const std::string& address, int port,
                                        const std::string& procRoot) {
  if (port > 0 && port < UnprivilegedPortStart(procRoot) && !MayBindLowPorts(procRoot))
    return BindFailureReason(EACCES, address, port, procRoot);
  if (!InodesInTheWay(address, port, procRoot).empty())
    return BindFailureReason(EADDRINUSE, address, port, procRoot);
  return std::nullopt;
}

std::string BindFailureReason(int errnum, const std::string& address, int port,
                              const std::string& procRoot) {
  switch (errnum) {
    case EACCES:
    case EPERM: {
      const int start = UnprivilegedPortStart(procRoot);
      if (port < start)
        return "Permission denied: ports below " + std::to_string(start) +
               " need root or cap_net_bind_service";
      return "Permission denied";
    }
    case EADDRINUSE:
      return InUseReason(address, port, procRoot);
    case EADDRNOTAVAIL:
      return "Cannot assign requested address: " + address + " is not an address of this machine";
    default:
      return std::strerror(errnum);
  }
}

}  // namespace modMain

}  // namespace korvane
