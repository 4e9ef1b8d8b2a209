#include "app/load_progress.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <string>

namespace korvane {

namespace modMain {

void LoadProgress::SetProgress(int percent) {
  // The display hears of each new value once, not of every line.
  if (display_ && percent != shown_) display_->SetProgress(percent);
  shown_ = percent;
  // The clock is read every few lines only: a line costs well under a
  // microsecond.
  if (++calls_ % 64 != 0 && running_) return;
  const Clock::time_point now = Clock::now();
  if (!running_) {
    running_ = true;
    started_ = lastEvents_ = lastEcho_ = now;
    return;
  }
  if (now - lastEcho_ >= kEchoEvery && now - started_ >= kEchoEvery) {
    lastEcho_ = now;
    log_.Echo("-> " + std::to_string(percent) + "% read");
  }
  if (now - lastEvents_ >= kEventsEvery) {
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    lastEvents_ = Clock::now();
  }
}

void LoadProgress::CloseProgress() {
  running_ = false;
  calls_ = 0;
  shown_ = -1;
  if (display_) display_->CloseProgress();
}

}  // namespace modMain

}  // namespace korvane
