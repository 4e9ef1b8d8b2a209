// The running log: every line goes to the log window's model (the newest 300
// lines) and, when WRITELOG is on, to the day's file "logs/yyyymmdd.log".
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <string>

#include "store/options.h"
#include "wire/services.h"

namespace korvane {

namespace modMain {

// How the window model changed, announced before and after each change so
// that a list view can follow row by row.
enum class LogWindowChange {
  kAboutToRemoveFirst,
  kFirstRemoved,
  kAboutToAppend,
  kAppended,
  kAboutToClear,
  kCleared,
};

class Log : public LogSink {
 public:
  static constexpr size_t kWindowLines = 300;

  // `options` is the live option set: WRITELOG is read on every line and
  // cleared when the log file cannot be opened. `folder` is the program folder.
  Log(const Clock& clock, Options& options, std::string folder);
  ~Log() override;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void AddLine(const std::string& text) override;

  // The window model, oldest line first.
  const std::deque<std::string>& ListDNS() const { return window_; }
  void ClearWindow();
  void SetWindowCallback(std::function<void(LogWindowChange)> callback) {
    windowChanged_ = std::move(callback);
  }

  // Failures other than opening the file go here as "modMain AddLine".
  void SetErrorReporter(ErrorReporter* errors) { errors_ = errors; }
  // Every line is also printed to `echo` (null: none), ended by "\n".
  void SetEcho(std::FILE* echo) { echo_ = echo; }

  // Writes buffered lines to the file and the echo.
  void Flush();
  // Flushes and closes the day's file; the next line opens it again.
  void CloseFile();
  // "yyyymmdd" of the open file, "" while none is open.
  const std::string& LogDate() const { return logDate_; }

 private:
  void AddLineUnguarded(const std::string& text);
  void RefreshStamp();
  void Announce(LogWindowChange change);
  bool OpenFile();
  bool WriteBuffer();
  void ReportFailure(int number, const std::string& description);

  const Clock& clock_;
  Options& options_;
  std::string folder_;
  ErrorReporter* errors_;
  std::FILE* echo_ = nullptr;
  std::function<void(LogWindowChange)> windowChanged_;

  std::deque<std::string> window_;

  // The date-time text is formatted at most once a second.
  int64_t stampSecond_ = INT64_MIN;
  std::string stamp_;   // "yyyy-mm-dd hh:mm:ss  "
  std::string today_;   // "yyyymmdd"

  int fd_ = -1;
  std::string logDate_;
  std::string buffer_;
  bool reporting_ = false;
};

}  // namespace modMain

}  // namespace korvane
