// The running log. Every line is stamped with its second, numbered, kept in
// the window (the newest 300 lines) and queued for the writer thread, which
// writes the day's file "logs/yyyymmdd.log" (when WRITELOG is on) and the
// echo stream (headless standard output). Logging never waits for either:
// when the queue is full, lines miss the file and the echo, and once the
// writer has caught up (the queue at most half full) one line says
// "N log lines were lost (log disk too slow)." in the window, the file and
// the echo alike.
//
// All calls come from one thread (the one that logs); only the writer runs
// on another.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "app/log_writer.h"
#include "store/options.h"
#include "wire/services.h"

namespace korvane {

namespace modMain {

class Log : public LogSink {
 public:
  static constexpr std::size_t kWindowLines = 300;
  // About 50,000 lines of a busy server: a second or more of a stalled disk.
  static constexpr std::size_t kQueueBytes = 4 * 1024 * 1024;

  // `options` is the live option set: WRITELOG is read on every line and
  // cleared when the log file cannot be opened. `folder` is the program folder.
  Log(const Clock& clock, Options& options, std::string folder,
      std::size_t queueBytes = kQueueBytes);
  // Writes what is queued (waiting at most LogWriter::kStopSeconds).
  ~Log() override;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  using LogSink::AddLine;
  void AddLine(const std::string& text) override;
  void AddLine(std::initializer_list<std::string_view> parts) override;

  // The window, for the log view to pull on a timer. Every line logged gets
  // the next sequence number (the first is 1); the window holds the lines
  // `first` to `end - 1`, at most kWindowLines of them, and is empty when
  // first == end. A view that holds lines up to sequence S drops its lines
  // below `first` (pushed out or cleared), then appends
  // WindowLines(max(S + 1, first), end): it sees every line still in the
  // window when it polls, in order.
  struct WindowSpan {
    uint64_t first = 1;
    uint64_t end = 1;
  };
  WindowSpan Window() const;
  // "yyyy-mm-dd hh:mm:ss  text" of the window's lines `from` to `to - 1`
  // (clipped to the window).
  std::vector<std::string> WindowLines(uint64_t from, uint64_t to) const;
  // The whole window, oldest line first.
  std::vector<std::string> ListDNS() const;
  // Empties the window; the files and the echo keep their lines.
  void ClearWindow();

  // A line for the echo stream alone (headless standard output, such as the
  // progress of a long load): not numbered, not in the window nor the file.
  // Nothing happens without an echo, or when the queue is full.
  void Echo(std::string_view text);

  // Failures go here as "modMain AddLine".
  void SetErrorReporter(ErrorReporter* errors) { errors_ = errors; }
  // Every line is also printed to `echo` (null: none), ended by "\n". Set it
  // before the first line.
  void SetEcho(std::FILE* echo) { echo_ = echo; }

  // Hands what the writer reported to the reporter and the window, and
  // wakes the writer for the lines logged since the last call. Never waits:
  // called after each batch of datagrams and by the timers.
  void Flush();
  // Waits until every line logged so far is written. False on time-out.
  bool WaitWritten(double seconds = LogWriter::kStopSeconds);
  // Writes what is queued and closes the day's file; the next line opens it again.
  void CloseFile();
  // "yyyymmdd" of the open file, "" while none is open (as the writer last left it).
  std::string LogDate() const;

 private:
  struct Line {
    int64_t second = 0;
    std::string text;
  };

  void Append(std::initializer_list<std::string_view> parts);
  void TakeWriterEvents();
  void CatchUp();
  void ReportFailure(int number, const std::string& description);
  const std::string& StampOf(int64_t second) const;

  const Clock& clock_;
  Options& options_;
  std::string folder_;
  std::size_t queueBytes_;
  ErrorReporter* errors_;
  std::FILE* echo_ = nullptr;
  bool reporting_ = false;

  std::vector<Line> window_;   // ring: line s is at s % kWindowLines
  uint64_t next_ = 1;          // sequence of the next line
  uint64_t clearedBefore_ = 1; // lines below this were cleared from the window
  mutable LogStamp stamp_;

  std::unique_ptr<LogWriter> writer_;  // started with the first line to write
  uint64_t dropped_ = 0;               // lines the queue refused since the last note
  uint16_t epoch_ = 0;                 // moves on when the file could not be opened
};

}  // namespace modMain

}  // namespace korvane
