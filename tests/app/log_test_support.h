// The log tests' world: a clock at the last second of a day, options and a
// program folder.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <string>
#include <vector>

#include "app/log.h"
#include "support/fakes.h"

using Lines = std::vector<std::string>;

constexpr DateTime kLastSecondOfDay = 1794873599;  // 2026-11-16 23:59:59 UTC
const std::string kStamp = "2026-11-16 23:59:59  ";

inline std::string Stamped(std::initializer_list<const char*> texts, const char* end) {
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

// A reporter that logs while it reports, as a window's event loop may.
class LoggingReporter : public ErrorReporter {
 public:
  explicit LoggingReporter(modMain::Log*& log) : log_(log) {}
  void Report(const std::string& tag, const std::string&, int number, const std::string&) override {
    reports.push_back(tag + " " + std::to_string(number));
    log_->AddLine("logged while reporting");
    log_->Flush();
  }
  std::vector<std::string> reports;

 private:
  modMain::Log*& log_;
};
