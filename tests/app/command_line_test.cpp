#include "app/command_line.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/fakes.h"

using namespace korvane;

namespace {

using modMain::CommandLine;
using Action = CommandLine::Action;

struct Expected {
  Action action = Action::kRun;
  std::string folder = "{default}";
  int dnsPort = 53;
  int dhcpPort = 67;
  bool headless = false;
  bool quiet = false;
  bool stallProbe = false;
};

struct Case {
  std::vector<std::string> arguments;
  std::string error;  // "" when the command line is taken
  Expected expected = {};
};

TEST(CommandLine, TakesTheOptionsOrSaysWhichIsWrongAndWhy) {
  TempDir folder, other;
  const Case cases[] = {
      {{}, ""},
      {{"--headless", "--quiet"}, "", {.headless = true, .quiet = true}},
      {{"--stall-probe"}, "", {.stallProbe = true}},
      {{"--dir", "{dir}"}, "", {.folder = "{dir}"}},
      {{"--dir={dir}/"}, "", {.folder = "{dir}"}},
      {{"--dir", "{dir}/./"}, "", {.folder = "{dir}"}},
      {{"-dir", "{dir}", "--dir", "{other}"}, "", {.folder = "{other}"}},
      {{"--dns-port", "5353", "--dhcp-port=6767"}, "", {.dnsPort = 5353, .dhcpPort = 6767}},
      {{"--dns-port", "1"}, "", {.dnsPort = 1}},
      {{"--dns-port", "65535"}, "", {.dnsPort = 65535}},
      {{"--check", "--dir", "{dir}"}, "", {.action = Action::kCheck, .folder = "{dir}"}},
      {{"--version"}, "", {.action = Action::kVersion}},
      {{"--check", "--help", "--version"}, "", {.action = Action::kHelp}},
      {{"--dns-port", "99999"}, "--dns-port: 99999 is not a port"},
      {{"--dns-port", "0"}, "--dns-port: 0 is not a port"},
      {{"--dhcp-port=-67"}, "--dhcp-port: -67 is not a port"},
      {{"--dhcp-port", "+67"}, "--dhcp-port: +67 is not a port"},
      {{"--dns-port", "53x"}, "--dns-port: 53x is not a port"},
      {{"--dns-port="}, "--dns-port: a port number is missing"},
      {{"--dns-port"}, "--dns-port: a port number is missing"},
      {{"--headless", "--dir"}, "--dir: a folder is missing"},
      {{"--dir="}, "--dir: a folder is missing"},
      {{"--dir", "{dir}/none"}, "--dir: {dir}/none is not a folder"},
      {{"--dir", "{dir}/file"}, "--dir: {dir}/file is not a folder"},
      {{"--bogus"}, "--bogus: unknown option"},
      {{"--headless", "-x"}, "-x: unknown option"},
      {{"--headless=yes"}, "Unexpected value after '--headless'."},
      {{"run"}, "run: unexpected argument"},
  };
  folder.Write("file", "");
  auto fill = [&](std::string text) {
    for (const auto& [mark, value] :
         {std::pair{std::string("{dir}"), folder.path()}, std::pair{std::string("{other}"), other.path()},
          std::pair{std::string("{default}"), folder.path() + "/default"}}) {
      for (std::size_t at; (at = text.find(mark)) != std::string::npos;) text.replace(at, mark.size(), value);
    }
    return text;
  };
  std::filesystem::create_directory(folder.File("default"));
  for (const Case& c : cases) {
    QStringList arguments{"korvane"};
    std::string shown;
    for (const std::string& argument : c.arguments) {
      arguments << QString::fromStdString(fill(argument));
      shown += " " + argument;
    }
    modMain::ParsedCommandLine parsed = modMain::ParseCommandLine(arguments, fill("{default}"));
    EXPECT_EQ(parsed.error, fill(c.error)) << shown;
    ASSERT_EQ(parsed.commandLine.has_value(), c.error.empty()) << shown;
    if (!parsed.commandLine) continue;
    const CommandLine& line = *parsed.commandLine;
    EXPECT_EQ(line.action, c.expected.action) << shown;
    EXPECT_EQ(line.folder, fill(c.expected.folder)) << shown;
    EXPECT_EQ(line.dnsPort, c.expected.dnsPort) << shown;
    EXPECT_EQ(line.dhcpPort, c.expected.dhcpPort) << shown;
    EXPECT_EQ(line.headless, c.expected.headless) << shown;
    EXPECT_EQ(line.quiet, c.expected.quiet) << shown;
    EXPECT_EQ(line.stallProbe, c.expected.stallProbe) << shown;
  }
}

// The benchmark's probe is not advertised.
TEST(CommandLine, UsageLeavesTheStallProbeOut) {
  EXPECT_EQ(std::string(modMain::UsageText()).find("stall-probe"), std::string::npos);
}

}  // namespace
