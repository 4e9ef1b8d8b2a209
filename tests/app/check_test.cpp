#include "app/check.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "app/app_world.h"
#include "app/options_file.h"
#include "app/program_folder.h"
#include "support/fakes.h"

using namespace korvane;

namespace {

using Strings = std::vector<std::string>;

const std::string kSource = KORVANE_SOURCE_DIR;
const std::string kPool = "office.example. 3600 DHCP 10.9.0.100 10.9.0.200 255.255.255.0 10.9.0.1\n";
// The pool stands on line 6: the SOA before it spans three lines.
const std::string kRecordsWithPool =
    "; records\n"
    "office.example. 86400 SOA ns1.office.example. hostmaster.office.example. (\n"
    "    1 10800 3600\n"
    "    604800 3600 )\n"
    "ns1.office.example. 3600 A 192.0.2.2\n" +
    kPool;

struct CheckRun {
  int status;
  Strings lines;
};

CheckRun Check(const TempDir& dir, int port, const Strings& localIPs) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* out = open_memstream(&text, &size);
  const int status = modMain::RunCheck(dir.path(), port, localIPs, out);
  std::fclose(out);
  Strings lines;
  std::string all(text, size);
  std::free(text);
  for (std::size_t at = 0, end; (end = all.find('\n', at)) != std::string::npos; at = end + 1)
    lines.push_back(all.substr(at, end - at));
  return {status, lines};
}

std::set<std::string> Listing(const TempDir& dir) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    names.insert(entry.path().filename().string());
  return names;
}

struct Case {
  std::string name;
  std::vector<std::pair<std::string, std::string>> files;  // written over the example folder
  Strings removed;                                         // taken from it
  Strings localIPs;
  int status;
  Strings said;  // lines that must be in the output, the last one last
  bool portTaken = false;
};

TEST(Check, LoadsTheFolderAndSaysWhatWouldKeepTheStartFromServing) {
  const Case cases[] = {
      {"the example", {}, {}, {"192.0.2.2"}, 0, {"Loading DHCP Leases...", "{dir}: no problems found."}},
      {"a pool on no interface and a foreign DNSBind",
       {{"korvane.ini", "DNSBind: 192.0.2.7\n"}, {"named.perm", kRecordsWithPool}},
       {},
       {"192.0.2.2"},
       1,
       {"named.perm:6: DHCP pool 10.9.0.100 - 10.9.0.200 is on no local interface, pool skipped",
        "DNSBind: 192.0.2.7 is not an address of this machine - the DNS service will not start.",
        "{dir}: 2 problems found."}},
      {"the pool's network is local, DNSBind on loopback",
       {{"korvane.ini", "DNSBind: 127.0.0.2\n"}, {"named.perm", kRecordsWithPool}},
       {},
       {"192.0.2.2", "10.9.0.1"},
       0,
       {"{dir}: no problems found."}},
      {"no root hints and no external servers",
       {},
       {"named.root"},
       {},
       1,
       {"Root server file {dir}/named.root could not be read: No such file or directory.",
        "{dir}: 1 problem found."}},
      {"no root hints needed with external servers",
       {{"korvane.ini", "RecursionOut: YES\nNS: 192.0.2.53\n"}},
       {"named.root"},
       {},
       0,
       {"Root server file {dir}/named.root could not be read: No such file or directory.",
        "{dir}: no problems found."}},
      {"an empty folder",
       {},
       {"korvane.ini", "named.perm", "named.root"},
       {},
       1,
       {"Options file {dir}/korvane.ini not found - starting with the default options.",
        "Error 53 (File not found) in modDNS LoadPermOld: {dir}/perm.dat", "{dir}: 2 problems found."}},
      {"the DNS port held by another program",
       {},
       {},
       {},
       1,
       {"Address already in use: port {port} is used by test_app (pid {pid}) - the DNS service will not "
        "start.",
        "{dir}: 1 problem found."},
       true},
  };
  UdpClient holder;  // on 127.0.0.1
  for (const Case& c : cases) {
    TempDir dir;
    std::filesystem::copy(kSource + "/examples/office", dir.path());
    for (const auto& [name, content] : c.files) dir.Write(name, content);
    for (const std::string& name : c.removed) std::filesystem::remove(dir.File(name));
    const std::set<std::string> before = Listing(dir);

    const int port = c.portTaken ? holder.port() : FreeUdpPort();
    CheckRun run = Check(dir, port, c.localIPs);
    EXPECT_EQ(run.status, c.status) << c.name;
    std::size_t from = 0;
    for (std::string line : c.said) {
      for (const auto& [mark, value] : {std::pair<std::string, std::string>{"{dir}", dir.path()},
                                        {"{port}", std::to_string(port)},
                                        {"{pid}", std::to_string(getpid())}}) {
        for (std::size_t at; (at = line.find(mark)) != std::string::npos;) line.replace(at, mark.size(), value);
      }
      auto found = std::find(run.lines.begin() + static_cast<std::ptrdiff_t>(from), run.lines.end(), line);
      EXPECT_NE(found, run.lines.end()) << c.name << ": " << line;
      if (found != run.lines.end()) from = static_cast<std::size_t>(found - run.lines.begin());
    }
    EXPECT_EQ(from + 1, run.lines.size()) << c.name << ": the summary comes last";
    EXPECT_EQ(Listing(dir), before) << c.name << ": the check leaves the folder as it was";
  }
}

TEST(Check, AnExternalServerThatIsThisServerIsALoop) {
  struct Case {
    std::string options;
    Strings localIPs;
    int port;
    Strings loops;
  } cases[] = {
      {"RecursionOut: YES\nNS: 127.0.0.1\nNS: 192.0.2.53\n", {}, 53, {"127.0.0.1"}},
      {"NS: 127.0.0.1\n", {}, 53, {}},  // the NS lines are not used
      {"RecursionOut: YES\nNS: 127.0.0.1\n", {}, 5353, {}},
      {"RecursionOut: YES\nNS: 192.0.2.2\nNS: 127.0.0.53\nNS: 198.51.100.1\n", {"192.0.2.2"}, 53,
       {"192.0.2.2", "127.0.0.53"}},
      {"DNSBind: 192.0.2.2\nRecursionOut: YES\nNS: 127.0.0.1\nNS: 192.0.2.2\n", {"192.0.2.2"}, 53,
       {"192.0.2.2"}},
  };
  for (const Case& c : cases) {
    TempDir dir;
    dir.Write("korvane.ini", c.options);
    Options options;
    RecordingErrorReporter errors;
    modMain::LoadOptions(dir.File("korvane.ini"), options, errors);
    Strings want;
    for (const std::string& server : c.loops) want.push_back("Forwarding loop: " + server + " is this server.");
    EXPECT_EQ(modMain::ForwardingLoops(options, c.localIPs, c.port), want) << c.options;
  }
}

TEST(Check, ALineWarningNamesAFileAndALine) {
  struct Case {
    std::string line;
    bool warning;
  } cases[] = {
      {"named.perm:12: unknown type AA, line skipped", true},
      {"dhcp.dat:1: no expiry, lease skipped", true},
      {"/etc/hosts:3: bad address", true},
      {"named.perm: 42 records, 2 lines skipped", false},
      {"named.perm:12 no blank", false},
      {"named.perm:: empty number", false},
      {"Loading permanent records...", false},
      {":12: no file", false},
      {"Request from 127.0.0.1:53: a line of the server", false},
  };
  for (const Case& c : cases) EXPECT_EQ(modMain::IsLineWarning(c.line), c.warning) << c.line;
}

}  // namespace
