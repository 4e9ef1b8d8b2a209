// The main window: the title strip, the log window ListDNS or the lease list
// listDHCP, the menus, a status bar and the tray icon. It wires the
// operator's commands to the application object and follows its signals;
// the work itself is the application's.
#pragma once

#include <QAction>
#include <QMainWindow>
#include <QMenu>
#include <QPointer>
#include <QTimer>

#include <array>
#include <exception>
#include <functional>

#include "app/application.h"
#include "app/frmMain_status.h"
#include "app/prompts.h"
#include "tools/frmQuery.h"

namespace korvane {

class ColList;
class LogView;
class TitleStrip;
class cSysTray;

namespace modEditor {
class frmPerm;
}

namespace modMain {

class frmAbout;

class frmMain : public QMainWindow {
  Q_OBJECT

 public:
  frmMain(Application& app, MessageBoxes& boxes, TextEditor& editor, QWidget* parent = nullptr);
  ~frmMain() override;

  // Shows the start-up splash over the window.
  void ShowSplash();
  // Closes without asking, for a termination signal or the session's end:
  // logs the reason, saves, closes the sockets, then the window.
  void CloseFor(CloseReason reason);

  // The windows behind the Tools menu, each opened from its menu entry.
  void ShowOptions();
  // The record editor is modeless and one at a time: a second call brings it up.
  void ShowRecordEditor();
  modEditor::frmPerm* RecordEditor() const;
  void ShowLookUp();
  // The look-up window once it has been opened (null before).
  modQuery::frmQuery* LookUp() const { return lookUp_; }

  // Rebuilds listDHCP from the active leases.
  void DHCPRefresh();
  // The once-a-second sample of the counters into the status bar; also
  // brings a window hidden in a tray that has gone back on screen.
  void SampleStatus();

  LogView* ListDNS() const { return ListDNS_; }
  ColList* listDHCP() const { return listDHCP_; }
  TitleStrip* picTitle() const { return picTitle_; }
  cSysTray* SysTray() const { return SysTray_; }
  QMenu* mnuDHCP() const { return mnuDHCP_; }
  // The texts of the status bar's fields, left to right.
  QStringList StatusTexts() const;

 signals:
  // The program has closed: time to quit. `saved`: the cache and the leases
  // were written.
  void Closed(bool saved);

 protected:
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void BuildMenus();
  QAction* AddEntry(QMenu* menu, const char* name, const char* caption,
                    void (frmMain::*handler)());
  QMenu* AddMenu(const char* name, const char* caption);
  void AddBar(QMenu* menu, const char* name);
  void BuildStatusBar();
  // ListDNS and listDHCP, which share their place under the title strip.
  std::array<QWidget*, 2> Lists() const;
  void Form_Resize();
  void Unload(CloseReason reason);
  void ReportFault(const char* tag, const std::exception& error);
  // Runs `handler` and reports what it throws under `tag`.
  void Guarded(const char* tag, const std::function<void()>& handler);

  // Menu commands.
  void mnuStartStop();
  void mnuExit();
  void mnuViewCache();
  void mnuClearWindow();
  void mnuViewLog();
  void mnuViewLeases();
  void mnuQuery();
  void mnuRegDom();
  void mnuReload();
  void mnuClearCache();
  void mnuPerm();
  void mnuOptions();
  void mnuHelpDHCP();
  void mnuWebsite();
  void mnuDump();
  void mnuAbout();
  void mnuDHCPDel();
  void ShowView(bool leases);
  // The service state in the status bar and the tray icon (grey while the
  // server does not run), at once on every change.
  void ShowServiceState();
  void SysTrayMouse(Qt::MouseButton button);
  void RestoreFromTray();

  Application& app_;
  MessageBoxes& boxes_;
  TextEditor& editor_;
  TitleStrip* picTitle_ = nullptr;
  LogView* ListDNS_ = nullptr;
  ColList* listDHCP_ = nullptr;
  cSysTray* SysTray_ = nullptr;
  QMenu* mnuDHCP_ = nullptr;
  QAction* mnuStartStop_ = nullptr;
  QAction* mnuViewW1_ = nullptr;
  QAction* mnuViewW2_ = nullptr;
  QPointer<frmAbout> splash_;
  QPointer<modEditor::frmPerm> recordEditor_;
  QPointer<modQuery::frmQuery> lookUp_;  // made on first use, kept while the window lives
  StatusBarFields status_;
  StatusSample lastSample_;
  QTimer statusTimer_;
  bool closed_ = false;
  bool inTray_ = false;  // hidden: only the tray icon shows the program
};

}  // namespace modMain

}  // namespace korvane
