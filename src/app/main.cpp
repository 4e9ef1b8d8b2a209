// korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N] [--check]
//         [--version] [--help]

#include <QStringList>

#include <signal.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "app/check.h"
#include "app/command_line.h"
#include "app/identify.h"
#include "app/prompts.h"
#include "app/version.h"
#include "app/windowed.h"

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

  // Parsed before any Q*Application exists: which one depends on the result.
  QStringList arguments;
  for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
  const modMain::ParsedCommandLine parsed =
      modMain::ParseCommandLine(arguments, ExecutableFolder(argv[0]));
  if (!parsed.commandLine) {
    std::fprintf(stderr, "korvane: %s\n%s", parsed.error.c_str(), modMain::UsageText());
    return modMain::ExitStatus::kUsage;
  }
  const modMain::CommandLine& line = *parsed.commandLine;
  switch (line.action) {
    case modMain::CommandLine::Action::kHelp:
      std::fputs(modMain::UsageText(), stdout);
      return modMain::ExitStatus::kClean;
    case modMain::CommandLine::Action::kVersion:
      std::printf("Korvane %s\n", modMain::VersionText().c_str());
      return modMain::ExitStatus::kClean;
    case modMain::CommandLine::Action::kCheck: {
      HeadlessMessageBoxes boxes;
      return modMain::RunCheck(line.folder, line.dnsPort, modIdentify::ReadLocalIPs(boxes), stdout);
    }
    case modMain::CommandLine::Action::kRun:
      break;
  }

  modMain::Settings settings;
  settings.folder = line.folder;
  settings.dnsPort = line.dnsPort;
  settings.dhcpPort = line.dhcpPort;
  if (line.headless || !modMain::DisplayNamed()) {
    settings.headless = true;
    settings.echo = line.quiet ? nullptr : stdout;
    return modMain::RunHeadless(argc, argv, settings, line);
  }
  // The window shows the log; standard output stays quiet.
  return modMain::RunWindowed(argc, argv, settings, line);
}
