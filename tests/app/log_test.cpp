#include "app/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "support/fakes.h"

using namespace korvane;

namespace {

using modMain::Log;
using modMain::LogWindowChange;

using Lines = std::vector<std::string>;

constexpr DateTime kLastSecondOfDay = 1794873599;  // 2026-11-16 23:59:59 UTC
const std::string kStamp = "2026-11-16 23:59:59  ";

Lines Window(const Log& log) { return Lines(log.ListDNS().begin(), log.ListDNS().end()); }

std::string Stamped(std::initializer_list<const char*> texts, const char* end) {
  std::string out;
  for (const char* text : texts) out += kStamp + text + end;
  return out;
}

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
  TempDir dir;
  FakeClock clock{kLastSecondOfDay};
  Options options;
};

TEST_F(LogTest, StampFollowsTheClockAcrossSecondsAndMidnight) {
  Log log(clock, options, dir.path());
  for (const auto& [at, text] : {std::pair{0.2, "a"}, {0.9, "b"}, {1.0, "c"}, {3661.5, "d"}, {-86400.0, "e"}}) {
    clock.Set(kLastSecondOfDay + at);  // the last is a clock set back a day
    log.AddLine(text);
  }
  EXPECT_EQ(Window(log), (Lines{kStamp + "a", kStamp + "b", "2026-11-17 00:00:00  c", "2026-11-17 01:01:00  d",
                                "2026-11-15 23:59:59  e"}));
}

TEST_F(LogTest, WindowKeepsTheNewest300LinesAndAnnouncesEachStep) {
  Log log(clock, options, dir.path());
  for (int i = 1; i <= 300; ++i) log.AddLine("line " + std::to_string(i));
  std::vector<LogWindowChange> seen;
  std::vector<size_t> sizes;
  log.SetWindowCallback([&](LogWindowChange change) {
    seen.push_back(change);
    sizes.push_back(log.ListDNS().size());
  });
  log.AddLine("line 301");
  ASSERT_EQ(log.ListDNS().size(), 300u);
  EXPECT_EQ(log.ListDNS().front(), kStamp + "line 2");
  EXPECT_EQ(log.ListDNS().back(), kStamp + "line 301");
  log.ClearWindow();
  EXPECT_EQ(seen, (std::vector<LogWindowChange>{
                      LogWindowChange::kAboutToRemoveFirst, LogWindowChange::kFirstRemoved,
                      LogWindowChange::kAboutToAppend, LogWindowChange::kAppended,
                      LogWindowChange::kAboutToClear, LogWindowChange::kCleared}));
  EXPECT_EQ(sizes, (std::vector<size_t>{300, 299, 299, 300, 300, 0}));
}

TEST_F(LogTest, FirstLineCreatesTheFolderAndTheDayFileWithCrLf) {
  options.WRITELOG = true;
  {
    Log log(clock, options, dir.path());
    log.AddLine("first");
    EXPECT_EQ(log.LogDate(), "20261116");
    log.AddLine("second");
    log.Flush();
    EXPECT_EQ(dir.Read("logs/20261116.log"), Stamped({"first", "second"}, "\r\n"));
    log.AddLine("third\r\n2026-11-16 00:00:00  forged\x7f");
  }  // closing writes what is still buffered
  EXPECT_EQ(dir.Read("logs/20261116.log"),
            Stamped({"first", "second", "third??2026-11-16 00:00:00  forged?"}, "\r\n"));
  EXPECT_TRUE(options.WRITELOG);
}

TEST_F(LogTest, ExistingDayFileIsAppendedToAndMidnightOpensTheNextDaysFile) {
  options.WRITELOG = true;
  std::filesystem::create_directory(dir.File("logs"));
  dir.Write("logs/20261116.log", "earlier\r\n");
  Log log(clock, options, dir.path());
  log.AddLine("before midnight");
  clock.Advance(1);
  log.AddLine("after midnight");
  EXPECT_EQ(log.LogDate(), "20261117");
  log.CloseFile();
  EXPECT_EQ(log.LogDate(), "");
  EXPECT_EQ(dir.Read("logs/20261116.log"), "earlier\r\n" + kStamp + "before midnight\r\n");
  EXPECT_EQ(dir.Read("logs/20261117.log"), "2026-11-17 00:00:00  after midnight\r\n");
}

TEST_F(LogTest, UnusableLogsFolderSwitchesFilesOffWithOneLine) {
  options.WRITELOG = true;
  dir.Write("logs", "a file where the folder should be");
  RecordingErrorReporter errors;
  Log log(clock, options, dir.path());
  log.SetErrorReporter(&errors);
  log.AddLine("one");
  log.AddLine("two");
  EXPECT_EQ(Window(log), (Lines{kStamp + "one", kStamp + "Error opening log file!", kStamp + "two"}));
  EXPECT_FALSE(options.WRITELOG);
  EXPECT_EQ(log.LogDate(), "");
  EXPECT_TRUE(errors.errors.empty());
  EXPECT_EQ(dir.Read("logs"), "a file where the folder should be");
}

// A reporter that logs while it reports, as a window's event loop may.
class LoggingReporter : public ErrorReporter {
 public:
  explicit LoggingReporter(Log*& log) : log_(log) {}
  void Report(const std::string& tag, const std::string&, int number,
              const std::string&) override {
    reports.push_back(tag + " " + std::to_string(number));
    log_->AddLine("logged while reporting");
    log_->Flush();
  }
  std::vector<std::string> reports;

 private:
  Log*& log_;
};

TEST_F(LogTest, WriteFailureIsReportedOnceAndStopsTheFiles) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full to fail writes";
  options.WRITELOG = true;
  std::filesystem::create_directory(dir.File("logs"));
  std::filesystem::create_symlink("/dev/full", dir.File("logs/20261116.log"));
  Log* current = nullptr;
  LoggingReporter reporter(current);
  Log log(clock, options, dir.path());
  current = &log;
  log.SetErrorReporter(&reporter);
  log.AddLine("lost to a full disk");
  log.Flush();
  log.AddLine("after");
  log.Flush();
  EXPECT_EQ(reporter.reports, (std::vector<std::string>{"modMain AddLine 57"}));
  EXPECT_FALSE(options.WRITELOG);
  EXPECT_EQ(log.ListDNS().back(), kStamp + "after");
}

TEST_F(LogTest, EchoGetsEveryLineAndNoFilesWhileWriteLogIsOff) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* echo = open_memstream(&text, &size);
  ASSERT_NE(echo, nullptr);
  {
    Log log(clock, options, dir.path());
    log.SetEcho(echo);
    log.AddLine("one");
    log.AddLine("two");
    log.Flush();
  }
  std::fclose(echo);
  EXPECT_EQ(std::string(text, size), Stamped({"one", "two"}, "\n"));
  std::free(text);
  EXPECT_FALSE(std::filesystem::exists(dir.File("logs")));
}

}  // namespace
