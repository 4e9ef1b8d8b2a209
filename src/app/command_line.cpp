#include "app/command_line.h"

#include <QCommandLineParser>

#include <filesystem>

namespace korvane {

namespace modMain {

namespace {

// "--dns-port: 99999 is not a port".
ParsedCommandLine Refused(const QString& option, const std::string& why) {
  return {std::nullopt, option.toStdString() + ": " + why};
}

// The argument as it was typed that names option `name`.
QString AsTyped(const QStringList& arguments, const QString& name) {
  for (const QString& argument : arguments.mid(1)) {
    const QString bare = argument.section('=', 0, 0);
    if (bare == "-" + name || bare == "--" + name) return bare;
  }
  return "--" + name;
}

std::optional<int> Port(const QString& text) {
  bool ok = false;
  const int port = text.toInt(&ok, 10);
  if (!ok || text.startsWith('+') || port < 1 || port > 65535) return std::nullopt;
  return port;
}

// Why the parser refused: an option it does not know, or a value missing
// after the last argument.
ParsedCommandLine ParserRefusal(const QCommandLineParser& parser, const QStringList& arguments,
                                const QList<QCommandLineOption>& valued) {
  if (!parser.unknownOptionNames().isEmpty()) {
    const QString name = parser.unknownOptionNames().first();
    return Refused(AsTyped(arguments, name), "unknown option");
  }
  const QString last = arguments.size() > 1 ? arguments.last() : QString();
  for (const QCommandLineOption& option : valued) {
    const QString name = option.names().first();
    if (last == "--" + name || last == "-" + name)
      return Refused(last, option.valueName() == "DIR" ? "a folder is missing"
                                                       : "a port number is missing");
  }
  return {std::nullopt, parser.errorText().toStdString()};
}

}  // namespace

ParsedCommandLine ParseCommandLine(const QStringList& arguments, const std::string& defaultFolder) {
  QCommandLineParser parser;
  parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
  const QCommandLineOption headless("headless"), quiet("quiet"), check("check"), version("version"),
      help("help");
  const QCommandLineOption dir("dir", "", "DIR"), dnsPort("dns-port", "", "N"),
      dhcpPort("dhcp-port", "", "N");
  QCommandLineOption stallProbe("stall-probe");
  stallProbe.setFlags(QCommandLineOption::HiddenFromHelp);
  parser.addOptions({headless, quiet, check, version, help, dir, dnsPort, dhcpPort, stallProbe});
  if (!parser.parse(arguments)) return ParserRefusal(parser, arguments, {dir, dnsPort, dhcpPort});
  if (!parser.positionalArguments().isEmpty())
    return Refused(parser.positionalArguments().first(), "unexpected argument");

  CommandLine line;
  line.headless = parser.isSet(headless);
  line.quiet = parser.isSet(quiet);
  line.stallProbe = parser.isSet(stallProbe);
  if (parser.isSet(help)) line.action = CommandLine::Action::kHelp;
  else if (parser.isSet(version)) line.action = CommandLine::Action::kVersion;
  else if (parser.isSet(check)) line.action = CommandLine::Action::kCheck;

  for (const auto& [option, port] :
       {std::pair{&dnsPort, &line.dnsPort}, std::pair{&dhcpPort, &line.dhcpPort}}) {
    if (!parser.isSet(*option)) continue;
    const QString text = parser.value(*option);
    const QString typed = AsTyped(arguments, option->names().first());
    if (text.isEmpty()) return Refused(typed, "a port number is missing");
    std::optional<int> value = Port(text);
    if (!value) return Refused(typed, text.toStdString() + " is not a port");
    *port = *value;
  }

  line.folderGiven = parser.isSet(dir);
  std::string folder = line.folderGiven ? parser.value(dir).toStdString() : defaultFolder;
  if (folder.empty()) return Refused(AsTyped(arguments, "dir"), "a folder is missing");
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(folder, error);
  // The default may be a folder still to be made.
  if (error || (line.folderGiven && !std::filesystem::is_directory(path, error)))
    return Refused(AsTyped(arguments, "dir"), folder + " is not a folder");
  line.folder = path.lexically_normal().string();
  while (line.folder.size() > 1 && line.folder.back() == '/') line.folder.pop_back();
  return {line, ""};
}

const char* UsageText() {
  return "Usage: korvane [--headless] [--quiet] [--dir DIR] [--dns-port N] [--dhcp-port N]\n"
         "               [--check] [--version] [--help]\n"
         "  --headless      run without windows; every log line is also printed here\n"
         "                  (also when no display is available)\n"
         "  --quiet         print no log lines (the daily log files still get them)\n"
         "  --dir DIR       program folder (korvane.ini, named.perm, ...); default: the\n"
         "                  folder of the executable, but for an installed program\n"
         "                  $XDG_DATA_HOME/korvane (~/.local/share/korvane), made\n"
         "                  from the installed example on first use\n"
         "  --dns-port N    DNS service port (default 53)\n"
         "  --dhcp-port N   DHCP service port (default 67)\n"
         "  --check         load the program folder as a start does, open no socket,\n"
         "                  print every warning and what would keep the start from\n"
         "                  serving, and exit\n"
         "  --version       print the version and exit\n"
         "  --help          print this text and exit\n"
         "Signals: SIGINT and SIGTERM close in order (also while the files load),\n"
         "SIGHUP reads korvane.ini and the records again.\n"
         "Exit status: 0 clean; 1 a failed start, a failed save, or --check found a\n"
         "problem; 2 a bad command line.\n";
}

}  // namespace modMain

}  // namespace korvane
