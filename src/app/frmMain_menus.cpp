// The main window's menu commands and the lease list.
#include <QDesktopServices>
#include <QUrl>

#include "app/frmAbout.h"
#include "app/frmMain.h"
#include "app/frmOptions.h"
#include "app/help.h"
#include "app/links.h"
#include "app/log_view.h"
#include "controls/ColList.h"
#include "editor/frmPerm.h"
#include "tools/frmQuery.h"
#include "wire/datetime.h"

namespace korvane {

namespace modMain {

void frmMain::mnuStartStop() { app_.StartStop(); }

void frmMain::mnuExit() { close(); }

void frmMain::mnuViewCache() {
  Guarded("frmMain mnuViewCache", [this] {
    // Saved first, so the editor shows the cache as it is now.
    modDNS::saveCache(app_.store());
    if (!editor_.Open(app_.store().PathOf("named.cache"))) boxes_.Show("Could not open text editor !");
  });
}

void frmMain::mnuClearWindow() {
  app_.log().ClearWindow();
  ListDNS_->Refresh();
}

void frmMain::mnuViewLog() { ShowView(false); }

void frmMain::mnuViewLeases() { ShowView(true); }

void frmMain::ShowView(bool leases) {
  ListDNS_->setVisible(!leases);
  listDHCP_->setVisible(leases);
  mnuViewW1_->setChecked(!leases);
  mnuViewW2_->setChecked(leases);
  DHCPRefresh();
}

void frmMain::mnuQuery() { Guarded("frmMain mnuQuery", [this] { ShowLookUp(); }); }

void frmMain::mnuRegDom() {
  Guarded("frmMain mnuRegDom", [this] {
    frmRegDom dialog(this);
    dialog.exec();
  });
}

void frmMain::mnuReload() { app_.Reload(); }

void frmMain::mnuClearCache() {
  Guarded("frmMain mnuClearCache", [this] {
    if (boxes_.Show("Are you sure you want to clear the cached records ?", MessageButtons::YesNo,
                    MessageIcon::Question, true) == MessageAnswer::Yes)
      modDNS::ClearCache(app_.store());
  });
}

void frmMain::mnuPerm() { Guarded("frmMain mnuPerm", [this] { ShowRecordEditor(); }); }

void frmMain::mnuOptions() { Guarded("frmMain mnuOptions", [this] { ShowOptions(); }); }

void frmMain::mnuHelpDHCP() { ShowHelp(this, "200"); }

void frmMain::mnuWebsite() { QDesktopServices::openUrl(QUrl(kWebsitePage)); }

void frmMain::mnuDump() { Guarded("frmMain mnuDump", [this] { app_.reporter().MenuDump(); }); }

void frmMain::mnuAbout() {
  Guarded("frmMain mnuAbout", [this] {
    if (splash_) splash_->EndSplash();
    frmAbout about(this);
    about.exec();
  });
}

void frmMain::ShowOptions() {
  frmOptions dialog(app_, this);
  connect(&dialog, &frmOptions::helpRequested, &dialog, [&dialog] { ShowHelp(&dialog, "options"); });
  dialog.exec();
}

void frmMain::ShowRecordEditor() {
  if (!recordEditor_) {
    // A window of its own that the main window owns, closed with it.
    recordEditor_ = new modEditor::frmPerm(app_, this);
    recordEditor_->setWindowFlag(Qt::Window);
    recordEditor_->setAttribute(Qt::WA_DeleteOnClose);
  }
  recordEditor_->show();
  recordEditor_->raise();
  recordEditor_->activateWindow();
}

modEditor::frmPerm* frmMain::RecordEditor() const { return recordEditor_; }

void frmMain::ShowLookUp() {
  if (!lookUp_) lookUp_ = new modQuery::frmQuery(app_, this);
  lookUp_->show();
  lookUp_->raise();
  lookUp_->activateWindow();
}

void frmMain::DHCPRefresh() {
  // The selection follows its client through the redraw.
  const QString selected = listDHCP_->Key(listDHCP_->ListIndex());
  listDHCP_->Clear();
  for (const clLease& lease : app_.dhcp().ActiveLeases()) {
    const int row = listDHCP_->AddItem(
        QString::fromStdString(lease.ClientName + "\t" + lease.IPaddr + "\t" +
                               FormatDateTime(lease.Expires)),
        QString::fromStdString(modDHCP::HWToHex(lease.ClientID, app_.reporter())));
    if (!selected.isEmpty() && listDHCP_->Key(row) == selected) listDHCP_->SetListIndex(row);
  }
}

void frmMain::mnuDHCPDel() {
  const int row = listDHCP_->ListIndex();
  if (row < 1) return;
  const std::string key = listDHCP_->Key(row).toStdString();
  if (boxes_.Show("Please re-boot that client to avoid IP-Address conflicts!",
                  MessageButtons::OKCancel, MessageIcon::Information) != MessageAnswer::OK)
    return;
  app_.dhcp().DeleteClient(modDHCP::HexToHW(key, app_.reporter()));
  DHCPRefresh();
  app_.log().Flush();
}

}  // namespace modMain

}  // namespace korvane
