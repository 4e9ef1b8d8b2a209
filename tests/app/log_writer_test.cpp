// The log writer under a stalled file, a full disk and shutdown.
#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "app/log.h"
#include "app/log_test_support.h"

using namespace korvane;

namespace {

using modMain::Log;

Lines Split(const std::string& text, const std::string& end) {
  Lines lines;
  std::size_t at = 0;
  for (std::size_t next; (next = text.find(end, at)) != std::string::npos; at = next + end.size())
    lines.push_back(text.substr(at, next - at));
  EXPECT_EQ(at, text.size()) << "a line without its end";
  return lines;
}

TEST_F(LogTest, StalledFileNeverHoldsTheLoggerAndOneLineCountsTheLoss) {
  options.WRITELOG = true;
  std::filesystem::create_directory(dir.File("logs"));
  const std::string fifo = dir.File("logs/20261116.log");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  // Opened for writing too, so that reading never meets the end of the file.
  const int reader = open(fifo.c_str(), O_RDWR);
  ASSERT_GE(reader, 0);
  constexpr int kBurst = 20000;
  const std::string last = kStamp + "final\r\n";
  std::string read;
  {
    Log log(clock, options, dir.path(), 64 * 1024);
    for (int i = 1; i <= kBurst; ++i) log.AddLine("burst " + std::to_string(i));
    log.Flush();
    std::thread drain([&] {  // the disk catches up
      char buffer[65536];
      pollfd wait{reader, POLLIN, 0};
      while (!read.ends_with(last) && poll(&wait, 1, 10000) > 0) {
        const ssize_t n = ::read(reader, buffer, sizeof buffer);
        if (n <= 0) break;
        read.append(buffer, static_cast<std::size_t>(n));
      }
    });
    EXPECT_TRUE(log.WaitWritten());
    log.AddLine("final");
    EXPECT_EQ(log.ListDNS().back(), kStamp + "final");
    log.Flush();
    drain.join();
  }
  close(reader);

  // Each note stands where its lines are missing: the burst reads on after
  // it as if the lines counted had been there.
  const Lines lines = Split(read, "\r\n");
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines.back(), kStamp + "final");
  const std::regex lostLine(kStamp + "(\\d+) log lines were lost \\(log disk too slow\\)\\.");
  int next = 1, notes = 0;
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    std::smatch note;
    if (std::regex_match(lines[i], note, lostLine)) {
      ++notes;
      next += std::stoi(note[1]);
    } else {
      ASSERT_EQ(lines[i], kStamp + "burst " + std::to_string(next)) << "line " << i;
      ++next;
    }
  }
  EXPECT_EQ(next, kBurst + 1);
  EXPECT_GE(notes, 1);
}

TEST_F(LogTest, ClosingWritesEveryQueuedLineToFileAndEcho) {
  options.WRITELOG = true;
  char* text = nullptr;
  size_t size = 0;
  std::FILE* echo = open_memstream(&text, &size);
  ASSERT_NE(echo, nullptr);
  constexpr int kBurst = 20000;
  {
    Log log(clock, options, dir.path());
    log.SetEcho(echo);
    for (int i = 1; i <= kBurst; ++i) log.AddLine("burst " + std::to_string(i));
    log.AddLine("Program was closed through a termination signal.");
  }
  std::fclose(echo);
  const std::string echoed(text, size);
  std::free(text);
  const Lines file = Split(dir.Read("logs/20261116.log"), "\r\n");
  EXPECT_EQ(file, Split(echoed, "\n"));
  ASSERT_EQ(file.size(), kBurst + 1u);
  EXPECT_EQ(file[kBurst - 1], kStamp + "burst 20000");
  EXPECT_EQ(file.back(), kStamp + "Program was closed through a termination signal.");
}

// The logs folder on a small tmpfs mounted for the test.
class FullDiskTest : public LogTest {
 protected:
  void SetUp() override {
    LogTest::SetUp();
    if (geteuid() != 0) GTEST_SKIP() << "mounting a tmpfs needs root";
    logs = dir.File("logs");
    std::filesystem::create_directory(logs);
    ASSERT_EQ(mount("tmpfs", logs.c_str(), "tmpfs", 0, "size=64k"), 0) << strerror(errno);
    mounted = true;
    const int fd = open((logs + "/filler").c_str(), O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    const std::string block(4096, 'x');
    while (write(fd, block.data(), block.size()) > 0) {
    }
    close(fd);
  }
  void TearDown() override {
    if (mounted) umount2(logs.c_str(), MNT_DETACH);
  }
  std::string logs;
  bool mounted = false;
};

TEST_F(FullDiskTest, FullDiskIsReportedOnceAndLinesResumeAtTheNextMinute) {
  options.WRITELOG = true;
  clock.Set(kLastSecondOfDay - 3600);  // 22:59:59, an hour before the next day
  Log* current = nullptr;
  LoggingReporter reporter(current);
  Log log(clock, options, dir.path());
  current = &log;
  log.SetErrorReporter(&reporter);
  for (const char* text : {"a", "b"}) {
    log.AddLine(text);
    ASSERT_TRUE(log.WaitWritten());
  }
  EXPECT_EQ(reporter.reports, (std::vector<std::string>{"modMain AddLine 61"}));

  std::filesystem::remove(logs + "/filler");
  clock.Advance(30);  // still the same minute of the outage
  log.AddLine("c");
  ASSERT_TRUE(log.WaitWritten());
  clock.Advance(31);
  log.AddLine("d");
  ASSERT_TRUE(log.WaitWritten());
  log.AddLine("e");
  ASSERT_TRUE(log.WaitWritten());

  // Lost: a, "logged while reporting", b and c; the file goes on with d.
  const std::string later = "2026-11-16 23:01:00  ";
  EXPECT_EQ(dir.Read("logs/20261116.log"),
            later + "d\r\n" + later + "4 log lines were lost (log file could not be written).\r\n" + later +
                "e\r\n");
  EXPECT_EQ(reporter.reports.size(), 1u);
  EXPECT_TRUE(options.WRITELOG);
}

}  // namespace
