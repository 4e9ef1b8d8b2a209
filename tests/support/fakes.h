// Test doubles for the core's outside world: a settable clock, a log and an
// error reporter that record what they are given, and a temporary folder.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "wire/services.h"

using namespace korvane;

class FakeClock : public Clock {
 public:
  explicit FakeClock(DateTime start = 1'790'000'000.0) : now_(start) {}
  DateTime Now() const override { return now_; }
  void Set(DateTime t) { now_ = t; }
  void Advance(double seconds) { now_ += seconds; }

 private:
  DateTime now_;
};

class RecordingLog : public LogSink {
 public:
  void AddLine(const std::string& text) override { lines.push_back(text); }
  std::vector<std::string> lines;
};

struct ReportedError {
  std::string tag, additional;
  int number;
  std::string description;
};

class RecordingErrorReporter : public ErrorReporter {
 public:
  void Report(const std::string& tag, const std::string& additional, int number,
              const std::string& description) override {
    errors.push_back({tag, additional, number, description});
  }
  std::vector<ReportedError> errors;
};

struct SentDatagram {
  std::string host;
  int port = 0;
  std::string bytes;
  std::string from;
};

// A socket that keeps what it is asked to send, or fails when told to.
// `onSend`, when set, runs inside each send (as a shell's nested event loop
// would).
class RecordingSender : public DatagramSender {
 public:
  bool Send(const std::string& host, int port, const std::string& bytes,
            const std::string& fromAddress, SendError& error) override {
    if (fail) {
      error = {11, "Resource temporarily unavailable"};
      return false;
    }
    sent.push_back({host, port, bytes, fromAddress});
    if (onSend) {
      std::function<void()> hook = onSend;  // the hook may replace itself
      hook();
    }
    return true;
  }
  std::vector<SentDatagram> sent;
  bool fail = false;
  std::function<void()> onSend;
};

class RecordingProgress : public ProgressSink {
 public:
  void SetProgress(int percent) override { values.push_back(percent); }
  void CloseProgress() override { ++closed; }
  std::vector<int> values;
  int closed = 0;
};

// A fresh folder under the system's temporary folder, removed with its
// contents when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  void Write(const std::string& name, const std::string& content) const;
  std::string Read(const std::string& name) const;
  // Sets a file's modification time (seconds since the epoch).
  void SetModified(const std::string& name, DateTime when) const;

 private:
  std::string path_;
};

// Bytes from a list of numbers: Bytes({192, 12}).
std::string Bytes(std::initializer_list<int> values);
