#include "app/frmMain_status.h"

#include <cmath>

#include "app/application.h"

namespace korvane {

namespace modMain {

namespace {

// Per second over the sample's span; a counter that went back (a new
// engine) counts from zero.
QString Rate(uint64_t before, uint64_t now, double seconds) {
  const uint64_t delta = now >= before ? now - before : now;
  return QString::number(std::llround(seconds > 0 ? double(delta) / seconds : 0.0));
}

}  // namespace

StatusSample TakeStatusSample(Application& app, double seconds) {
  StatusSample sample;
  sample.seconds = seconds;
  sample.running = app.ServerStarted();
  sample.dnsFailure = app.DnsBindFailure();
  sample.dns = app.dns().Counters();
  sample.pending = app.dns().Requests().size();
  sample.pools = app.dhcp().PoolsInUse();
  return sample;
}

QString StateText(bool running, const std::string& dnsFailure) {
  if (running) return "Running";
  return dnsFailure.empty() ? "Paused" : "DNS service not started";
}

QStringList StatusFields(const StatusSample& before, const StatusSample& now) {
  const double span = now.seconds - before.seconds;
  QStringList fields;
  fields << StateText(now.running, now.dnsFailure);
  fields << Rate(before.dns.queries, now.dns.queries, span) + " queries/s";
  fields << "Answers/s: cache " + Rate(before.dns.answersCache, now.dns.answersCache, span) +
                ", own " + Rate(before.dns.answersOwn, now.dns.answersOwn, span) +
                ", others " + Rate(before.dns.answersOthers, now.dns.answersOthers, span);
  fields << "Pending " + QString::number(now.pending);
  QStringList pools;
  for (const PoolUse& pool : now.pools)
    pools << QString::fromStdString(pool.IPaddr) + " " + QString::number(pool.inUse) + "/" +
                 QString::number(pool.size);
  fields << (pools.isEmpty() ? QString("No DHCP pools") : "Leases " + pools.join(", "));
  return fields;
}

void StatusBarFields::Build(QStatusBar* bar) {
  static const char* const names[kFields] = {"lblState", "lblRate", "lblAnswers", "lblPending",
                                             "lblLeases"};
  for (int i = 0; i < kFields; ++i) {
    labels_[i] = new QLabel(bar);
    labels_[i]->setObjectName(names[i]);
    labels_[i]->setContentsMargins(4, 0, 4, 0);
    // The last field takes what is left; the others keep their size.
    bar->addWidget(labels_[i], i == kFields - 1 ? 1 : 0);
  }
}

void StatusBarFields::Show(const QStringList& texts) {
  for (int i = 0; i < kFields && i < texts.size(); ++i)
    if (labels_[i] && labels_[i]->text() != texts[i]) labels_[i]->setText(texts[i]);
}

void StatusBarFields::ShowState(const QString& text, const QString& why) {
  if (!labels_[0]) return;
  labels_[0]->setText(text);
  labels_[0]->setToolTip(why);
}

QStringList StatusBarFields::Texts() const {
  QStringList texts;
  for (QLabel* label : labels_) texts << (label ? label->text() : QString());
  return texts;
}

}  // namespace modMain

}  // namespace korvane
