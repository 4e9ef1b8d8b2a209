#include "controls/cSysTray.h"

namespace korvane {

cSysTray::cSysTray(QObject* parent) : QObject(parent), icon_(this) {
  connect(&icon_, &QSystemTrayIcon::activated, this, &cSysTray::Activated);
}

bool cSysTray::Available() const {
  return probe_ ? probe_() : QSystemTrayIcon::isSystemTrayAvailable();
}

void cSysTray::SetInTray(bool inTray) {
  inTray_ = inTray;
  icon_.setVisible(inTray);
}

void cSysTray::Activated(QSystemTrayIcon::ActivationReason reason) {
  switch (reason) {
    case QSystemTrayIcon::Trigger: emit MouseDown(Qt::LeftButton); break;
    case QSystemTrayIcon::MiddleClick: emit MouseDown(Qt::MiddleButton); break;
    case QSystemTrayIcon::Context: emit MouseDown(Qt::RightButton); break;
    case QSystemTrayIcon::DoubleClick: emit MouseDblClick(Qt::LeftButton); break;
    case QSystemTrayIcon::Unknown: break;
  }
}

}  // namespace korvane
