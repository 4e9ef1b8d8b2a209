// korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N] [--version] [--help]

#include <QCoreApplication>

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/application.h"
#include "app/prompts.h"
#include "app/signal_watcher.h"
#include "app/version.h"

using namespace korvane;

namespace {

constexpr const char* kUsage =
    "Usage: korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N]\n"
    "               [--version] [--help]\n"
    "  --headless      run without windows; every log line is also printed here\n"
    "  --quiet         print no log lines (the daily log files still get them)\n"
    "  --dir DIR       program folder (korvane.ini, named.perm, ...); default: the\n"
    "                  folder of the executable\n"
    "  --dns-port N    DNS service port (default 53)\n"
    "  --dhcp-port N   DHCP service port (default 67)\n"
    "  --version       print the version and exit\n"
    "  --help          print this text and exit\n"
    "Signals: SIGINT and SIGTERM close in order (also while the files load),\n"
    "SIGHUP reads korvane.ini and the records again.\n";

bool ParsePort(const char* text, int& port) {
  char* end = nullptr;
  long value = std::strtol(text, &end, 10);
  if (!end || *end != '\0' || end == text || value < 1 || value > 65535) return false;
  port = static_cast<int>(value);
  return true;
}

int Usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

std::string ExecutableFolder(const char* argv0) {
  std::error_code error;
  auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) self = std::filesystem::absolute(argv0, error);
  return self.parent_path().string();
}

}  // namespace

int main(int argc, char** argv) {
  modMain::Settings settings;
  std::string folder;
  bool quiet = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--headless") {
      // There are no windows yet, so every run is headless.
    } else if (arg == "--quiet") {
      quiet = true;
    } else if (arg == "--dir" && i + 1 < argc) {
      folder = argv[++i];
    } else if (arg == "--dns-port" && i + 1 < argc) {
      if (!ParsePort(argv[++i], settings.dnsPort)) return Usage();
    } else if (arg == "--dhcp-port" && i + 1 < argc) {
      if (!ParsePort(argv[++i], settings.dhcpPort)) return Usage();
    } else if (arg == "--version") {
      std::printf("Korvane %s\n", modMain::VersionText().c_str());
      return 0;
    } else if (arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else {
      return Usage();
    }
  }
  if (folder.empty()) folder = ExecutableFolder(argv[0]);
  std::error_code error;
  std::filesystem::path path = std::filesystem::absolute(folder, error);
  if (error || !std::filesystem::is_directory(path)) {
    std::fprintf(stderr, "korvane: %s is not a folder\n", folder.c_str());
    return 2;
  }
  settings.folder = path.lexically_normal().string();
  while (settings.folder.size() > 1 && settings.folder.back() == '/') settings.folder.pop_back();
  settings.echo = quiet ? nullptr : stdout;

  // A client that vanishes must not kill the server through a broken pipe.
  signal(SIGPIPE, SIG_IGN);

  QCoreApplication app(argc, argv);
  HeadlessMessageBoxes boxes;
  SystemTextEditor editor;
  modMain::Application korvane(settings, boxes, editor);

  SignalWatcher watcher;
  watcher.SetHandler([&](int number) {
    if (number == SIGHUP) {
      korvane.ReloadConfiguration();
      return;
    }
    korvane.Close(number == SIGINT ? modMain::CloseReason::kUser
                                   : modMain::CloseReason::kTerminationSignal);
    QCoreApplication::exit(0);
  });

  korvane.Start();
  // A termination signal while the files loaded: closed already.
  if (korvane.Closed()) return 0;
  return app.exec();
}
