#include "app/stall_probe.h"

#include <algorithm>

namespace korvane {

StallProbe::StallProbe(std::FILE* out, int settleMs, QObject* parent) : QObject(parent), out_(out) {
  timer_.setTimerType(Qt::PreciseTimer);
  timer_.setInterval(kIntervalMs);
  connect(&timer_, &QTimer::timeout, this, &StallProbe::Tick);
  clock_.start();
  QTimer::singleShot(settleMs, &timer_, qOverload<>(&QTimer::start));
}

StallProbe::~StallProbe() {
  if (!out_) return;
  std::fprintf(out_, "stall-probe: longest event-loop stall %lld ms\n",
               static_cast<long long>(longest_));
  std::fflush(out_);
}

void StallProbe::Tick() {
  const qint64 now = clock_.elapsed();
  if (last_ >= 0) longest_ = std::max(longest_, now - last_ - kIntervalMs);
  last_ = now;
}

}  // namespace korvane
