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

#include "app/log_test_support.h"
#include "support/fakes.h"

using namespace korvane;

namespace {

using modMain::Log;

TEST_F(LogTest, StampFollowsTheClockAcrossSecondsAndMidnight) {
  Log log(clock, options, dir.path());
  for (const auto& [at, text] : {std::pair{0.2, "a"}, {0.9, "b"}, {1.0, "c"}, {3661.5, "d"}, {-86400.0, "e"}}) {
    clock.Set(kLastSecondOfDay + at);  // the last is a clock set back a day
    log.AddLine(text);
  }
  log.AddLine({"parts ", std::string("joined"), std::string_view(" in order")});
  EXPECT_EQ(log.ListDNS(), (Lines{kStamp + "a", kStamp + "b", "2026-11-17 00:00:00  c", "2026-11-17 01:01:00  d",
                                  "2026-11-15 23:59:59  e", "2026-11-15 23:59:59  parts joined in order"}));
}

TEST_F(LogTest, WindowKeepsTheNewest300LinesNumberedFromOne) {
  Log log(clock, options, dir.path());
  EXPECT_EQ(log.Window().first, log.Window().end);
  for (int i = 1; i <= 301; ++i) log.AddLine("line " + std::to_string(i));
  const Log::WindowSpan span = log.Window();
  EXPECT_EQ(span.first, 2u);
  EXPECT_EQ(span.end, 302u);
  const Lines window = log.ListDNS();
  ASSERT_EQ(window.size(), 300u);
  EXPECT_EQ(window.front(), kStamp + "line 2");
  EXPECT_EQ(window.back(), kStamp + "line 301");
  EXPECT_EQ(log.WindowLines(1, 4), (Lines{kStamp + "line 2", kStamp + "line 3"}));
  log.ClearWindow();
  EXPECT_TRUE(log.ListDNS().empty());
  log.AddLine("after clearing");
  EXPECT_EQ(log.Window().first, 302u);
  EXPECT_EQ(log.ListDNS(), (Lines{kStamp + "after clearing"}));
}

// A log view as the window's reader would build it: it polls now and then
// and must end up holding exactly the window, having seen each line that was
// still in the window when it polled, in order.
TEST_F(LogTest, PollingReaderFollowsABurstOf10000Lines) {
  Log log(clock, options, dir.path());
  std::vector<uint64_t> held;  // sequences the view shows
  std::vector<uint64_t> seen;  // every sequence it was ever given
  auto poll = [&] {
    const Log::WindowSpan span = log.Window();
    while (!held.empty() && held.front() < span.first) held.erase(held.begin());
    const uint64_t from = held.empty() ? span.first : std::max(held.back() + 1, span.first);
    const Lines texts = log.WindowLines(from, span.end);
    for (uint64_t s = from; s < span.end; ++s) {
      EXPECT_EQ(texts[s - from], kStamp + "burst " + std::to_string(s)) << s;
      held.push_back(s);
      seen.push_back(s);
    }
  };
  for (int i = 1; i <= 10000; ++i) {
    log.AddLine("burst " + std::to_string(i));
    if (i % 97 == 0 || i % 1000 == 999) poll();  // sometimes more than a window apart
  }
  poll();
  ASSERT_EQ(held.size(), 300u);
  EXPECT_EQ(held.front(), 9701u);
  EXPECT_EQ(held.back(), 10000u);
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());
}

TEST_F(LogTest, FirstLineCreatesTheFolderAndTheDayFileWithCrLf) {
  options.WRITELOG = true;
  {
    Log log(clock, options, dir.path());
    log.AddLine("first");
    log.AddLine("second");
    ASSERT_TRUE(log.WaitWritten());
    EXPECT_EQ(log.LogDate(), "20261116");
    EXPECT_EQ(dir.Read("logs/20261116.log"), Stamped({"first", "second"}, "\r\n"));
    log.AddLine("third\r\n2026-11-16 00:00:00  forged\x7f");
  }  // closing writes what is still queued
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
  ASSERT_TRUE(log.WaitWritten());
  EXPECT_EQ(log.LogDate(), "20261117");
  log.CloseFile();
  EXPECT_EQ(log.LogDate(), "");
  EXPECT_EQ(dir.Read("logs/20261116.log"), "earlier\r\n" + kStamp + "before midnight\r\n");
  EXPECT_EQ(dir.Read("logs/20261117.log"), "2026-11-17 00:00:00  after midnight\r\n");
}

TEST_F(LogTest, UnusableLogsFolderSwitchesFilesOffWithOneLineUntilWriteLogIsSetAgain) {
  options.WRITELOG = true;
  dir.Write("logs", "a file where the folder should be");
  RecordingErrorReporter errors;
  Log log(clock, options, dir.path());
  log.SetErrorReporter(&errors);
  log.AddLine("one");
  ASSERT_TRUE(log.WaitWritten());
  log.AddLine("two");
  log.AddLine("three");
  ASSERT_TRUE(log.WaitWritten());
  EXPECT_EQ(log.ListDNS(), (Lines{kStamp + "one", kStamp + "Error opening log file!", kStamp + "two",
                                  kStamp + "three"}));
  EXPECT_FALSE(options.WRITELOG);
  EXPECT_EQ(log.LogDate(), "");
  EXPECT_TRUE(errors.errors.empty());
  EXPECT_EQ(dir.Read("logs"), "a file where the folder should be");

  // The options saved again with the box checked: the next line opens the file.
  std::filesystem::remove(dir.File("logs"));
  options.WRITELOG = true;
  log.AddLine("four");
  ASSERT_TRUE(log.WaitWritten());
  EXPECT_EQ(dir.Read("logs/20261116.log"), Stamped({"four"}, "\r\n"));
}

TEST_F(LogTest, WriteFailureIsReportedOnceAndFilesStayOn) {
  options.WRITELOG = true;
  std::filesystem::create_directory(dir.File("logs"));
  std::filesystem::create_symlink("/dev/full", dir.File("logs/20261116.log"));
  Log* current = nullptr;
  LoggingReporter reporter(current);
  Log log(clock, options, dir.path());
  current = &log;
  log.SetErrorReporter(&reporter);
  for (const char* text : {"lost to a full disk", "after", "later"}) {
    log.AddLine(text);
    ASSERT_TRUE(log.WaitWritten());
  }
  EXPECT_EQ(reporter.reports, (std::vector<std::string>{"modMain AddLine 61"}));
  EXPECT_TRUE(options.WRITELOG);
  EXPECT_EQ(log.ListDNS().back(), kStamp + "later");
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
  }
  std::fclose(echo);
  EXPECT_EQ(std::string(text, size), Stamped({"one", "two"}, "\n"));
  std::free(text);
  EXPECT_FALSE(std::filesystem::exists(dir.File("logs")));
}

}  // namespace
