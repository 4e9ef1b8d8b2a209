#include "app/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <new>

#include "wire/datetime.h"

namespace korvane {

namespace modMain {

namespace {
// Large enough that a busy server writes rarely, small enough that a crash
// loses little.
constexpr size_t kBufferBytes = 64 * 1024;
constexpr int kDeviceIOError = 57;
}  // namespace

Log::Log(const Clock& clock, Options& options, std::string folder)
    : clock_(clock), options_(options), folder_(std::move(folder)), errors_(&DefaultErrorReporter()) {}

Log::~Log() {
  CloseFile();
  if (echo_) std::fflush(echo_);
}

void Log::AddLine(const std::string& text) {
  try {
    AddLineUnguarded(text);
  } catch (const std::bad_alloc&) {
    ReportFailure(ErrorNumber::kOutOfMemory, "Out of memory");
  } catch (const std::exception&) {
    ReportFailure(ErrorNumber::kInternal, "Internal error");
  }
}

void Log::AddLineUnguarded(const std::string& text) {
  RefreshStamp();
  // The line reuses the storage of the one that leaves the window: a busy
  // server logs several lines per query.
  std::string line;
  if (window_.size() >= kWindowLines) {
    Announce(LogWindowChange::kAboutToRemoveFirst);
    line = std::move(window_.front());
    window_.pop_front();
    Announce(LogWindowChange::kFirstRemoved);
  }
  line.assign(stamp_);
  line += text;
  // Names from the network may carry line breaks: one event stays one line.
  for (std::size_t i = stamp_.size(); i < line.size(); ++i)
    if (static_cast<unsigned char>(line[i]) < ' ' || line[i] == 0x7f) line[i] = '?';
  Announce(LogWindowChange::kAboutToAppend);
  window_.push_back(std::move(line));
  Announce(LogWindowChange::kAppended);
  const std::string& added = window_.back();

  if (echo_) {
    std::fwrite(added.data(), 1, added.size(), echo_);
    std::fputc('\n', echo_);
  }

  if (!options_.WRITELOG) return;
  if (!logDate_.empty() && logDate_ != today_) CloseFile();
  if (logDate_.empty()) {
    if (!OpenFile()) {
      mkdir((folder_ + "/logs").c_str(), 0755);
      if (!OpenFile()) {
        options_.WRITELOG = false;
        AddLine("Error opening log file!");  // WRITELOG is off: one level deep at most
        return;
      }
    }
    logDate_ = today_;
  }
  buffer_ += added;
  buffer_ += "\r\n";
  if (buffer_.size() >= kBufferBytes) WriteBuffer();
}

void Log::RefreshStamp() {
  DateTime now = clock_.Now();
  auto second = static_cast<int64_t>(std::floor(now));
  if (second == stampSecond_) return;
  stamp_ = FormatDateTime(now) + "  ";
  today_ = FormatDateCompact(now);
  stampSecond_ = second;
}

void Log::Announce(LogWindowChange change) {
  if (windowChanged_) windowChanged_(change);
}

void Log::ClearWindow() {
  Announce(LogWindowChange::kAboutToClear);
  window_.clear();
  Announce(LogWindowChange::kCleared);
}

bool Log::OpenFile() {
  std::string path = folder_ + "/logs/" + today_ + ".log";
  fd_ = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  return fd_ >= 0;
}

bool Log::WriteBuffer() {
  size_t done = 0;
  while (done < buffer_.size()) {
    ssize_t written = write(fd_, buffer_.data() + done, buffer_.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      // A full disk would fail on every line after this one: stop writing
      // files rather than report each line.
      std::string reason = written < 0 ? std::strerror(errno) : "nothing written";
      buffer_.clear();
      close(fd_);
      fd_ = -1;
      logDate_.clear();
      options_.WRITELOG = false;
      ReportFailure(kDeviceIOError, "Device I/O error: " + reason);
      return false;
    }
    done += static_cast<size_t>(written);
  }
  buffer_.clear();
  return true;
}

void Log::Flush() {
  if (fd_ >= 0 && !buffer_.empty()) WriteBuffer();
  if (echo_) std::fflush(echo_);
}

void Log::CloseFile() {
  if (fd_ < 0) return;
  if (!buffer_.empty() && !WriteBuffer()) return;
  close(fd_);
  fd_ = -1;
  logDate_.clear();
}

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
