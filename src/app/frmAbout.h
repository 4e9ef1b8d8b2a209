// The About window: the program's name, version and a line on what it is.
// At start-up it is a splash that goes by itself after 3 seconds or when it
// loses the focus; from the Help menu it is modal and stays until closed.
#pragma once

#include <QDialog>
#include <QTimer>

namespace korvane {

namespace modMain {

// "Korvane - DNS and DHCP server for your network" and the like: the second
// caption line of the title strip and the About window.
extern const char* const kCopyLine;

class frmAbout : public QDialog {
  Q_OBJECT

 public:
  static constexpr int kSplashMs = 3000;

  explicit frmAbout(QWidget* parent = nullptr);

  // The start-up splash, modeless over `owner`; it deletes itself when it goes.
  static frmAbout* ShowSplash(QWidget* owner);
  bool IsSplash() const { return timer_.isActive(); }
  // Ends the splash now (its timer off, the window closed).
  void EndSplash();

 protected:
  void changeEvent(QEvent* event) override;

 private:
  QTimer timer_;
  bool wasActive_ = false;
};

// The registration of an Internet domain name: says what it is and opens a
// registration page in the web browser.
class frmRegDom : public QDialog {
  Q_OBJECT

 public:
  explicit frmRegDom(QWidget* parent = nullptr);
};

}  // namespace modMain

}  // namespace korvane
