#include "app/command_line.h"

#include <gtest/gtest.h>

#include <string>

using namespace korvane;

namespace {

modMain::ParseResult Parse(std::initializer_list<const char*> words) {
  QStringList arguments{"korvane"};
  for (const char* word : words) arguments << word;
  return modMain::ParseCommandLine(arguments);
}

TEST(CommandLine, OptionsAndTheirValues) {
  modMain::ParseResult none = Parse({});
  ASSERT_FALSE(none.exitCode);
  EXPECT_FALSE(none.line.headless);
  EXPECT_EQ(none.line.dnsPort, 53);
  EXPECT_EQ(none.line.dhcpPort, 67);
  EXPECT_EQ(none.line.folder, "");

  modMain::ParseResult all = Parse({"--headless", "--quiet", "--dir", "/tmp/x", "--dns-port",
                                    "5353", "--dhcp-port=6767", "--stall-probe"});
  ASSERT_FALSE(all.exitCode) << all.output;
  EXPECT_TRUE(all.line.headless);
  EXPECT_TRUE(all.line.quiet);
  EXPECT_TRUE(all.line.stallProbe);
  EXPECT_EQ(all.line.folder, "/tmp/x");
  EXPECT_EQ(all.line.dnsPort, 5353);
  EXPECT_EQ(all.line.dhcpPort, 6767);
}

TEST(CommandLine, HelpAndVersionEndAtOnceOnStandardOutput) {
  for (const char* word : {"--help", "--version"}) {
    modMain::ParseResult result = Parse({word});
    ASSERT_TRUE(result.exitCode) << word;
    EXPECT_EQ(*result.exitCode, 0);
    EXPECT_FALSE(result.toStandardError);
  }
  EXPECT_TRUE(Parse({"--version"}).output.starts_with("Korvane 1."));
  EXPECT_TRUE(Parse({"--help"}).output.starts_with("Usage: korvane"));
  // The benchmark's probe is not advertised.
  EXPECT_EQ(Parse({"--help"}).output.find("stall"), std::string::npos);
}

TEST(CommandLine, AUsageErrorNamesWhatWasWrongAndExitsWith2) {
  struct Case {
    std::initializer_list<const char*> words;
    const char* named;
  } cases[] = {
      {{"--bogus"}, "bogus"},
      {{"--dns-port"}, "dns-port"},
      {{"--dns-port", "0"}, "'0'"},
      {{"--dns-port", "65536"}, "'65536'"},
      {{"--dhcp-port", "67x"}, "'67x'"},
      {{"--dhcp-port", "-1"}, "dhcp-port"},
      {{"--dir", ""}, "--dir"},
      {{"stray"}, "'stray'"},
  };
  for (const Case& c : cases) {
    modMain::ParseResult result = Parse(c.words);
    SCOPED_TRACE(*c.words.begin());
    ASSERT_TRUE(result.exitCode);
    EXPECT_EQ(*result.exitCode, 2);
    EXPECT_TRUE(result.toStandardError);
    EXPECT_TRUE(result.output.starts_with("korvane: ")) << result.output;
    EXPECT_NE(result.output.find(c.named), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("Usage: korvane"), std::string::npos);
  }
}

}  // namespace
