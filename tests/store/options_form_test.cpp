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
