// korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N] [--check]
//         [--version] [--help]

#include <QCoreApplication>

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "app/application.h"
#include "app/check.h"
#include "app/command_line.h"
#include "app/identify.h"
#include "app/prompts.h"
#include "app/signal_watcher.h"
#include "app/version.h"

using namespace korvane;

namespace {

std::string ExecutableFolder(const char* argv0) {
  std::error_code error;
  auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) self = std::filesystem::absolute(argv0, error);
  return self.parent_path().string();
}

}  // namespace

int main(int argc, char** argv) {
  // A client that vanishes must not kill the server through a broken pipe.
  signal(SIGPIPE, SIG_IGN);

  QCoreApplication app(argc, argv);
  const modMain::ParsedCommandLine parsed =
      modMain::ParseCommandLine(QCoreApplication::arguments(), ExecutableFolder(argv[0]));
  if (!parsed.commandLine) {
    std::fprintf(stderr, "korvane: %s\n%s", parsed.error.c_str(), modMain::UsageText());
    return modMain::ExitStatus::kUsage;
  }
  const modMain::CommandLine& line = *parsed.commandLine;
  HeadlessMessageBoxes boxes;
  switch (line.action) {
    case modMain::CommandLine::Action::kHelp:
      std::fputs(modMain::UsageText(), stdout);
      return modMain::ExitStatus::kClean;
    case modMain::CommandLine::Action::kVersion:
      std::printf("Korvane %s\n", modMain::VersionText().c_str());
      return modMain::ExitStatus::kClean;
    case modMain::CommandLine::Action::kCheck:
      return modMain::RunCheck(line.folder, line.dnsPort, modIdentify::ReadLocalIPs(boxes), stdout);
    case modMain::CommandLine::Action::kRun:
      break;
  }

  modMain::Settings settings;
  settings.folder = line.folder;
  settings.dnsPort = line.dnsPort;
  settings.dhcpPort = line.dhcpPort;
  settings.echo = line.quiet ? nullptr : stdout;
  settings.headless = true;  // there are no windows yet, so every run is headless

  SystemTextEditor editor;
  modMain::Application korvane(settings, boxes, editor);

  SignalWatcher watcher;
  int closedStatus = modMain::ExitStatus::kClean;
  watcher.SetHandler([&](int number) {
    if (number == SIGHUP) {
      korvane.ReloadConfiguration();
      return;
    }
    const bool saved = korvane.Close(number == SIGINT ? modMain::CloseReason::kUser
                                                      : modMain::CloseReason::kTerminationSignal);
    closedStatus = saved ? modMain::ExitStatus::kClean : modMain::ExitStatus::kFailed;
    QCoreApplication::exit(closedStatus);
  });
  // A headless server that cannot serve DNS ends, so that a supervisor sees it.
  QObject::connect(
      &korvane, &modMain::Application::DnsServiceFailed, &app,
      [&] {
        if (!settings.headless) return;
        korvane.Close(modMain::CloseReason::kFailedStart);
        QCoreApplication::exit(modMain::ExitStatus::kFailed);
      },
      Qt::QueuedConnection);

  korvane.Start();
  // A termination signal while the files loaded: closed already.
  if (korvane.Closed()) return closedStatus;
  return app.exec();
}
