// The main window's status bar: service state, queries a second, where the
// answers came from, pending requests and the leases of each pool, from the
// engines' counters sampled once a second.
#pragma once

#include <QLabel>
#include <QStatusBar>
#include <QStringList>

#include <cstddef>
#include <string>
#include <vector>

#include "dhcp/dhcp_server.h"
#include "dns/engine.h"

namespace korvane {

namespace modMain {

class Application;

struct StatusSample {
  double seconds = 0;  // when it was taken, on any steady clock
  bool running = false;
  std::string dnsFailure;  // why the DNS service could not start; "" when it did
  DnsCounters dns;
  std::size_t pending = 0;
  std::vector<PoolUse> pools;
};

StatusSample TakeStatusSample(Application& app, double seconds);

// The state field: "Running", "Paused", or "DNS service not started" after a
// failed bind (until the next start).
QString StateText(bool running, const std::string& dnsFailure);

// The fields' texts for the time from `before` to `now`: state, queries a
// second, answers a second by source, pending requests, leases per pool.
QStringList StatusFields(const StatusSample& before, const StatusSample& now);

class StatusBarFields {
 public:
  static constexpr int kFields = 5;
  void Build(QStatusBar* bar);
  void Show(const QStringList& texts);
  // The state field alone, with `why` as its tooltip.
  void ShowState(const QString& text, const QString& why);
  QStringList Texts() const;

 private:
  QLabel* labels_[kFields] = {};
};

}  // namespace modMain

}  // namespace korvane
