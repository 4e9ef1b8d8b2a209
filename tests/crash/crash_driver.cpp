// The program the crash-safety test kills: the application as korvane runs
// it headless, plus, on timers, the saves an operator's windows make: the
// record editor's (named.perm read back as entries, written with WritePerm,
// the records read again), the options dialog's (ApplyOptions with a new
// HostsTTL) and the cache view's (saveCache).
//   korvane_crash_driver [--headless] --dir DIR [--dns-port N] [--dhcp-port N]
// And the test's look at a folder after a kill:
//   korvane_crash_driver --check DIR
// loads every file as a start would and prints what it holds, one
// "<file> ..." line each, a "lease <address> <identity>" line per lease, and
// "bad ..." lines for what does not load back; exit status 1 when any.

#include <QCoreApplication>
#include <QTimer>

#include <dirent.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>

#include "app/application.h"
#include "app/options_file.h"
#include "app/prompts.h"
#include "store/files.h"
#include "wire/services.h"

using namespace korvane;

namespace {

class CountingReporter : public ErrorReporter {
 public:
  void Report(const std::string& tag, const std::string& additional, int, const std::string& description) override {
    std::printf("bad report %s %s %s\n", tag.c_str(), additional.c_str(), description.c_str());
    ++count;
  }
  int count = 0;
};

class SilentLog : public LogSink {
 public:
  void AddLine(const std::string&) override {}
};

// Every line of every daily log file: "yyyy-mm-dd hh:mm:ss  text" and CR LF.
int CheckLogs(const std::string& folder) {
  static const std::regex line("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d  .*\r");
  int bad = 0, lines = 0;
  DIR* logs = opendir((folder + "/logs").c_str());
  for (dirent* entry; logs && (entry = readdir(logs));) {
    std::string name = entry->d_name;
    if (name.size() < 4 || name.substr(name.size() - 4) != ".log") continue;
    std::ifstream in(folder + "/logs/" + name, std::ios::binary);
    for (std::string text; std::getline(in, text); ++lines) {
      if (std::regex_match(text, line)) continue;
      std::printf("bad log line in %s: %s\n", name.c_str(), text.c_str());
      ++bad;
    }
  }
  if (logs) closedir(logs);
  std::printf("logs %d lines\n", lines);
  return bad;
}

int Check(const std::string& folder) {
  CountingReporter errors;
  SilentLog log;
  Options options;
  modMain::LoadOptions(folder + "/korvane.ini", options, errors);
  std::printf("korvane.ini name %s hoststtl %d ns %zu\n", options.NAME.c_str(), options.HOSTSTTL,
              options.NS.size());
  RecordList records;
  SystemClock clock;
  std::vector<std::string> localIPs;
  DHCPifList pools;
  StoreContext store{records, options, clock, log, errors, folder, localIPs, pools};
  int bad = 0;
  if (!modDNS::LoadFile(store, folder + "/named.perm", true, false)) ++bad;
  auto entries = modDNS::ReadPermEntries(store);
  std::printf("named.perm %zu records %zu entries\n", records.size(), entries ? entries->size() : 0);
  // The cache file is there once the program has saved it.
  if (ReadWholeFile(folder + "/named.cache")) {
    RecordList cache;
    StoreContext cached{cache, options, clock, log, errors, folder, localIPs, pools};
    if (!modDNS::LoadFile(cached, folder + "/named.cache", false, false)) ++bad;
    std::printf("named.cache %zu records\n", cache.size());
  }
  if (ReadWholeFile(folder + "/dhcp.dat")) {
    DhcpServer dhcp(pools, options, records, clock, log, errors, folder);
    dhcp.Load();
    std::printf("dhcp.dat %zu leases\n", dhcp.Leases().size());
    for (const clLease& lease : dhcp.Leases())
      std::printf("lease %s %s\n", lease.IPaddr.c_str(), modDHCP::HWToHex(lease.ClientID).c_str());
  }
  bad += CheckLogs(folder) + errors.count;
  return bad == 0 ? 0 : 1;
}

// The windows' saves, each on its own timer.
void StartSaving(modMain::Application& app, QObject* parent) {
  auto* editor = new QTimer(parent);
  QObject::connect(editor, &QTimer::timeout, [&app] {
    static int32_t round = 0;
    auto entries = modDNS::ReadPermEntries(app.store());
    if (!entries) return;
    // The operator changes the TTL of a host record and saves.
    for (clPermRec& entry : *entries) {
      if (entry.RecType != RecordType::kA) continue;
      entry.TTL = 3600 + (++round % 100);
      break;
    }
    if (modDNS::WritePerm(app.store(), *entries)) app.Reload();
  });
  editor->start(500);
  auto* options = new QTimer(parent);
  QObject::connect(options, &QTimer::timeout, [&app] {
    Options next = app.options();
    next.HOSTSTTL = 3600 + (next.HOSTSTTL + 1) % 100;
    app.ApplyOptions(next);
  });
  options->start(1500);
  auto* cache = new QTimer(parent);
  QObject::connect(cache, &QTimer::timeout, [&app] { modDNS::saveCache(app.store()); });
  cache->start(2000);
}

}  // namespace

int main(int argc, char** argv) {
  modMain::Settings settings;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--check" && i + 1 < argc) return Check(argv[i + 1]);
    if (arg == "--dir" && i + 1 < argc) settings.folder = argv[++i];
    else if (arg == "--dns-port" && i + 1 < argc) settings.dnsPort = std::atoi(argv[++i]);
    else if (arg == "--dhcp-port" && i + 1 < argc) settings.dhcpPort = std::atoi(argv[++i]);
    else if (arg != "--headless") return 2;
  }
  if (settings.folder.empty()) return 2;
  settings.echo = stdout;
  signal(SIGPIPE, SIG_IGN);
  QCoreApplication qt(argc, argv);
  HeadlessMessageBoxes boxes;
  SystemTextEditor editor;
  modMain::Application app(settings, boxes, editor);
  app.Start();
  StartSaving(app, &qt);
  return qt.exec();
}
