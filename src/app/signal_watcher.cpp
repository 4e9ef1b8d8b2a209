#include "app/signal_watcher.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace korvane {

namespace {
int writeEnd = -1;

void OnSignal(int number) {
  int saved = errno;
  unsigned char byte = static_cast<unsigned char>(number);
  if (writeEnd >= 0) (void)!write(writeEnd, &byte, 1);
  errno = saved;
}
}  // namespace

SignalWatcher::SignalWatcher(QObject* parent) : QObject(parent) {
  if (pipe2(pipe_, O_NONBLOCK | O_CLOEXEC) != 0) return;
  writeEnd = pipe_[1];
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  notifier_ = std::make_unique<QSocketNotifier>(pipe_[0], QSocketNotifier::Read);
  connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { Read(); });
}

SignalWatcher::~SignalWatcher() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  writeEnd = -1;
  notifier_.reset();
  for (int fd : pipe_)
    if (fd >= 0) close(fd);
}

void SignalWatcher::Read() {
  unsigned char byte;
  while (read(pipe_[0], &byte, 1) == 1)
    if (handler_) handler_(byte);
}

}  // namespace korvane
