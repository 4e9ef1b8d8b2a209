#include "app/support_report.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "app/prompt_recorders.h"
#include "support/fakes.h"

using namespace korvane;

namespace {

using modMain::Log;
using modMain::SupportReporter;
using modMain::SystemFacts;

constexpr DateTime kNow = 1777636800;        // 2026-05-01 12:00:00 UTC
constexpr DateTime kInstalled = 1767225600;  // 2026-01-01 00:00:00 UTC

std::string Version() {
  char text[32];
  std::snprintf(text, sizeof text, "%d.%02d.%02d", KORVANE_VERSION_MAJOR, KORVANE_VERSION_MINOR,
                KORVANE_VERSION_PATCH);
  return text;
}

std::string CrLf(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\r\n";
  return text;
}

// "File: path", its underline, the lines and the empty line after them.
std::vector<std::string> FileSection(const std::string& path, std::vector<std::string> lines) {
  std::string title = "File: " + path;
  lines.insert(lines.begin(), {title, std::string(title.size(), '-')});
  lines.push_back("");
  return lines;
}

void ExpectBox(const ShownBox& box, MessageButtons buttons, MessageIcon icon, const std::string& text) {
  EXPECT_EQ(box.buttons, buttons);
  EXPECT_EQ(box.icon, icon);
  EXPECT_EQ(box.text, text);
}

std::string ErrorHead(const std::string& error, const std::string& module) {
  return "An error has occured in Korvane!\n\nError: " + error + "\nModule: " + module + "\n\n";
}

class SupportReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    reporter.SetSystemFactsSource([] {
      SystemFacts facts;
      facts.version = "6.1.0-test";
      facts.build = "Test Linux 12";
      return facts;
    });
  }
  // The folder's time is read when the report is made; set it after the
  // files are in place.
  void Install() { dir.SetModified(".", kInstalled); }

  // The lines of `section` (from its heading to the empty line after it).
  std::vector<std::string> Section(const std::string& heading) {
    std::string text = dir.Read("support.txt");
    std::vector<std::string> lines;
    size_t at = text.find(heading + "\r\n");
    if (at == std::string::npos) return lines;
    while (true) {
      size_t end = text.find("\r\n", at);
      std::string line = text.substr(at, end - at);
      if (line.empty()) break;
      lines.push_back(line);
      at = end + 2;
    }
    return lines;
  }

  std::string Where() const {
    return "A support file containing information about your\nsystem and configuration was created as\n'" +
           dir.path() + "/support.txt'\n\n";
  }

  TempDir dir;
  FakeClock clock{kNow};
  Options options;
  Log log{clock, options, dir.path()};
  RecordingBoxes boxes;
  RecordingEditor editor;
  HeldPrompts prompts;
  SupportReporter reporter{dir.path(), "korvane", options, clock, log, boxes, editor, prompts};
};

TEST_F(SupportReportTest, WholeReportWithErrorSection) {
  dir.Write("korvane.ini", "Name: ns.example.com\r\nNS: 10.0.0.1\r\n");
  dir.Write("named.perm", "example.com. NS ns.example.com.\n\nlast line without end");
  dir.Write("hosts", "127.0.0.1 localhost\n");
  options.HOSTS = dir.File("hosts");
  log.AddLine("DNS service started.");
  clock.Advance(1);
  log.AddLine("Request from 10.0.0.5");
  Install();

  reporter.Report("modDNS ProcReq", "while decoding", 6, "Overflow");

  const std::string folder = dir.path();
  std::vector<std::string> expected = {
      "Korvane - Support Info", "------------------------------", "",
      "Error Description", "-----------------", "Number     : 6", "Description: Overflow",
      "Module     : modDNS ProcReq", "Additional : while decoding", "",
      "Application Information", "-----------------------", "Path      : " + folder + "/korvane",
      "Version   : " + Version(), "Installed : 2026-01-01 00:00:00", "",
      "System Information", "------------------", "OS Platform: Linux", "OS Version : 6.1.0-test",
      "OS Build   : Test Linux 12", "Date/Time  : 2026-05-01 12:00:01", "",
      "Recent Log Entries", "------------------", "2026-05-01 12:00:00  DNS service started.",
      "2026-05-01 12:00:01  Request from 10.0.0.5", ""};
  for (const auto& section :
       {FileSection(folder + "/korvane.ini", {"Name: ns.example.com", "NS: 10.0.0.1"}),
        FileSection(folder + "/named.perm", {"example.com. NS ns.example.com.", "", "last line without end"}),
        FileSection(folder + "/named.root", {"** Error opening file!"}),
        FileSection(folder + "/hosts", {"127.0.0.1 localhost"})})
    expected.insert(expected.end(), section.begin(), section.end());
  EXPECT_EQ(dir.Read("support.txt"), CrLf(expected));
}

TEST_F(SupportReportTest, ErrorBoxTellsWhereTheReportIsAndYesOpensIt) {
  boxes.answer = MessageAnswer::Yes;
  reporter.Report("modMain LoadOptions", "", 53, "File not found");
  // The report is there at once; the box waits until the caller has returned.
  EXPECT_NE(dir.Read("support.txt").find("Module     : modMain LoadOptions\r\n"), std::string::npos);
  EXPECT_TRUE(boxes.shown.empty());
  EXPECT_TRUE(reporter.BoxPending());
  EXPECT_EQ(prompts.RunAll(), 1);
  EXPECT_FALSE(reporter.BoxPending());
  ASSERT_EQ(boxes.shown.size(), 1u);
  ExpectBox(boxes.shown[0], MessageButtons::YesNo, MessageIcon::Critical,
            ErrorHead("53 File not found", "modMain LoadOptions") + Where() +
                "Please e-mail this file to support@korvane.example and\n"
                "state any other information you think may be useful.\n\n"
                "Review the support file with text editor now ?");
  EXPECT_TRUE(boxes.shown[0].topmost);
  EXPECT_EQ(editor.opened, (std::vector<std::string>{dir.File("support.txt")}));
}

TEST_F(SupportReportTest, NoLeavesTheEditorClosedAndEmptyTagHasNoModuleLine) {
  reporter.Report("", "", 7, "Out of memory");
  prompts.RunAll();
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_TRUE(boxes.shown[0].text.starts_with("An error has occured in Korvane!\n\nError: 7 Out of memory\n\n" + Where()));
  EXPECT_TRUE(editor.opened.empty());
}

TEST_F(SupportReportTest, LogSectionCarriesTheLast50Lines) {
  for (int i = 1; i <= 120; ++i) log.AddLine("line " + std::to_string(i));
  reporter.Report("t", "", 5, "Invalid procedure call or argument");
  std::vector<std::string> section = Section("Recent Log Entries");
  ASSERT_EQ(section.size(), 52u);
  EXPECT_EQ(section[2], "2026-05-01 12:00:00  line 71");
  EXPECT_EQ(section[51], "2026-05-01 12:00:00  line 120");
}

TEST_F(SupportReportTest, MenuDumpHasNoErrorSectionAndAsksToOpen) {
  log.AddLine("gone");
  log.ClearWindow();
  boxes.answer = MessageAnswer::Yes;
  reporter.MenuDump();
  std::string text = dir.Read("support.txt");
  EXPECT_TRUE(text.starts_with(CrLf({"Korvane - Support Info", "------------------------------",
                                     "", "Application Information"})));
  EXPECT_EQ(text.find("Error Description"), std::string::npos);
  EXPECT_EQ(Section("Recent Log Entries"),
            (std::vector<std::string>{"Recent Log Entries", "------------------", "** No log entries!"}));
  // An empty hosts path is a file that cannot be opened.
  EXPECT_TRUE(text.ends_with(CrLf(FileSection("", {"** Error opening file!"})))) << text;
  ASSERT_EQ(boxes.shown.size(), 1u);
  ExpectBox(boxes.shown[0], MessageButtons::YesNo, MessageIcon::Question,
            Where() +
                "E-Mail this file to support@korvane.example and\n"
                "state your question, suggestion or problem.\n\n"
                "Review the support file with text editor now ?");
  EXPECT_EQ(editor.opened, (std::vector<std::string>{dir.File("support.txt")}));
}

TEST_F(SupportReportTest, ErrorsWhileTheBoxIsPostedOrOpenOnlyRewriteTheReport) {
  boxes.whileOpen = [this] {
    boxes.whileOpen = nullptr;
    reporter.Report("clDNSReq Check", "", 6, "Overflow");
    reporter.Report("frmMain Timer", "", 51, "Internal error");
    reporter.MenuDump();
  };
  reporter.Report("modDNS ProcReq", "", 5, "Invalid procedure call or argument");
  reporter.Report("modDNS ProcAns", "", 51, "Internal error");  // while posted
  EXPECT_NE(dir.Read("support.txt").find("Module     : modDNS ProcAns\r\n"), std::string::npos);
  EXPECT_EQ(prompts.RunAll(), 1);
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_NE(boxes.shown[0].text.find("modDNS ProcReq"), std::string::npos);
  // The menu's report was the last one written.
  EXPECT_EQ(dir.Read("support.txt").find("Error Description"), std::string::npos);

  reporter.Report("modDNS ProcAns", "", 6, "Overflow");  // the box is closed again
  prompts.RunAll();
  EXPECT_EQ(boxes.shown.size(), 2u);
}

TEST_F(SupportReportTest, TheSameFaultWithinAMinuteIsReportedOnce) {
  auto report = [this](const char* additional, int number, const char* description) {
    reporter.Report("modDNS ExtractName", additional, number, description);
    prompts.RunAll();
  };
  report("first", 28, "Out of stack space");
  report("second", 28, "Out of stack space");
  report("other number", 6, "Overflow");
  EXPECT_EQ(boxes.shown.size(), 2u);
  EXPECT_NE(dir.Read("support.txt").find("Additional : other number\r\n"), std::string::npos);
  clock.Advance(SupportReporter::kRepeatSeconds);
  report("later", 28, "Out of stack space");
  EXPECT_EQ(boxes.shown.size(), 3u);
  EXPECT_NE(dir.Read("support.txt").find("Additional : later\r\n"), std::string::npos);
}

TEST_F(SupportReportTest, ReportThatCannotBeCreatedAsksToMailTheError) {
  TempDir other;
  SupportReporter lost(other.File("missing"), "korvane", options, clock, log, boxes, editor, prompts);
  lost.Report("modMain AddLine", "", 57, "Device I/O error");
  prompts.RunAll();
  ASSERT_EQ(boxes.shown.size(), 1u);
  const std::string mail = "Please e-mail support@korvane.example and state\n"
                           "the above error information along with any\n"
                           "other information you think may be useful.";
  ExpectBox(boxes.shown[0], MessageButtons::OK, MessageIcon::Critical,
            ErrorHead("57 Device I/O error", "modMain AddLine") + mail);
  EXPECT_TRUE(boxes.shown[0].topmost);
  EXPECT_TRUE(editor.opened.empty());

  // From the menu both boxes come in place: what to mail, then the question.
  boxes.answer = MessageAnswer::Yes;
  lost.MenuDump();
  EXPECT_TRUE(prompts.held.empty());
  ASSERT_EQ(boxes.shown.size(), 3u);
  EXPECT_EQ(boxes.shown[1].text, "An error has occured in Korvane!\n\nError: 0 \n\n" + mail);
  EXPECT_EQ(boxes.shown[2].icon, MessageIcon::Question);
  EXPECT_EQ(editor.opened.size(), 1u);
}

TEST_F(SupportReportTest, FailedFactsEndTheirSections) {
  SupportReporter lost(dir.File("missing"), "korvane", options, clock, log, boxes, editor, prompts);
  lost.SetSystemFactsSource([] { return SystemFacts{}; });
  std::string text = lost.ReportText("", "", 0, "");
  EXPECT_NE(text.find(CrLf({"Version   : " + Version(), "** Error getting Application info!", "",
                            "System Information", "------------------", "OS Platform: Linux",
                            "** Error getting system info!", "", "Recent Log Entries"})),
            std::string::npos)
      << text;
}

TEST(SystemFacts, DistributionNameFromOsRelease) {
  struct Case {
    const char* text;
    std::optional<std::string> name;
  } cases[] = {
      {"NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n",
       "Debian GNU/Linux 12 (bookworm)"},
      {"NAME=Arch\nVERSION='rolling'\n", "Arch rolling"},
      {"NAME=Plain\n", "Plain"},
      {"PRETTY_NAME=\"Quote \\\"me\\\"\"\r\n", "Quote \"me\""},
      {"ID=nothing\n", std::nullopt},
      {"", std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(modMain::DistributionName(c.text), c.name) << c.text;
}

TEST(SystemFacts, ThisMachineHasAKernelRelease) {
  SystemFacts facts = modMain::ReadSystemFacts();
  ASSERT_TRUE(facts.version.has_value());
  EXPECT_FALSE(facts.version->empty());
  EXPECT_EQ(facts.platform, "Linux");
}

}  // namespace
