#include "app/log.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <new>

namespace korvane {

namespace modMain {

Log::Log(const Clock& clock, Options& options, std::string folder, std::size_t queueBytes)
    : clock_(clock),
      options_(options),
      folder_(std::move(folder)),
      queueBytes_(queueBytes),
      errors_(&DefaultErrorReporter()),
      window_(kWindowLines) {}

Log::~Log() = default;

void Log::AddLine(const std::string& text) { AddLine({std::string_view(text)}); }

void Log::AddLine(std::initializer_list<std::string_view> parts) {
  try {
    CatchUp();
    Append(parts);
  } catch (const std::bad_alloc&) {
    ReportFailure(ErrorNumber::kOutOfMemory, "Out of memory");
  } catch (const std::exception&) {
    ReportFailure(ErrorNumber::kInternal, "Internal error");
  }
}

void Log::Append(std::initializer_list<std::string_view> parts) {
  const auto second = static_cast<int64_t>(std::floor(clock_.Now()));
  // The window's slot keeps its storage from line to line: no allocation
  // once the window has seen lines this long.
  Line& line = window_[next_ % kWindowLines];
  ++next_;
  line.second = second;
  line.text.clear();
  for (std::string_view part : parts) line.text += part;
  // Names from the network may carry line breaks: one event stays one line.
  for (char& c : line.text)
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = '?';

  uint8_t flags = (echo_ ? LogQueue::kToEcho : 0) | (options_.WRITELOG ? LogQueue::kToFile : 0);
  if (flags == 0) return;
  if (!writer_) writer_ = std::make_unique<LogWriter>(folder_, echo_, queueBytes_);
  // After a loss the queue takes lines again only once the writer has caught
  // up, so the note stands right where the lines are missing.
  if (dropped_ > 0 || !writer_->Push(LogRecord{second, epoch_, flags, line.text})) ++dropped_;
}

void Log::Echo(std::string_view text) {
  if (!echo_) return;
  try {
    if (!writer_) writer_ = std::make_unique<LogWriter>(folder_, echo_, queueBytes_);
    const auto second = static_cast<int64_t>(std::floor(clock_.Now()));
    writer_->Push(LogRecord{second, epoch_, LogQueue::kToEcho, text});
    writer_->Wake();
  } catch (const std::exception&) {
    ReportFailure(ErrorNumber::kInternal, "Internal error");
  }
}

void Log::CatchUp() {
  if (!writer_) return;
  if (writer_->HasEvents()) TakeWriterEvents();
  if (dropped_ > 0 && writer_->CaughtUp()) {
    const std::string count = std::to_string(dropped_);
    dropped_ = 0;
    Append({count, " log lines were lost (log disk too slow)."});
  }
}

void Log::TakeWriterEvents() {
  LogWriter::Events events = writer_->TakeEvents();
  if (events.failure) ReportFailure(events.failure->number, events.failure->description);
  if (events.openFailed) {
    options_.WRITELOG = false;
    ++epoch_;  // lines of a later WRITELOG try the file again
    Append({"Error opening log file!"});
  }
  if (events.lostInOutage > 0)
    Append({std::to_string(events.lostInOutage), " log lines were lost (log file could not be written)."});
}

void Log::Flush() {
  try {
    CatchUp();
    if (writer_) writer_->Wake();
  } catch (const std::exception&) {
    ReportFailure(ErrorNumber::kInternal, "Internal error");
  }
}

bool Log::WaitWritten(double seconds) {
  Flush();
  if (!writer_) return true;
  const bool done = writer_->WaitWritten(seconds);
  CatchUp();
  return done;
}

void Log::CloseFile() {
  Flush();
  if (writer_) writer_->CloseFile(LogWriter::kStopSeconds);
}

std::string Log::LogDate() const { return writer_ ? writer_->FileDay() : ""; }

Log::WindowSpan Log::Window() const {
  WindowSpan span;
  span.end = next_;
  span.first = std::max(clearedBefore_, next_ > kWindowLines ? next_ - kWindowLines : 1);
  return span;
}

const std::string& Log::StampOf(int64_t second) const {
  stamp_.Set(second);
  return stamp_.Stamp();
}

std::vector<std::string> Log::WindowLines(uint64_t from, uint64_t to) const {
  const WindowSpan span = Window();
  from = std::max(from, span.first);
  to = std::min(to, span.end);
  std::vector<std::string> texts;
  if (from >= to) return texts;
  texts.reserve(static_cast<std::size_t>(to - from));
  for (uint64_t s = from; s < to; ++s) {
    const Line& line = window_[s % kWindowLines];
    texts.push_back(StampOf(line.second) + line.text);
  }
  return texts;
}

std::vector<std::string> Log::ListDNS() const {
  const WindowSpan span = Window();
  return WindowLines(span.first, span.end);
}

void Log::ClearWindow() { clearedBefore_ = next_; }

void Log::ReportFailure(int number, const std::string& description) {
  // The reporter may be busy with a failure of ours already (its message box
  // lets events run, and they log): drop the second one.
  if (reporting_ || !errors_) return;
  reporting_ = true;
  errors_->Report("modMain AddLine", "", number, description);
  reporting_ = false;
}

}  // namespace modMain

}  // namespace korvane
