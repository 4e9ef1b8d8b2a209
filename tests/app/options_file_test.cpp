#include "app/options_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

#include "store/options_form.h"
#include "support/fakes.h"

using namespace korvane;

namespace {

using modMain::LoadOptions;
using modMain::SaveOptions;

Options Defaults() { return Options{}; }

void ExpectSame(const Options& expected, const Options& actual) {
  EXPECT_EQ(expected.NAME, actual.NAME);
  EXPECT_EQ(expected.HOSTS, actual.HOSTS);
  EXPECT_EQ(expected.HOSTSTTL, actual.HOSTSTTL);
  EXPECT_EQ(expected.DNSBIND, actual.DNSBIND);
  EXPECT_EQ(expected.AUTOCNAME, actual.AUTOCNAME);
  EXPECT_EQ(expected.WRITELOG, actual.WRITELOG);
  EXPECT_EQ(expected.RECURSIONOUT, actual.RECURSIONOUT);
  EXPECT_EQ(expected.NS, actual.NS);
  EXPECT_EQ(expected.CACHETTL, actual.CACHETTL);
}

Options With(void (*change)(Options&)) {
  Options o;
  change(o);
  return o;
}

TEST(OptionsFile, ReadsEachKeyAsSpecified) {
  struct Case {
    const char* label;
    const char* file;
    Options expected;
  } cases[] = {
      {"empty_file_gives_defaults", "", Defaults()},
      {"lower_case_key_with_blanks", "  ns   :  10.0.0.1 \n", With([](Options& o) { o.NS = {"10.0.0.1"}; })},
      {"servers_in_file_order_bad_ones_skipped", "NS: 10.0.0.2\nNS: nonsense\nNS: 0.0.0.0\nNs: 10.0.0.1\n",
       With([](Options& o) { o.NS = {"10.0.0.2", "10.0.0.1"}; })},
      {"writelog_y", "writelog:y", With([](Options& o) { o.WRITELOG = true; })},
      {"writelog_no", "WriteLog: NO\n", Defaults()},
      {"booleans_without_colon_are_false", "AutoCNAME\nRecursionOut\n", Defaults()},
      {"all_booleans", "AutoCNAME: Yes\nRecursionOut: YES\nWriteLog: Yup\n",
       With([](Options& o) { o.AUTOCNAME = o.RECURSIONOUT = o.WRITELOG = true; })},
      {"leading_number_ttls", "HostsTTL: 600 seconds\nCacheTTL: 2.5\n",
       With([](Options& o) { o.HOSTSTTL = 600; o.CACHETTL = 2; })},
      {"ttl_without_number_is_zero", "HostsTTL: one hour\nCacheTTL:\n",
       With([](Options& o) { o.HOSTSTTL = 0; })},
      {"later_line_wins", "HostsTTL: 10\nHostsTTL: 20\nName: a\nName: b\n",
       With([](Options& o) { o.HOSTSTTL = 20; o.NAME = "b"; })},
      {"bad_bind_address_means_all", "DNSBind: nonsense\n", Defaults()},
      {"bind_address_normalised", "DNSBind: 192.168.001.010\n",
       With([](Options& o) { o.DNSBIND = "192.168.1.10"; })},
      {"name_cleaned", "Name:  My_Server.Example..COM. \n",
       With([](Options& o) { o.NAME = "myserver.example.com"; })},
      {"hosts_keeps_its_case", "HOSTS:  /etc/Hosts.Local  \n",
       With([](Options& o) { o.HOSTS = "/etc/Hosts.Local"; })},
      {"tabs_trimmed_as_blanks", "\tHOSTS \t:\t/etc/Hosts\t \n", With([](Options& o) { o.HOSTS = "/etc/Hosts"; })},
      {"hosts_value_after_first_colon", "Hosts: C:/x:y\n", With([](Options& o) { o.HOSTS = "C:/x:y"; })},
      {"crlf_lines", "WriteLog: YES\r\nNS: 1.2.3.4\r\nHostsTTL: 7\r\n",
       With([](Options& o) { o.WRITELOG = true; o.NS = {"1.2.3.4"}; o.HOSTSTTL = 7; })},
      {"unknown_keys_and_garbage_ignored", "Colour: blue\n:::\n\x01\xff\n\nNS\n", Defaults()}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    TempDir dir;
    dir.Write("korvane.ini", c.file);
    Options options;
    options.NS = {"9.9.9.9"};  // leftovers of an earlier load must go
    options.WRITELOG = true;
    options.CACHETTL = 99;
    RecordingErrorReporter errors;
    LoadOptions(dir.File("korvane.ini"), options, errors);
    ExpectSame(c.expected, options);
    EXPECT_TRUE(errors.errors.empty());
  }
}

// The lines korvane.ini's reader skips, or reads otherwise than they say.
TEST(OptionsFile, WarningsTable) {
  struct Case {
    const char* label;
    const char* file;
    std::vector<std::string> log;  // the summary last
  } cases[] = {
      {"clean", "Name: ns.example.com\nHostsTTL: 3600\n\n; a comment\n# another\n",
       {"korvane.ini: 2 settings"}},
      {"unknown setting and no colon", "Colour: blue\nRecursionOut: YES\nNSS 10.0.0.1\n",
       {"korvane.ini:1: unknown setting Colour, line skipped", "korvane.ini:3: no ':', line skipped",
        "korvane.ini: 1 setting, 2 lines skipped"}},
      {"numbers that are none", "HostsTTL: one hour\nCacheTTL:\nCacheTTL: -5\n",
       {"korvane.ini:1: HostsTTL: one hour is not a number, read as 0",
        "korvane.ini:2: CacheTTL: is not a number, read as 0", "korvane.ini: 3 settings, 2 lines cut"}},
      {"switches that are not yes or no", "WriteLog: true\nAutoCNAME: no\nRecursionOut: on\n",
       {"korvane.ini:1: WriteLog: true is read as NO (only a value that begins with Y is YES)",
        "korvane.ini:3: RecursionOut: on is read as NO (only a value that begins with Y is YES)",
        "korvane.ini: 3 settings, 2 lines cut"}},
      {"addresses", "DNSBind: nonsense\nNS: 10.0.0.300\nNS: 0.0.0.0\nNS: 10.1\n",
       {"korvane.ini:1: DNSBind: nonsense is not an address, the DNS service listens on all addresses",
        "korvane.ini:2: NS: 10.0.0.300 is not an IPv4 address, read as 10.0.0.255",
        "korvane.ini:3: NS: 0.0.0.0 is not an address, server left out",
        "korvane.ini:4: NS: 10.1 is not an IPv4 address, read as 10.1.0.0", "korvane.ini: 4 settings, 4 lines cut"}},
      {"the resolver's settings", "CacheSize: lots\nRecursionFrom: 10.0.0.0/8, office any\nForwardBareNames: 1\n",
       {"korvane.ini:1: CacheSize: lots is not a number, read as 0",
        "korvane.ini:2: office is not a network (a.b.c.d/n or any), left out",
        "korvane.ini:3: ForwardBareNames: 1 is read as NO (only a value that begins with Y is YES)",
        "korvane.ini: 3 settings, 3 lines cut"}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    TempDir dir;
    dir.Write("korvane.ini", c.file);
    Options options;
    RecordingErrorReporter errors;
    RecordingLog log;
    EXPECT_EQ(LoadOptions(dir.File("korvane.ini"), options, errors, &log), static_cast<int>(c.log.size()) - 1);
    EXPECT_EQ(log.lines, c.log);
  }
}

TEST(OptionsFile, UnreadableFileKeepsDefaultsAndIsReportedWithItsPathAndReason) {
  TempDir dir;
  std::filesystem::create_directory(dir.File("folder"));
  struct Case {
    std::string path;
    int number;
    std::string description;
  } cases[] = {{dir.File("korvane.ini"), ErrorNumber::kFileNotFound, "File not found"},
               {dir.File("folder"), ErrorNumber::kDeviceIO, "Is a directory"}};
  for (const Case& c : cases) {
    Options options;
    options.NAME = "stale";
    options.NS = {"1.1.1.1"};
    RecordingErrorReporter errors;
    LoadOptions(c.path, options, errors);
    ExpectSame(Defaults(), options);
    ASSERT_EQ(errors.errors.size(), 1u) << c.path;
    EXPECT_EQ(errors.errors[0].tag, "modMain LoadOptions");
    EXPECT_EQ(errors.errors[0].additional, c.path);
    EXPECT_EQ(errors.errors[0].number, c.number);
    EXPECT_EQ(errors.errors[0].description, c.description);
  }
}

TEST(OptionsFile, LeadingNumberTable) {
  struct Case {
    const char* text;
    int32_t value;
  } cases[] = {
      {"", 0},         {"ABC", 0},     {"12", 12},     {"12.5", 12},   {"13.5", 14},
      {"0.6", 1},      {".5", 0},      {"-7X", -7},    {"+5", 5},      {"1E3", 1000},
      {"5E", 5},       {"2E-1", 0},    {".", 0},       {"-", 0},       {"3600ABC", 3600},
      {"99999999999", std::numeric_limits<int32_t>::max()},
      {"-99999999999", std::numeric_limits<int32_t>::min()},
      {"1E999", std::numeric_limits<int32_t>::max()},
  };
  for (const Case& c : cases) EXPECT_EQ(modMain::LeadingNumber(c.text), c.value) << c.text;
}

TEST(OptionsFile, WritesEveryLineInOrder) {
  Options options;
  options.NAME = "ns.example.com";
  options.HOSTS = "/etc/Hosts";
  options.HOSTSTTL = 7200;
  options.DNSBIND = "192.168.1.1";
  options.AUTOCNAME = true;
  options.WRITELOG = true;
  options.CACHETTL = 60;
  options.RECURSIONOUT = true;
  options.NS = {"10.0.0.1", "10.0.0.2"};
  TempDir dir;
  ASSERT_TRUE(SaveOptions(dir.File("korvane.ini"), options));
  EXPECT_EQ(dir.Read("korvane.ini"),
            "Name: ns.example.com\n"
            "Hosts: /etc/Hosts\n"
            "HostsTTL: 7200\n"
            "DNSBind: 192.168.1.1\n"
            "AutoCNAME: YES\n"
            "WriteLog: YES\n"
            "CacheTTL: 60\n"
            "RecursionOut: YES\n"
            "NS: 10.0.0.1\n"
            "NS: 10.0.0.2\n");

  Options back;
  RecordingErrorReporter errors;
  LoadOptions(dir.File("korvane.ini"), back, errors);
  ExpectSame(options, back);
}

TEST(OptionsFile, DefaultsWriteOnlyTheHostsTTLLineAndAMissingFolderFails) {
  TempDir dir;
  ASSERT_TRUE(SaveOptions(dir.File("korvane.ini"), Options{}));
  EXPECT_EQ(dir.Read("korvane.ini"), "HostsTTL: 3600\n");
  EXPECT_FALSE(SaveOptions(dir.File("no/such/korvane.ini"), Options{}));
}

// Whatever is typed into the options dialog, the file it makes reads back
// as the options it was made from.
TEST(OptionsFile, HostileDialogFieldsReadBackUnchanged) {
  struct Case {
    const char* label;
    void (*fill)(modMain::OptionsForm&);
  } cases[] = {
      {"line breaks try to add settings",
       [](modMain::OptionsForm& f) {
         f.name = "ns\nNS: 6.6.6.6";
         f.hosts = "/etc/hosts\nRecursionOut: YES\r\nNS: 6.6.6.6\r";
         f.bind = "127.0.0.1\nDNSBind: 6.6.6.6";
         f.servers = {"10.0.0.1\nWriteLog: YES", "\r\n"};
       }},
      {"blanks, tabs and control characters around the path",
       [](modMain::OptionsForm& f) { f.hosts = std::string("\t \x01/srv/My Hosts\0 \t", 19); }},
      {"colons and key-like text in the path",
       [](modMain::OptionsForm& f) { f.hosts = "NS: 1.2.3.4:Hosts: /x"; }},
      {"a path that is only blanks", [](modMain::OptionsForm& f) { f.hosts = " \t "; }},
      {"non-ASCII everywhere",
       [](modMain::OptionsForm& f) {
         f.name = "s\xc3\xa9rveur.example";
         f.hosts = "/tmp/h\xc3\xb6sts \xe2\x80\x8b";
         f.bind = "\xef\xbc\x91.2.3.4";
       }},
      {"names that clean to nothing or to dots",
       [](modMain::OptionsForm& f) { f.name = " ..._.. "; }},
      {"addresses out of range and half written",
       [](modMain::OptionsForm& f) {
         f.bind = "999.1.1.1";
         f.servers = {"1.2.3", "-1.-2.-3.-4", "1e3.1.1.1", "0.0.0.0", "nonsense", "10.0.0.1", "10.0.0.1"};
       }},
      {"TTLs at and beyond the ends",
       [](modMain::OptionsForm& f) {
         f.hostsTTL = std::numeric_limits<int32_t>::max();
         f.cacheTTL = std::numeric_limits<int32_t>::min();
       }},
      {"negative host TTL and the smallest cache time",
       [](modMain::OptionsForm& f) {
         f.hostsTTL = -1;
         f.cacheTTL = 1;
       }},
      {"every switch on", [](modMain::OptionsForm& f) { f.autoCNAME = f.writeLog = f.recursionOut = true; }},
      {"a very long path",
       [](modMain::OptionsForm& f) { f.hosts = "/" + std::string(100000, 'x'); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    modMain::OptionsForm form;
    c.fill(form);
    Options made = modMain::OptionsFromForm(Options{}, form);
    TempDir dir;
    ASSERT_TRUE(SaveOptions(dir.File("korvane.ini"), made));
    Options back;
    RecordingErrorReporter errors;
    LoadOptions(dir.File("korvane.ini"), back, errors);
    ExpectSame(made, back);
    // Opened again and closed with OK, the dialog changes nothing.
    ExpectSame(made, modMain::OptionsFromForm(back, modMain::FormFromOptions(back)));
    EXPECT_TRUE(errors.errors.empty());
    for (const std::string& server : made.NS) EXPECT_NE(server, "6.6.6.6");
  }
}

}  // namespace
