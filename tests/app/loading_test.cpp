// Loading at start-up and on SIGHUP: korvane.ini is read again, a broken
// record file keeps the records in force, queries are answered while a long
// reload reads its files, and a termination signal ends a long load.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "app/app_world.h"

using namespace korvane;

namespace {

const std::string kRecords =
    "example.test. 3600 SOA ns.example.test. hostmaster.example.test. 1 3600 600 86400 60\n"
    "www.example.test. 3600 A 10.1.2.3\n";

// The reply to query `id`, "" when none came.
std::string ReplyTo(UdpClient& client, int id) {
  while (std::optional<Received> reply = client.Receive())
    if (reply->bytes.size() > 2 && reply->bytes[1] == static_cast<char>(id)) return reply->bytes;
  return "";
}

bool Answers(const std::string& reply, const std::string& address) {
  return reply.size() > 12 && (reply[3] & 15) == 0 && reply.find(Bytes({10, 1, 2, address.back() - '0'})) !=
                                                           std::string::npos;
}

// `lines` blocklist lines, "0.0.0.0 b<i>.block.test".
void WriteBlocklist(const std::string& path, int lines) {
  std::ofstream file(path);
  for (int i = 0; i < lines; ++i) file << "0.0.0.0 b" << i << ".block.test\n";
}

using LoadingTest = AppWorld;

TEST_F(LoadingTest, HangupReadsOptionsAndRecordsAgainAndABrokenRecordFileChangesNothing) {
  settings.dnsPort = FreeUdpPort();
  Start("DNSBind: 127.0.0.1\nHostsTTL: 600\n", kRecords);
  ASSERT_TRUE(app->ServerStarted());
  EXPECT_EQ(app->LoadWarnings(), 1) << "named.root is missing";

  dir.Write("korvane.ini", "DNSBind: 127.0.0.2\nHostsTTL: 600\nNS: 10.9.9.9\nColour: blue\n");
  dir.Write("named.perm", kRecords + "new.example.test. 3600 A 10.1.2.4\n");
  app->ReloadConfiguration();
  EXPECT_EQ(app->options().NS, std::vector<std::string>{"10.9.9.9"});
  EXPECT_TRUE(Logged("korvane.ini:4: unknown setting Colour, line skipped"));
  EXPECT_TRUE(Logged("Records reloaded: 5 records."));
  EXPECT_EQ(app->LoadWarnings(), 2);
  // The new address is bound: the old one answers no more.
  UdpClient client;
  client.SendTo("127.0.0.2", settings.dnsPort, DnsQuery(1, "new.example.test"));
  EXPECT_TRUE(Answers(ReplyTo(client, 1), "10.1.2.4"));

  dir.Write("named.perm", kRecords + "broken.example.test. 3600 SOA a. b. (\n 1 2 3\n");
  app->ReloadConfiguration();
  EXPECT_TRUE(Logged("named.perm:3: '(' not closed, 2 lines swallowed"));
  EXPECT_TRUE(Logged("Reload kept the records in force: named.perm has a '(' that is not closed."));
  client.SendTo("127.0.0.2", settings.dnsPort, DnsQuery(2, "new.example.test"));
  EXPECT_TRUE(Answers(ReplyTo(client, 2), "10.1.2.4"));

  // Without korvane.ini the options in force stay.
  std::remove(dir.File("korvane.ini").c_str());
  app->ReloadConfiguration();
  EXPECT_TRUE(Logged("korvane.ini could not be read (No such file or directory): the options in force stay."));
  EXPECT_EQ(app->options().DNSBIND, "127.0.0.2");
  EXPECT_TRUE(boxes.shown.empty());
}

TEST_F(LoadingTest, QueriesAreAnsweredFromTheRecordsInForceWhileALongReloadReads) {
  settings.dnsPort = FreeUdpPort();
  WriteBlocklist(dir.File("hosts"), 10);
  Start("DNSBind: 127.0.0.1\nHosts: " + dir.File("hosts") + "\n", kRecords);
  WriteBlocklist(dir.File("hosts"), 300000);
  UdpClient client;
  client.SendTo("127.0.0.1", settings.dnsPort, DnsQuery(3, "www.example.test"));
  app->ReloadConfiguration();
  const std::vector<std::string> log = LogTexts();
  auto asked = std::find(log.begin(), log.end(), "Request from 127.0.0.1 for A-record for www.example.test.");
  auto reloaded = std::find(log.begin(), log.end(), "Records reloaded: 600003 records.");
  ASSERT_NE(reloaded, log.end());
  EXPECT_LT(asked, reloaded) << "answered while the hosts file was read";
  EXPECT_TRUE(Answers(ReplyTo(client, 3), "10.1.2.3"));
}

// The program itself, stopped by SIGTERM while it reads a long hosts file:
// it ends at once, cleanly, and writes no cache or lease file over the ones
// it had not read yet.
TEST(LoadingProgram, TerminationSignalDuringALongLoadEndsItPromptly) {
  TempDir dir;
  WriteBlocklist(dir.File("hosts"), 1500000);
  dir.Write("korvane.ini", "Hosts: " + dir.File("hosts") + "\n");
  dir.Write("named.root", "; none\n");
  dir.Write("named.perm", kRecords);
  const std::string cache = "kept.example. 86400 NS ns.kept.example.\n";
  dir.Write("named.cache", cache);
  const std::string leases = "pc1.example.test. 10.1.2.9 01 2099-01-01 00:00:00\r\n";
  dir.Write("dhcp.dat", leases);

  const std::string out = dir.File("out.txt");
  const std::string port = std::to_string(FreeUdpPort());
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, 1);
    dup2(fd, 2);
    execl(KORVANE_BINARY, "korvane", "--headless", "--dir", dir.path().c_str(), "--dns-port", port.c_str(),
          static_cast<char*>(nullptr));
    _exit(127);
  }
  using Clock = std::chrono::steady_clock;
  auto waitFor = [&](const std::string& text, double seconds) {
    for (auto until = Clock::now() + std::chrono::duration<double>(seconds); Clock::now() < until;) {
      if (dir.Read("out.txt").find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  };
  const bool loading = waitFor("Loading hosts file", 30);
  kill(child, SIGTERM);
  int status = 0;
  pid_t ended = 0;
  for (auto until = Clock::now() + std::chrono::seconds(2); ended == 0 && Clock::now() < until;) {
    ended = waitpid(child, &status, WNOHANG);
    if (ended == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (ended == 0) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  ASSERT_TRUE(loading) << dir.Read("out.txt");
  EXPECT_EQ(ended, child) << "still running 2 s after SIGTERM";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  const std::string said = dir.Read("out.txt");
  EXPECT_NE(said.find("Program was closed through a termination signal."), std::string::npos) << said;
  EXPECT_EQ(said.find("DNS service started"), std::string::npos) << "the load had ended before the signal";
  EXPECT_EQ(dir.Read("named.cache"), cache);
  EXPECT_EQ(dir.Read("dhcp.dat"), leases);
}

}  // namespace
