// korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N] [--check]
//         [--version] [--help]

#include <QStringList>

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/check.h"
#include "app/command_line.h"
#include "app/default_folder.h"
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

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

// Makes the user's own folder when it is the one to use; the log lines that
// say so, or nullopt (the reason printed) when it cannot be made.
std::optional<std::vector<std::string>> PrepareFolder(const modMain::CommandLine& line,
                                                      const modMain::DefaultFolder& choice) {
  if (line.folderGiven || !choice.own) return std::vector<std::string>{};
  modMain::PreparedFolder prepared = modMain::PrepareOwnFolder(choice);
  if (prepared.ok) return prepared.lines;
  std::fprintf(stderr, "korvane: %s\n", prepared.lines.front().c_str());
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  // A client that vanishes must not kill the server through a broken pipe.
  signal(SIGPIPE, SIG_IGN);

  // Parsed before any Q*Application exists: which one depends on the result.
  QStringList arguments;
  for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
  const modMain::DefaultFolder choice = modMain::ChooseDefaultFolder(modMain::ReadFolderFacts(
      ExecutableFolder(argv[0]), Environment("XDG_DATA_HOME"), Environment("HOME")));
  const modMain::ParsedCommandLine parsed = modMain::ParseCommandLine(arguments, choice.folder);
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
    case modMain::CommandLine::Action::kCheck:
    case modMain::CommandLine::Action::kRun:
      break;
  }
  const std::optional<std::vector<std::string>> folderLines = PrepareFolder(line, choice);
  if (!folderLines) return modMain::ExitStatus::kFailed;
  if (line.action == modMain::CommandLine::Action::kCheck) {
    for (const std::string& text : *folderLines) std::printf("%s\n", text.c_str());
    HeadlessMessageBoxes boxes;
    return modMain::RunCheck(line.folder, line.dnsPort, modIdentify::ReadLocalIPs(boxes), stdout);
  }

  modMain::Settings settings;
  settings.folder = line.folder;
  settings.startLines = *folderLines;
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
