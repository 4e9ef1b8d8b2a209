#include "app/command_line.h"

#include <QCommandLineParser>

#include "app/version.h"

namespace korvane {

namespace modMain {

const char* const kUsage =
    "Usage: korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N]\n"
    "               [--version] [--help]\n"
    "  --headless      run without windows; every log line is also printed here\n"
    "                  (also when no display is available)\n"
    "  --quiet         print no log lines (the daily log files still get them)\n"
    "  --dir DIR       program folder (korvane.ini, named.perm, ...); default: the\n"
    "                  folder of the executable\n"
    "  --dns-port N    DNS service port (default 53)\n"
    "  --dhcp-port N   DHCP service port (default 67)\n"
    "  --version       print the version and exit\n"
    "  --help          print this text and exit\n"
    "Signals: SIGINT and SIGTERM close in order, SIGHUP reloads the records.\n";

namespace {

bool ParsePort(const QString& text, int& port) {
  bool ok = false;
  const int value = text.toInt(&ok, 10);
  if (!ok || value < 1 || value > 65535 || text.trimmed() != text || text.startsWith('+'))
    return false;
  port = value;
  return true;
}

ParseResult UsageError(const std::string& why) {
  ParseResult result;
  result.exitCode = 2;
  result.output = "korvane: " + why + "\n" + kUsage;
  result.toStandardError = true;
  return result;
}

}  // namespace

ParseResult ParseCommandLine(const QStringList& arguments) {
  QCommandLineParser parser;
  const QCommandLineOption headless("headless"), quiet("quiet"), version("version"), help("help");
  const QCommandLineOption dir("dir", "", "DIR"), dnsPort("dns-port", "", "N"),
      dhcpPort("dhcp-port", "", "N");
  QCommandLineOption stallProbe("stall-probe");
  stallProbe.setFlags(QCommandLineOption::HiddenFromHelp);
  parser.addOptions({headless, quiet, version, help, dir, dnsPort, dhcpPort, stallProbe});

  if (!parser.parse(arguments)) return UsageError(parser.errorText().toStdString());
  if (!parser.positionalArguments().isEmpty())
    return UsageError("unexpected argument '" + parser.positionalArguments().first().toStdString() +
                      "'");
  ParseResult result;
  if (parser.isSet(help)) {
    result.exitCode = 0;
    result.output = kUsage;
    return result;
  }
  if (parser.isSet(version)) {
    result.exitCode = 0;
    result.output = "Korvane " + VersionText() + "\n";
    return result;
  }
  CommandLine& line = result.line;
  line.headless = parser.isSet(headless);
  line.quiet = parser.isSet(quiet);
  line.stallProbe = parser.isSet(stallProbe);
  line.folder = parser.value(dir).toStdString();
  if (parser.isSet(dir) && line.folder.empty()) return UsageError("--dir needs a folder");
  if (parser.isSet(dnsPort) && !ParsePort(parser.value(dnsPort), line.dnsPort))
    return UsageError("bad port for --dns-port: '" + parser.value(dnsPort).toStdString() + "'");
  if (parser.isSet(dhcpPort) && !ParsePort(parser.value(dhcpPort), line.dhcpPort))
    return UsageError("bad port for --dhcp-port: '" + parser.value(dhcpPort).toStdString() + "'");
  return result;
}

}  // namespace modMain

}  // namespace korvane
