// korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N] [--version] [--help]

#include <QStringList>

#include <signal.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "app/command_line.h"
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
  QStringList arguments;
  for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
  const modMain::ParseResult parsed = modMain::ParseCommandLine(arguments);
  if (parsed.exitCode) {
    std::fputs(parsed.output.c_str(), parsed.toStandardError ? stderr : stdout);
    return *parsed.exitCode;
  }
  const modMain::CommandLine& line = parsed.line;

  const std::string folder = line.folder.empty() ? ExecutableFolder(argv[0]) : line.folder;
  std::error_code error;
  std::filesystem::path path = std::filesystem::absolute(folder, error);
  if (error || !std::filesystem::is_directory(path)) {
    std::fprintf(stderr, "korvane: %s is not a folder\n", folder.c_str());
    return 2;
  }
  modMain::Settings settings;
  settings.folder = path.lexically_normal().string();
  while (settings.folder.size() > 1 && settings.folder.back() == '/') settings.folder.pop_back();
  settings.dnsPort = line.dnsPort;
  settings.dhcpPort = line.dhcpPort;

  // A client that vanishes must not kill the server through a broken pipe.
  signal(SIGPIPE, SIG_IGN);

  if (line.headless || !modMain::DisplayNamed()) {
    settings.echo = line.quiet ? nullptr : stdout;
    return modMain::RunHeadless(argc, argv, settings, line);
  }
  // The window shows the log; standard output stays quiet.
  return modMain::RunWindowed(argc, argv, settings, line);
}
