// Turns SIGINT, SIGTERM and SIGHUP into calls on the event loop: the signal
// handler only writes the signal number into a pipe.
#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>

namespace korvane {

class SignalWatcher : public QObject {
  Q_OBJECT

 public:
  explicit SignalWatcher(QObject* parent = nullptr);
  ~SignalWatcher() override;

  // Called on the event loop with the signal number.
  void SetHandler(std::function<void(int)> handler) { handler_ = std::move(handler); }

 private:
  void Read();

  int pipe_[2] = {-1, -1};
  std::unique_ptr<QSocketNotifier> notifier_;
  std::function<void(int)> handler_;
};

}  // namespace korvane
