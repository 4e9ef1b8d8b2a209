// Measures how long the event loop is kept from running its timers: a 10 ms
// timer notes the longest gap between two of its ticks. For the GUI load
// benchmark (--stall-probe); it prints its figure when it goes.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <cstdio>

namespace korvane {

class StallProbe : public QObject {
  Q_OBJECT

 public:
  static constexpr int kIntervalMs = 10;

  // `out` gets "stall-probe: longest event-loop stall N ms" at destruction
  // (null: nothing is printed). Measuring begins `settleMs` after now, so
  // that the start-up (loading, first paint) does not count as a stall.
  StallProbe(std::FILE* out, int settleMs, QObject* parent = nullptr);
  ~StallProbe() override;

  // The longest gap between two ticks beyond the interval, in milliseconds.
  qint64 LongestStallMs() const { return longest_; }

 private:
  void Tick();

  std::FILE* out_;
  QTimer timer_;
  QElapsedTimer clock_;
  qint64 last_ = -1;
  qint64 longest_ = 0;
};

}  // namespace korvane
