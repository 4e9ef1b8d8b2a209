#include "app/bind_failure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/fakes.h"

using namespace korvane;

namespace {

using modMain::BindFailureReason;
using Inodes = std::vector<uint64_t>;

const std::string kHeading =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode ref pointer drops\n";

// One socket line of /proc/net/udp or udp6 (addresses as the kernel prints them).
std::string TableLine(const std::string& local, uint64_t inode) {
  return "  12: " + local + " 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 " +
         std::to_string(inode) + " 2 0000000000000000 0\n";
}

TEST(BindFailure, TheSocketsInTheWayOfABind) {
  // 0035 is port 53; addresses are the kernel's words on this little-endian machine.
  const std::string table = kHeading + TableLine("00000000:0035", 11) +  // 0.0.0.0:53
                            TableLine("0100007F:0035", 12) +              // 127.0.0.1:53
                            TableLine("3500007F:0035", 13) +              // 127.0.0.53:53
                            TableLine("0100007F:14E9", 14) +              // 127.0.0.1:5353
                            TableLine("0100007F:0035", 0) +               // no inode: gone
                            "garbage line\n";
  const std::string table6 =
      kHeading + TableLine("00000000000000000000000000000000:0035", 21) +  // [::]:53
      TableLine("00000000000000000000000001000000:0035", 22) +             // [::1]:53
      TableLine("0000000000000000FFFF00000100007F:0035", 23) +             // [::ffff:127.0.0.1]:53
      TableLine("0000000000000000FFFF00000200007F:0035", 24);              // [::ffff:127.0.0.2]:53
  struct Case {
    std::string address;
    int port;
    Inodes v4, v6;
  } cases[] = {
      {"", 53, {11, 12, 13}, {21, 23, 24}},
      {"127.0.0.1", 53, {11, 12}, {21, 23}},
      {"127.0.0.53", 53, {11, 13}, {21}},
      {"10.0.0.1", 53, {11}, {21}},
      {"", 5353, {14}, {}},
      {"", 67, {}, {}},
      {"not an address", 53, {}, {}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(modMain::BlockingSocketInodes(table, c.address, c.port), c.v4) << c.address << ":" << c.port;
    EXPECT_EQ(modMain::BlockingSocketInodes(table6, c.address, c.port), c.v6) << c.address << ":" << c.port;
  }
}

// A /proc of a few processes with sockets open.
class FakeProc {
 public:
  void Process(int pid, const std::string& name, const std::vector<std::string>& links) {
    const std::string folder = dir.File(std::to_string(pid));
    std::filesystem::create_directories(folder + "/fd");
    dir.Write(std::to_string(pid) + "/comm", name + "\n");
    int fd = 3;
    for (const std::string& link : links)
      std::filesystem::create_symlink(link, folder + "/fd/" + std::to_string(fd++));
  }
  TempDir dir;
};

TEST(BindFailure, TheHolderIsTheLowestProcessWithTheSocketOpen) {
  FakeProc proc;
  proc.Process(700, "resolved", {"/dev/null", "socket:[99]"});
  proc.Process(812, "dnsmasq", {"pipe:[5]", "socket:[41]"});
  proc.Process(90, "dnsmasq-child", {"socket:[41]"});
  std::filesystem::create_directories(proc.dir.File("self"));
  std::filesystem::create_directories(proc.dir.File("900"));  // ended while looked at: no fd folder

  std::optional<modMain::PortHolder> holder = modMain::ProcessHolding({41}, proc.dir.path());
  ASSERT_TRUE(holder);
  EXPECT_EQ(holder->name, "dnsmasq-child");
  EXPECT_EQ(holder->pid, 90);
  EXPECT_EQ(modMain::ProcessHolding({7, 99}, proc.dir.path())->name, "resolved");
  EXPECT_FALSE(modMain::ProcessHolding({7}, proc.dir.path()));
  EXPECT_FALSE(modMain::ProcessHolding({}, proc.dir.path()));
  EXPECT_FALSE(modMain::ProcessHolding({41}, proc.dir.File("none")));
}

TEST(BindFailure, ReasonsInTheOperatorsWords) {
  FakeProc proc;
  std::filesystem::create_directories(proc.dir.File("sys/net/ipv4"));
  proc.dir.Write("sys/net/ipv4/ip_unprivileged_port_start", "1024\n");
  std::filesystem::create_directories(proc.dir.File("net"));
  proc.dir.Write("net/udp", kHeading + TableLine("00000000:0035", 41));
  proc.Process(812, "dnsmasq", {"socket:[41]"});
  FakeProc lowered;
  std::filesystem::create_directories(lowered.dir.File("sys/net/ipv4"));
  lowered.dir.Write("sys/net/ipv4/ip_unprivileged_port_start", "80\n");

  struct Case {
    int errnum;
    std::string address;
    int port;
    const TempDir& proc;
    std::string reason;
  } cases[] = {
      {EACCES, "", 53, proc.dir, "Permission denied: ports below 1024 need root or cap_net_bind_service"},
      {EACCES, "", 53, lowered.dir, "Permission denied: ports below 80 need root or cap_net_bind_service"},
      {EACCES, "", 8053, lowered.dir, "Permission denied"},
      {EADDRINUSE, "", 53, proc.dir, "Address already in use: port 53 is used by dnsmasq (pid 812)"},
      {EADDRINUSE, "127.0.0.1", 53, proc.dir, "Address already in use: port 53 is used by dnsmasq (pid 812)"},
      {EADDRINUSE, "", 67, proc.dir, "Address already in use: port 67 is used by another program"},
      {EADDRINUSE, "", 53, lowered.dir, "Address already in use: port 53 is used by another program"},
      {EADDRNOTAVAIL, "192.0.2.7", 53, proc.dir,
       "Cannot assign requested address: 192.0.2.7 is not an address of this machine"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(BindFailureReason(c.errnum, c.address, c.port, c.proc.path()), c.reason) << c.reason;
}

TEST(BindFailure, WhatWouldStandInTheWayIsFoundWithoutASocket) {
  FakeProc proc;
  std::filesystem::create_directories(proc.dir.File("net"));
  proc.dir.Write("net/udp", kHeading + TableLine("0100007F:0035", 41));
  proc.Process(812, "dnsmasq", {"socket:[41]"});
  std::filesystem::create_directories(proc.dir.File("self"));
  struct Case {
    std::string capabilities;  // CapEff of this process
    std::string address;
    int port;
    std::optional<std::string> obstacle;
  } cases[] = {
      {"0000000000000000", "", 5353, std::nullopt},
      {"0000000000000000", "", 53, "Permission denied: ports below 1024 need root or cap_net_bind_service"},
      {"0000000000000400", "", 53, "Address already in use: port 53 is used by dnsmasq (pid 812)"},
      {"000001ffffffffff", "127.0.0.1", 53, "Address already in use: port 53 is used by dnsmasq (pid 812)"},
      {"000001ffffffffff", "127.0.0.2", 53, std::nullopt},
      {"000001ffffffffff", "", 0, std::nullopt},
  };
  for (const Case& c : cases) {
    proc.dir.Write("self/status", "Name:\tkorvane\nCapEff:\t" + c.capabilities + "\n");
    EXPECT_EQ(modMain::BindObstacle(c.address, c.port, proc.dir.path()), c.obstacle)
        << c.capabilities << " " << c.address << ":" << c.port;
  }
}

}  // namespace

namespace {

TEST(BindFailure, ThePortOfTheServerRunningOnTheFolderIsItsOwn) {
  struct Case {
    std::string exe;      // the holder's executable link
    std::string cmdline;  // its arguments, '\0'-separated
    std::string cwd;
    std::string folder;   // the folder checked
    bool serves;
  } cases[] = {
      {"/usr/bin/korvane", "korvane|--headless|--dir|/var/lib/korvane|", "/", "/var/lib/korvane", true},
      {"/usr/bin/korvane", "korvane|--dir=/var/lib/korvane/|", "/", "/var/lib/korvane", true},
      {"/usr/bin/korvane", "korvane|-dir|run|", "/srv/office", "/srv/office/run", true},
      {"/usr/bin/korvane (deleted)", "korvane|--dir|/var/lib/korvane|", "/", "/var/lib/korvane", true},
      {"/usr/bin/korvane", "korvane|--headless|", "/tmp", "/usr/bin", true},
      {"/usr/bin/korvane", "korvane|--dir|/srv/other|", "/", "/var/lib/korvane", false},
      {"/usr/bin/korvane", "korvane|--headless|", "/var/lib/korvane", "/var/lib/korvane", false},
      {"/usr/sbin/dnsmasq", "dnsmasq|--dir|/var/lib/korvane|", "/", "/var/lib/korvane", false},
  };
  for (const Case& c : cases) {
    FakeProc proc;
    std::filesystem::create_directories(proc.dir.File("self"));
    std::filesystem::create_symlink("/usr/bin/korvane", proc.dir.File("self/exe"));
    proc.Process(812, "korvane", {});
    std::filesystem::create_symlink(c.exe, proc.dir.File("812/exe"));
    std::filesystem::create_symlink(c.cwd, proc.dir.File("812/cwd"));
    std::string cmdline = c.cmdline;
    std::replace(cmdline.begin(), cmdline.end(), '|', '\0');
    proc.dir.Write("812/cmdline", cmdline);
    EXPECT_EQ(modMain::ServesFolder(812, c.folder, proc.dir.path()), c.serves) << c.exe << " " << c.cmdline;
    EXPECT_FALSE(modMain::ServesFolder(813, c.folder, proc.dir.path())) << "no such process";
  }
}

// Without --dir, an installed program serves the folder its user's
// environment names, not the checking user's.
TEST(BindFailure, AServerStartedWithoutAFolderServesItsUsersOwn) {
  const std::string exe = "/nonexistent/bin/korvane";  // holds no korvane.ini, cannot be written
  struct Case {
    std::string environ;
    std::string folder;
    bool serves;
  } cases[] = {
      {"PATH=/usr/bin|HOME=/home/ann|", "/home/ann/.local/share/korvane", true},
      {"HOME=/home/ann|XDG_DATA_HOME=/data/ann|", "/data/ann/korvane", true},
      {"HOME=/home/ann|", "/root/.local/share/korvane", false},
      {"HOME=/home/ann|", "/nonexistent/bin", false},
      {"", "/nonexistent/bin", true},
  };
  for (const Case& c : cases) {
    FakeProc proc;
    std::filesystem::create_directories(proc.dir.File("self"));
    std::filesystem::create_symlink(exe, proc.dir.File("self/exe"));
    proc.Process(812, "korvane", {});
    std::filesystem::create_symlink(exe, proc.dir.File("812/exe"));
    std::filesystem::create_symlink("/", proc.dir.File("812/cwd"));
    proc.dir.Write("812/cmdline", std::string("korvane\0--headless\0", 19));
    std::string environ = c.environ;
    std::replace(environ.begin(), environ.end(), '|', '\0');
    proc.dir.Write("812/environ", environ);
    EXPECT_EQ(modMain::ServesFolder(812, c.folder, proc.dir.path()), c.serves) << c.environ;
  }
}

}  // namespace
