// The progress of a long load. Every so often it lets the event loop run:
// signals, sockets, timers and painting get through (user input waits until
// the load is done, so no command can start another load meanwhile). It
// hands the share read to the display the window gives, prints it headless
// once a load takes longer than a second, and stops the load as soon as the
// program is closing.
#pragma once

#include <chrono>
#include <functional>

#include "app/log.h"
#include "wire/services.h"

namespace korvane {

namespace modMain {

class LoadProgress : public ProgressSink {
 public:
  // `closing` says whether the program is closing.
  LoadProgress(Log& log, std::function<bool()> closing) : log_(log), closing_(std::move(closing)) {}

  // The window's display (null: none).
  void SetDisplay(ProgressSink* display) { display_ = display; }

  void SetProgress(int percent) override;
  void CloseProgress() override;
  bool StopRequested() override { return closing_(); }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kEventsEvery{50};
  static constexpr std::chrono::milliseconds kEchoEvery{1000};

  Log& log_;
  std::function<bool()> closing_;
  ProgressSink* display_ = nullptr;
  bool running_ = false;  // a file is being read
  Clock::time_point started_, lastEvents_, lastEcho_;
  int calls_ = 0;
  int shown_ = -1;  // the value the display has
};

}  // namespace modMain

}  // namespace korvane
