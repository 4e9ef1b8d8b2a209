#include "app/log_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>

#include "wire/datetime.h"

namespace korvane {

namespace modMain {

namespace {
// Output is built and written in pieces of about this size.
constexpr std::size_t kChunkBytes = 256 * 1024;
constexpr int64_t kRetrySeconds = 60;
// While lines keep coming the writer looks for more this often on its own,
// so the logging thread need not wake it after every batch.
constexpr auto kBusyPoll = std::chrono::milliseconds(2);

using Clock = std::chrono::steady_clock;

Clock::time_point Deadline(double seconds) {
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}
}  // namespace

void LogStamp::Set(int64_t second) {
  if (second == second_) return;
  second_ = second;
  stamp_ = FormatDateTime(static_cast<DateTime>(second)) + "  ";
  day_ = FormatDateCompact(static_cast<DateTime>(second));
}

// What both threads touch; the writer thread keeps it alive even when the
// LogWriter that started it is gone (a writer left behind at shutdown).
struct LogWriter::Shared {
  explicit Shared(std::size_t bytes) : queue(bytes) {}

  LogQueue queue;
  std::mutex mutex;
  std::condition_variable wakeUp;  // to the writer
  std::condition_variable done;    // to the logging thread
  bool wake = false;
  bool stop = false;
  bool closeRequested = false;
  bool finished = false;
  std::atomic<uint64_t> written{0};  // queue position up to which lines are written
  std::atomic<bool> idle{false};   // the writer sleeps until woken
  std::atomic<bool> abandon{false};
  std::atomic<bool> hasEvents{false};
  Events events;
  std::string fileDay;

  void Post(const std::function<void(Events&)>& change) {
    std::lock_guard lock(mutex);
    change(events);
    hasEvents.store(true, std::memory_order_release);
  }
};

class LogWriter::Thread {
 public:
  Thread(std::shared_ptr<Shared> shared, std::string folder, std::FILE* echo)
      : shared_(std::move(shared)), folder_(std::move(folder)), echo_(echo) {}

  void Run();

 private:
  bool DrainChunk();
  void Format(const LogRecord& record);
  void FileLine(const LogRecord& record);
  bool OpenDayFile(const std::string& day);
  void CloseDayFile();
  void WriteFileBuffer();
  void StartOutage(int error, std::size_t written);
  void CheckRemoved();
  void SetFileDay(const std::string& day);
  // Writes all of `data` to `fd`; on failure returns the bytes written and
  // sets `error`. A full FIFO is waited for, unless the writer is abandoned.
  std::size_t WriteAll(int fd, const std::string& data, int& error);

  std::shared_ptr<Shared> shared_;
  std::string folder_;
  std::FILE* echo_;
  LogStamp stamp_;
  std::string echoBuffer_;
  std::string fileBuffer_;
  std::size_t fileBufferLines_ = 0;

  int fd_ = -1;
  std::string fileDay_;
  bool filesOff_ = false;      // the file could not be opened for lines of `offEpoch_`
  uint16_t offEpoch_ = 0;
  bool outage_ = false;        // writes failed; lines are lost until `retryAt_`
  bool retrying_ = false;      // the file was opened again after an outage
  bool tornLine_ = false;      // the failed write ended inside a line of `tornDay_`
  std::string tornDay_;
  std::string outageDay_;
  int64_t retryAt_ = 0;
  uint64_t lost_ = 0;
  int64_t lastSecond_ = 0;
  int64_t checkedSecond_ = 0;
};

LogWriter::LogWriter(std::string folder, std::FILE* echo, std::size_t queueBytes)
    : shared_(std::make_shared<Shared>(queueBytes)), hasEvents_(shared_->hasEvents) {
  auto worker = std::make_shared<Thread>(shared_, std::move(folder), echo);
  thread_ = std::thread([worker] { worker->Run(); });
}

LogWriter::~LogWriter() {
  std::unique_lock lock(shared_->mutex);
  shared_->stop = true;
  shared_->wakeUp.notify_one();
  const bool finished =
      shared_->done.wait_until(lock, Deadline(kStopSeconds), [this] { return shared_->finished; });
  lock.unlock();
  if (finished) {
    thread_.join();
  } else {
    shared_->abandon = true;
    thread_.detach();
  }
}

bool LogWriter::Push(const LogRecord& record) { return shared_->queue.Push(record); }

bool LogWriter::CaughtUp() const {
  // Measured against what is written, not what was taken from the queue: a
  // writer stuck in a write holds lines of its own.
  const uint64_t backlog = shared_->queue.Head() - shared_->written.load(std::memory_order_acquire);
  return backlog <= shared_->queue.Capacity() / 2;
}

void LogWriter::Wake() {
  // Pairs with the writer's look at the queue after it has said it is idle.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  if (!shared_->idle.load(std::memory_order_relaxed)) return;
  std::lock_guard lock(shared_->mutex);
  shared_->wake = true;
  shared_->wakeUp.notify_one();
}

bool LogWriter::WaitWritten(double seconds) {
  const uint64_t target = shared_->queue.Head();
  std::unique_lock lock(shared_->mutex);
  shared_->wake = true;
  shared_->wakeUp.notify_one();
  return shared_->done.wait_until(lock, Deadline(seconds),
                                  [&] { return shared_->written >= target || shared_->finished; });
}

void LogWriter::CloseFile(double seconds) {
  const auto deadline = Deadline(seconds);
  WaitWritten(seconds);
  std::unique_lock lock(shared_->mutex);
  shared_->closeRequested = true;
  shared_->wakeUp.notify_one();
  shared_->done.wait_until(lock, deadline, [&] { return !shared_->closeRequested || shared_->finished; });
}

std::string LogWriter::FileDay() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->fileDay;
}

LogWriter::Events LogWriter::TakeEvents() {
  std::lock_guard lock(shared_->mutex);
  Events taken = std::move(shared_->events);
  shared_->events = Events{};
  shared_->hasEvents.store(false, std::memory_order_release);
  return taken;
}

void LogWriter::Thread::Run() {
  Shared& shared = *shared_;
  bool busy = false;
  for (;;) {
    {
      std::unique_lock lock(shared.mutex);
      auto woken = [&] { return shared.wake || shared.stop || shared.closeRequested; };
      if (busy) {
        shared.wakeUp.wait_for(lock, kBusyPoll, woken);
      } else {
        shared.idle.store(true, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        if (shared.queue.Head() == shared.queue.Tail())
          shared.wakeUp.wait_for(lock, std::chrono::seconds(1), woken);
        shared.idle.store(false, std::memory_order_relaxed);
      }
      shared.wake = false;
    }
    const uint64_t before = shared.queue.Tail();
    try {
      while (DrainChunk()) {
      }
    } catch (const std::exception& e) {
      // Out of memory for the text: these lines are gone, the next may fit.
      ErrorInfo error = ErrorOf(e);
      shared.Post([&](Events& events) { events.failure = error; });
      echoBuffer_.clear();
      fileBuffer_.clear();
      fileBufferLines_ = 0;
    }
    busy = shared.queue.Tail() != before;
    bool close, stop;
    {
      std::lock_guard lock(shared.mutex);
      close = shared.closeRequested;
      stop = shared.stop;
    }
    if (close || stop) CloseDayFile();
    std::lock_guard lock(shared.mutex);
    if (close) shared.closeRequested = false;
    shared.finished = stop;
    shared.done.notify_all();
    if (stop) return;
  }
}

// True while more lines wait.
bool LogWriter::Thread::DrainChunk() {
  Shared& shared = *shared_;
  shared.queue.PopAll([this](const LogRecord& record) { Format(record); }, kChunkBytes);
  const uint64_t popped = shared.queue.Tail();
  if (!echoBuffer_.empty()) {
    std::fwrite(echoBuffer_.data(), 1, echoBuffer_.size(), echo_);
    std::fflush(echo_);
    echoBuffer_.clear();
  }
  if (!fileBuffer_.empty()) WriteFileBuffer();
  {
    std::lock_guard lock(shared.mutex);
    shared.written = popped;
    shared.done.notify_all();
  }
  return shared.queue.Head() != popped;
}

void LogWriter::Thread::Format(const LogRecord& record) {
  stamp_.Set(record.second);
  lastSecond_ = record.second;
  if ((record.flags & LogQueue::kToEcho) && echo_) {
    echoBuffer_ += stamp_.Stamp();
    echoBuffer_ += record.text;
    echoBuffer_ += '\n';
  }
  if (record.flags & LogQueue::kToFile) FileLine(record);
}

void LogWriter::Thread::FileLine(const LogRecord& record) {
  const std::string& day = stamp_.Day();
  if (filesOff_) {
    if (record.epoch == offEpoch_) return;
    filesOff_ = false;
  }
  if (outage_) {
    if (record.second < retryAt_ && day == outageDay_) {
      ++lost_;
      return;
    }
    outage_ = false;
    retrying_ = true;
  }
  if (fd_ >= 0 && day != fileDay_) {
    WriteFileBuffer();
    CloseDayFile();
    // A new day's file is a fresh try whatever the old one did.
    if (outage_) {
      outage_ = false;
      retrying_ = true;
    }
  }
  if (fd_ < 0 && !OpenDayFile(day)) {
    if (retrying_) {
      ++lost_;
      outage_ = true;
      retrying_ = false;
      retryAt_ = record.second + kRetrySeconds;
      outageDay_ = day;
      return;
    }
    filesOff_ = true;
    offEpoch_ = record.epoch;
    shared_->Post([](Events& events) { events.openFailed = true; });
    return;
  }
  fileBuffer_ += stamp_.Stamp();
  fileBuffer_ += record.text;
  fileBuffer_ += "\r\n";
  ++fileBufferLines_;
}

bool LogWriter::Thread::OpenDayFile(const std::string& day) {
  const std::string path = folder_ + "/logs/" + day + ".log";
  // Non-blocking, so that a FIFO without room never holds the writer past
  // shutdown (a regular file ignores the flag).
  const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK;
  fd_ = open(path.c_str(), flags, 0644);
  if (fd_ < 0) {
    mkdir((folder_ + "/logs").c_str(), 0755);
    fd_ = open(path.c_str(), flags, 0644);
  }
  if (fd_ < 0) return false;
  // A line cut by the failed write is ended before the next one.
  if (tornLine_ && tornDay_ == day) fileBuffer_.insert(0, "\r\n");
  tornLine_ = false;
  SetFileDay(day);
  return true;
}

void LogWriter::Thread::CloseDayFile() {
  if (fd_ < 0) return;
  if (!fileBuffer_.empty()) WriteFileBuffer();
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  SetFileDay("");
}

void LogWriter::Thread::WriteFileBuffer() {
  if (fd_ < 0) return;
  int error = 0;
  const std::size_t written = WriteAll(fd_, fileBuffer_, error);
  if (written < fileBuffer_.size()) {
    StartOutage(error, written);
    return;
  }
  fileBuffer_.clear();
  fileBufferLines_ = 0;
  if (retrying_) {
    retrying_ = false;
    const uint64_t lost = lost_;
    lost_ = 0;
    if (lost > 0) shared_->Post([lost](Events& events) { events.lostInOutage += lost; });
  }
  CheckRemoved();
}

void LogWriter::Thread::StartOutage(int error, std::size_t written) {
  const std::size_t whole = static_cast<std::size_t>(
      std::count(fileBuffer_.begin(), fileBuffer_.begin() + static_cast<long>(written), '\n'));
  lost_ += fileBufferLines_ - std::min(whole, fileBufferLines_);
  tornLine_ = written > 0 && fileBuffer_[written - 1] != '\n';
  tornDay_ = fileDay_;
  outageDay_ = fileDay_;
  fileBuffer_.clear();
  fileBufferLines_ = 0;
  close(fd_);
  fd_ = -1;
  SetFileDay("");
  outage_ = true;
  retryAt_ = lastSecond_ + kRetrySeconds;
  // A failed retry is the same outage: reported once.
  if (!retrying_) {
    ErrorInfo info = ErrorOfErrno(error);
    shared_->Post([&](Events& events) { events.failure = info; });
  }
  retrying_ = false;
}

void LogWriter::Thread::SetFileDay(const std::string& day) {
  fileDay_ = day;
  std::lock_guard lock(shared_->mutex);
  shared_->fileDay = day;
}

void LogWriter::Thread::CheckRemoved() {
  if (fd_ < 0 || lastSecond_ == checkedSecond_) return;
  checkedSecond_ = lastSecond_;
  struct stat status;
  if (fstat(fd_, &status) == 0 && status.st_nlink == 0) {
    close(fd_);
    fd_ = -1;  // the next line creates the file again
    SetFileDay("");
  }
}

std::size_t LogWriter::Thread::WriteAll(int fd, const std::string& data, int& error) {
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = write(fd, data.data() + done, data.size() - done);
    if (n > 0) {
      done += static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && !shared_->abandon) {
      pollfd wait{fd, POLLOUT, 0};
      poll(&wait, 1, 200);
      continue;
    }
    error = n < 0 ? errno : EIO;
    break;
  }
  return done;
}

}  // namespace modMain

}  // namespace korvane
