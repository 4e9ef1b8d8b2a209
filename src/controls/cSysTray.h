// The tray icon: TrayIcon, TrayTip and InTray over QSystemTrayIcon, with the
// mouse events of the icon. Many Linux desktops (and Xvfb) have no tray;
// Available() says whether one is there now.
#pragma once

#include <QIcon>
#include <QObject>
#include <QString>
#include <QSystemTrayIcon>

#include <functional>

namespace korvane {

class cSysTray : public QObject {
  Q_OBJECT

 public:
  explicit cSysTray(QObject* parent = nullptr);

  QIcon TrayIcon() const { return icon_.icon(); }
  void SetTrayIcon(const QIcon& icon) { icon_.setIcon(icon); }
  QString TrayTip() const { return icon_.toolTip(); }
  void SetTrayTip(const QString& tip) { icon_.setToolTip(tip); }
  // The icon stands in the tray.
  bool InTray() const { return inTray_; }
  void SetInTray(bool inTray);

  // Whether the desktop has a tray now.
  bool Available() const;
  // Replaces the question asked of the desktop (tests).
  void SetAvailabilityProbe(std::function<bool()> probe) { probe_ = std::move(probe); }

 signals:
  void MouseDown(Qt::MouseButton button);
  void MouseDblClick(Qt::MouseButton button);

 private:
  void Activated(QSystemTrayIcon::ActivationReason reason);

  QSystemTrayIcon icon_;
  bool inTray_ = false;
  std::function<bool()> probe_;
};

}  // namespace korvane
