// The log's second thread: turns queued records into text and writes them to
// the day's file "logs/yyyymmdd.log" (CR LF) and to the echo stream (LF), so
// that neither a slow disk nor a slow terminal holds up the thread that logs.
//
// The day's file is chosen by each line's own time: the first line of a new
// day closes the old file and opens the new one. Failures are handed back to
// the logging thread as events (TakeEvents), never reported from here:
//   - the file cannot be opened, even after creating the "logs" folder:
//     `openFailed`; lines of the same epoch skip the file from then on;
//   - a write fails (disk full, device error): `failure` once, then every
//     file line is counted as lost until the next minute or the next day,
//     when the file is opened and written again; a retry that works ends the
//     outage with `lostInOutage`;
//   - a day's file that was deleted while open is created again.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "app/log_queue.h"
#include "wire/services.h"

namespace korvane {

namespace modMain {

// "yyyy-mm-dd hh:mm:ss  " and "yyyymmdd" for a second, made once per second.
class LogStamp {
 public:
  void Set(int64_t second);
  const std::string& Stamp() const { return stamp_; }
  const std::string& Day() const { return day_; }

 private:
  int64_t second_ = INT64_MIN;
  std::string stamp_;
  std::string day_;
};

class LogWriter {
 public:
  struct Events {
    bool openFailed = false;
    std::optional<ErrorInfo> failure;
    uint64_t lostInOutage = 0;
  };

  // `echo` may be null. The thread starts here.
  LogWriter(std::string folder, std::FILE* echo, std::size_t queueBytes);
  // Writes what is queued, waiting at most `kStopSeconds`; a writer stuck
  // on a stalled file is left behind rather than waited for.
  ~LogWriter();
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  static constexpr double kStopSeconds = 10;

  // Producer side, never waits. False when the queue is full.
  bool Push(const LogRecord& record);
  // True when the lines not yet written fill at most half the queue.
  bool CaughtUp() const;
  // Tells the thread that lines wait.
  void Wake();
  // Waits until every line pushed so far is written. False on time-out.
  bool WaitWritten(double seconds);
  // Writes what is queued, then closes the day's file.
  void CloseFile(double seconds);
  // "yyyymmdd" of the open file, "" while none is open.
  std::string FileDay() const;

  bool HasEvents() const { return hasEvents_.load(std::memory_order_acquire); }
  Events TakeEvents();

 private:
  struct Shared;
  class Thread;

  std::shared_ptr<Shared> shared_;
  const std::atomic<bool>& hasEvents_;
  std::thread thread_;
};

}  // namespace modMain

}  // namespace korvane
