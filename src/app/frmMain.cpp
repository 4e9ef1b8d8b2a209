#include "app/frmMain.h"

#include <QCloseEvent>
#include <QElapsedTimer>
#include <QMenuBar>
#include <QStatusBar>

#include "app/frmAbout.h"
#include "app/log_view.h"
#include "app/resources.h"
#include "app/title_strip.h"
#include "controls/ColList.h"
#include "controls/cSysTray.h"

namespace korvane {

namespace modMain {

namespace {

// Seconds on a steady clock, for the status sample's rates.
double SteadySeconds() {
  static QElapsedTimer clock = [] {
    QElapsedTimer started;
    started.start();
    return started;
  }();
  return double(clock.nsecsElapsed()) / 1e9;
}

}  // namespace

frmMain::frmMain(Application& app, MessageBoxes& boxes, TextEditor& editor, QWidget* parent)
    : QMainWindow(parent), app_(app), boxes_(boxes), editor_(editor) {
  LoadResources();
  setObjectName("frmMain");
  setWindowTitle("Korvane");
  setWindowIcon(QIcon(":/korvane.svg"));

  auto* central = new QWidget(this);
  central->setObjectName("central");
  setCentralWidget(central);
  picTitle_ = new TitleStrip(central);
  picTitle_->SetFaultHandler([this](const char* tag, const std::exception& e) { ReportFault(tag, e); });
  ListDNS_ = new LogView(app_.log(), central);
  ListDNS_->setObjectName("ListDNS");
  listDHCP_ = new ColList(central);
  listDHCP_->setObjectName("listDHCP");
  // Form_Load: the lease list's three columns.
  listDHCP_->SetColCount(3);
  listDHCP_->SetColCaption(1, "Name");
  listDHCP_->SetColWidth(1, 150);
  listDHCP_->SetColCaption(2, "IP-Address");
  listDHCP_->SetColWidth(2, 100);
  listDHCP_->SetColCaption(3, "Lease Expires");
  listDHCP_->hide();
  for (QWidget* list : Lists()) list->move(0, TitleStrip::kHeight);
  central->installEventFilter(this);

  BuildMenus();
  BuildStatusBar();

  SysTray_ = new cSysTray(this);
  SysTray_->setObjectName("SysTray");
  SysTray_->SetTrayTip("Korvane");
  SysTray_->SetInTray(SysTray_->Available());
  connect(SysTray_, &cSysTray::MouseDown, this, &frmMain::SysTrayMouse);
  connect(SysTray_, &cSysTray::MouseDblClick, this, &frmMain::SysTrayMouse);

  connect(&app_, &Application::ServiceStateChanged, this, [this](bool, const QString& caption) {
    mnuStartStop_->setText(caption);
    ShowServiceState();
  });
  connect(&app_, &Application::DnsServiceFailed, this, &frmMain::ShowServiceState);
  connect(&app_, &Application::LeasesChanged, this, &frmMain::DHCPRefresh);
  connect(listDHCP_, &ColList::RightClick, this, [this](const QPoint& where) {
    if (listDHCP_->ListIndex() >= 1) mnuDHCP_->popup(where);
  });
  connect(listDHCP_, &ColList::DeleteKey, this, &frmMain::mnuDHCPDel);

  statusTimer_.setInterval(1000);
  connect(&statusTimer_, &QTimer::timeout, this, &frmMain::SampleStatus);
  statusTimer_.start();
  lastSample_ = TakeStatusSample(app_, SteadySeconds());
  status_.Show(StatusFields(lastSample_, lastSample_));
  ShowServiceState();
  resize(760, 460);
}

frmMain::~frmMain() = default;

std::array<QWidget*, 2> frmMain::Lists() const { return {ListDNS_, listDHCP_}; }

QAction* frmMain::AddEntry(QMenu* menu, const char* name, const char* caption,
                           void (frmMain::*handler)()) {
  QAction* action = menu->addAction(caption);
  action->setObjectName(name);
  connect(action, &QAction::triggered, this, handler);
  return action;
}

QMenu* frmMain::AddMenu(const char* name, const char* caption) {
  QMenu* menu = menuBar()->addMenu(caption);
  menu->setObjectName(name);
  return menu;
}

void frmMain::AddBar(QMenu* menu, const char* name) { menu->addSeparator()->setObjectName(name); }

void frmMain::BuildMenus() {
  QMenu* file = AddMenu("mnuFile", "&File");
  mnuStartStop_ = AddEntry(file, "mnuStartStop", "&Start Server", &frmMain::mnuStartStop);
  mnuStartStop_->setText(QString::fromStdString(app_.StartStopCaption()));
  AddBar(file, "mnuBar4");
  AddEntry(file, "mnuExit", "E&xit", &frmMain::mnuExit);

  QMenu* view = AddMenu("mnuView", "&View");
  AddEntry(view, "mnuViewCache", "&DNS Cache", &frmMain::mnuViewCache);
  AddBar(view, "mnuBar2");
  AddEntry(view, "mnuClearWindow", "&Clear Log Window", &frmMain::mnuClearWindow);
  AddBar(view, "mnuBar1");
  mnuViewW1_ = AddEntry(view, "mnuViewW1", "&Active Log", &frmMain::mnuViewLog);
  mnuViewW2_ = AddEntry(view, "mnuViewW2", "DHCP &Leases", &frmMain::mnuViewLeases);
  for (QAction* entry : {mnuViewW1_, mnuViewW2_}) entry->setCheckable(true);
  mnuViewW1_->setChecked(true);

  QMenu* tools = AddMenu("mnuTools", "&Tools");
  AddEntry(tools, "mnuQuery", "&DNS Look Up...", &frmMain::mnuQuery);
  AddBar(tools, "mnuBar3");
  AddEntry(tools, "mnuRegDom", "Register Internet Domain Name...", &frmMain::mnuRegDom);
  AddBar(tools, "mnuBar85");
  AddEntry(tools, "mnuReload", "&Reload DNS Records", &frmMain::mnuReload);
  AddEntry(tools, "mnuClearCache", "&Clear DNS Cache", &frmMain::mnuClearCache);
  AddBar(tools, "mnuBar5");
  AddEntry(tools, "mnuPerm", "&Edit DNS Records...", &frmMain::mnuPerm);
  AddBar(tools, "mnuBar6");
  AddEntry(tools, "mnuOptions", "&Options...", &frmMain::mnuOptions);

  QMenu* help = AddMenu("mnuHelp", "&Help");
  AddEntry(help, "mnuHelpDHCP", "&DHCP Configuration", &frmMain::mnuHelpDHCP);
  AddBar(help, "mnuBar9");
  AddEntry(help, "mnuWebsite", "Korvane &Website", &frmMain::mnuWebsite);
  AddBar(help, "mnuBar8");
  AddEntry(help, "mnuDump", "&Support...", &frmMain::mnuDump);
  AddBar(help, "mnuBar7");
  AddEntry(help, "mnuAbout", "&About...", &frmMain::mnuAbout);

  // Not on the bar: the lease list's pop-up.
  mnuDHCP_ = new QMenu("DHCP", this);
  mnuDHCP_->setObjectName("mnuDHCP");
  AddEntry(mnuDHCP_, "mnuDHCPDel", "Delete", &frmMain::mnuDHCPDel);
}

void frmMain::BuildStatusBar() {
  statusBar()->setSizeGripEnabled(true);
  status_.Build(statusBar());
}

QStringList frmMain::StatusTexts() const { return status_.Texts(); }

void frmMain::SampleStatus() {
  try {
    StatusSample now = TakeStatusSample(app_, SteadySeconds());
    status_.Show(StatusFields(lastSample_, now));
    lastSample_ = std::move(now);
    // A tray that went away (a desktop restart) must not keep the window hidden.
    const bool available = SysTray_->Available();
    if (inTray_ && !available) RestoreFromTray();
    if (SysTray_->InTray() != (available && !closed_)) SysTray_->SetInTray(available && !closed_);
  } catch (const std::exception& e) {
    ReportFault("frmMain Timer", e);
  }
}

void frmMain::ShowServiceState() {
  const bool running = app_.ServerStarted();
  status_.ShowState(StateText(running, app_.DnsBindFailure()),
                    QString::fromStdString(app_.DnsBindFailure()));
  const QIcon icon(":/korvane.svg");
  SysTray_->SetTrayIcon(running ? icon : QIcon(icon.pixmap(64, QIcon::Disabled)));
}

void frmMain::ShowSplash() { splash_ = frmAbout::ShowSplash(this); }

void frmMain::ReportFault(const char* tag, const std::exception& error) {
  ReportException(app_.reporter(), tag, error);
}

void frmMain::Guarded(const char* tag, const std::function<void()>& handler) {
  try {
    handler();
  } catch (const std::exception& e) {
    ReportFault(tag, e);
  }
  app_.log().Flush();
}

bool frmMain::eventFilter(QObject* watched, QEvent* event) {
  if (watched == centralWidget() && event->type() == QEvent::Resize) Form_Resize();
  return QMainWindow::eventFilter(watched, event);
}

void frmMain::Form_Resize() {
  try {
    const QWidget* inner = centralWidget();
    picTitle_->setGeometry(0, 0, inner->width(), TitleStrip::kHeight);
    picTitle_->PlaceLabels();
    for (QWidget* list : Lists()) {
      const int height = inner->height() - list->y();
      if (height > 0) list->setGeometry(0, list->y(), inner->width(), height);
    }
  } catch (const std::exception& e) {
    ReportFault("frmMain Resize", e);
  }
}

void frmMain::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() != QEvent::WindowStateChange || !isMinimized() || closed_) return;
  try {
    // Without a tray the window stays a normal minimised window: never lost.
    if (!SysTray_->Available()) return;
    SysTray_->SetInTray(true);
    inTray_ = true;
    // Hidden once the state change is over.
    QTimer::singleShot(0, this, [this] {
      if (inTray_) hide();
    });
  } catch (const std::exception& e) {
    ReportFault("frmMain Resize", e);
  }
}

void frmMain::SysTrayMouse(Qt::MouseButton button) {
  try {
    if (button == Qt::LeftButton && inTray_) RestoreFromTray();
  } catch (const std::exception& e) {
    ReportFault("frmMain SysTray", e);
  }
}

void frmMain::RestoreFromTray() {
  inTray_ = false;
  showNormal();
  raise();
  activateWindow();
}

void frmMain::closeEvent(QCloseEvent* event) {
  if (closed_) {
    event->accept();
    return;
  }
  try {
    if (boxes_.Show("Exit Korvane ?", MessageButtons::YesNo, MessageIcon::Question) !=
        MessageAnswer::Yes) {
      event->ignore();
      return;
    }
  } catch (const std::exception& e) {
    ReportFault("frmMain QueryUnload", e);
    event->ignore();
    return;
  }
  Unload(CloseReason::kUser);
  event->accept();
}

void frmMain::CloseFor(CloseReason reason) {
  if (closed_) return;
  Unload(reason);
  close();
}

void frmMain::Unload(CloseReason reason) {
  if (closed_) return;
  // A window in the tray comes back in normal state before it goes.
  if (inTray_) RestoreFromTray();
  closed_ = true;
  statusTimer_.stop();
  SysTray_->SetInTray(false);
  emit Closed(app_.Close(reason));
}

}  // namespace modMain

}  // namespace korvane
