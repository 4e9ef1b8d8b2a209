// The few things the core needs from the outside world: a clock, a log, an
// error reporter and a progress display. The shell supplies real ones; tests
// supply fakes, so that time and failures can be driven by arithmetic.
#pragma once

#include <exception>
#include <initializer_list>
#include <string>
#include <string_view>

namespace korvane {

// A date-time: seconds since the Unix epoch. Days are 86400 seconds.
using DateTime = double;
constexpr double kSecondsPerDay = 86400.0;

class Clock {
 public:
  virtual ~Clock() = default;
  virtual DateTime Now() const = 0;
};

// Reads the system's wall clock.
class SystemClock : public Clock {
 public:
  DateTime Now() const override;
};

// The one way to write a log line (the shell stamps date and time).
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void AddLine(const std::string& text) = 0;
  // The same line given in pieces, joined in order: busy paths log without
  // building the text first.
  virtual void AddLine(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (std::string_view part : parts) text += part;
    AddLine(text);
  }
};

// Error numbers handed to the reporter, numbered as the operator's support
// reports have always shown them.
namespace ErrorNumber {
constexpr int kInvalidCall = 5;   // "Invalid procedure call or argument"
constexpr int kOverflow = 6;      // "Overflow"
constexpr int kOutOfMemory = 7;   // "Out of memory"
constexpr int kOutOfStack = 28;   // "Out of stack space"
constexpr int kFileNotFound = 53; // "File not found"
constexpr int kDeviceIO = 57;     // "Device I/O error"
constexpr int kDiskFull = 61;     // "Disk full"
constexpr int kPermissionDenied = 70;  // "Permission denied"
constexpr int kPathNotFound = 76; // "Path not found"
constexpr int kInternal = 51;     // "Internal error" (an unexpected exception)
}  // namespace ErrorNumber

// Receives unexpected failures. `tag` names the procedure ("modDNS UnzipName"),
// `additional` is free text; `number` 0 means no error (a report on demand).
class ErrorReporter {
 public:
  virtual ~ErrorReporter() = default;
  virtual void Report(const std::string& tag, const std::string& additional, int number,
                      const std::string& description) = 0;
};

// Writes one line per error to standard error. Stateless, so it can serve as
// the default for code that was handed no reporter.
class StderrErrorReporter : public ErrorReporter {
 public:
  void Report(const std::string& tag, const std::string& additional, int number,
              const std::string& description) override;
};

ErrorReporter& DefaultErrorReporter();

// What the reporter is told about a failure.
struct ErrorInfo {
  int number = 0;
  std::string description;
};
// A caught exception: "Out of memory" for an allocation failure, else an
// internal error with the exception's text.
ErrorInfo ErrorOf(const std::exception& error);
// A failed system call: the number by kind (a missing folder, no permission,
// a full disk, anything else) and the system's own text for `errnum`.
ErrorInfo ErrorOfErrno(int errnum);
// Hands a caught exception to `errors` under `tag`.
void ReportException(ErrorReporter& errors, const std::string& tag, const std::exception& error,
                     const std::string& additional = "");

// The loading-progress window, shown while long record files are read.
class ProgressSink {
 public:
  virtual ~ProgressSink() = default;
  virtual void SetProgress(int percent) = 0;
  virtual void CloseProgress() = 0;
  // Asked after each progress step: true stops the load at once (the
  // program is closing), and what it had read is dropped.
  virtual bool StopRequested() { return false; }
};

// How the engines reach the network: one sender per socket. The shell wraps
// its UDP sockets; tests record what would have been sent.
struct SendError {
  int number = 0;
  std::string description;
};

class DatagramSender {
 public:
  virtual ~DatagramSender() = default;
  // Sends one datagram to host:port. `fromAddress`, when not empty, is the
  // local address the datagram must leave from (the address a query was
  // sent to). False on failure, with `error` filled.
  virtual bool Send(const std::string& host, int port, const std::string& bytes,
                    const std::string& fromAddress, SendError& error) = 0;
};

}  // namespace korvane
