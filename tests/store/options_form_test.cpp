#include "store/options_form.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace korvane;

namespace {

using namespace modMain;
using Strings = std::vector<std::string>;

const std::string kNameMessage = "Please enter server name!";
const std::string kServerMessage =
    "Please add at least one external DNS server\nIP Address to use external record resolution!";

OptionsForm Form(const std::string& name, bool recursionOut, Strings servers) {
  OptionsForm form;
  form.name = name;
  form.recursionOut = recursionOut;
  form.servers = std::move(servers);
  return form;
}

TEST(OptionsForm, ChecksInOrderWithTheirFields) {
  struct Case {
    const char* label;
    OptionsForm form;
    std::string message;
    OptionsField focus;
  } cases[] = {
      {"name and no recursion", Form("ns.example.test", false, {}), "", OptionsField::kNone},
      {"recursion with a server", Form("ns.example.test", true, {"10.0.0.1"}), "", OptionsField::kNone},
      {"no name", Form("", false, {}), kNameMessage, OptionsField::kName},
      {"a name that cleans to nothing", Form(" _!.. ", false, {}), kNameMessage, OptionsField::kName},
      {"the name comes first", Form("", true, {}), kNameMessage, OptionsField::kName},
      {"recursion without servers", Form("ns", true, {}), kServerMessage, OptionsField::kAdd},
      {"recursion with unreadable servers only", Form("ns", true, {"", "nonsense", "0.0.0.0"}),
       kServerMessage, OptionsField::kAdd},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    OptionsCheck check = ValidateOptions(c.form);
    EXPECT_EQ(check.message, c.message);
    EXPECT_EQ(check.focus, c.focus);
    EXPECT_EQ(check.ok(), c.message.empty());
  }
}

TEST(OptionsForm, OptionsTheFormMakes) {
  Options current;
  current.HOSTSTTL = 5;
  current.NS = {"9.9.9.9"};
  OptionsForm form = Form("  My_Server.Example..COM. ", true, {"10.0.0.1", "", "junk", " 010.0.0.002 "});
  form.hosts = " \t/etc/hosts.local\t ";
  form.hostsTTL = -5;
  form.bind = "127.000.000.002";
  form.autoCNAME = true;
  form.cacheTTL = 300;
  form.writeLog = true;
  Options made = OptionsFromForm(current, form);
  EXPECT_EQ(made.NAME, "myserver.example.com");
  EXPECT_EQ(made.HOSTS, "/etc/hosts.local");
  EXPECT_EQ(made.HOSTSTTL, 0);
  EXPECT_EQ(made.DNSBIND, "127.0.0.2");
  EXPECT_TRUE(made.AUTOCNAME && made.WRITELOG && made.RECURSIONOUT);
  EXPECT_EQ(made.CACHETTL, 300);
  EXPECT_EQ(made.NS, (Strings{"10.0.0.1", "10.0.0.2"}));

  // Untouched fields give the options back as they were.
  current.NAME = "ns.example.test";
  current.DNSBIND = "192.168.1.1";
  EXPECT_EQ(OptionsFromForm(current, FormFromOptions(current)).NS, current.NS);
  OptionsForm again = FormFromOptions(OptionsFromForm(current, FormFromOptions(current)));
  EXPECT_EQ(again.name, "ns.example.test");
  EXPECT_EQ(again.bind, "192.168.1.1");
  EXPECT_EQ(again.hostsTTL, 5);
}

TEST(OptionsForm, HostsPathsLoseControlCharactersAndOuterBlanks) {
  struct Case {
    std::string typed, path;
  } cases[] = {
      {"/etc/hosts", "/etc/hosts"},
      {"  /srv/My Hosts  ", "/srv/My Hosts"},
      {"/etc/hosts\nNS: 6.6.6.6", "/etc/hostsNS: 6.6.6.6"},
      {std::string("/a\0b\r\x7f\x1b", 7), "/ab"},
      {"\t \r\n", ""},
      {"/tmp/h\xc3\xb6sts", "/tmp/h\xc3\xb6sts"},
  };
  for (const Case& c : cases) EXPECT_EQ(CleanHostsPath(c.typed), c.path) << c.typed;
}

TEST(OptionsForm, AddingServers) {
  Strings servers{"10.0.0.1"};
  struct Case {
    const char* typed;
    bool added;
  } cases[] = {
      {"10.0.0.2", true},   {" 010.000.000.002", false},  // the same address once cleaned
      {"10.0.0.1", false},  {"", false},
      {"nonsense", false},  {"0.0.0.0", false},
      {"300.1.2.3", true},  // read as 255.1.2.3, as everywhere else
  };
  for (const Case& c : cases) EXPECT_EQ(AddServer(servers, c.typed), c.added) << c.typed;
  EXPECT_EQ(servers, (Strings{"10.0.0.1", "10.0.0.2", "255.1.2.3"}));
}

TEST(OptionsForm, BindChoicesAndWhereTheBrowserStarts) {
  EXPECT_EQ(BindChoices({}), (Strings{"", "127.0.0.1"}));
  EXPECT_EQ(BindChoices({"192.168.1.2", "10.0.0.1"}), (Strings{"", "192.168.1.2", "10.0.0.1", "127.0.0.1"}));
  struct Case {
    const char* path;
    const char* folder;
    const char* file;
  } cases[] = {
      {"/etc/hosts", "/etc", "hosts"}, {"/hosts", "/", "hosts"}, {"/srv/dns/", "/srv/dns", ""},
      {"hosts", "", ""},              {"", "", ""},             {"a/b/c.txt", "a/b", "c.txt"},
  };
  for (const Case& c : cases) {
    BrowseStart start = HostsBrowseStart(c.path);
    EXPECT_EQ(start.folder, c.folder) << c.path;
    EXPECT_EQ(start.file, c.file) << c.path;
  }
}

}  // namespace
