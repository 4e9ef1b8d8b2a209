#include "editor/frmPerm.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/application.h"
#include "controls/ColList.h"
#include "dhcp/frmPRDHCP.h"
#include "editor/frmPRDom.h"
#include "editor/frmPRRecords.h"
#include "store/record.h"

namespace korvane {

namespace modEditor {

namespace {

QString Text(const std::string& text) { return QString::fromStdString(text); }

PermModel ReadModel(modMain::Application& app) {
  // Without a readable named.perm the editor starts with the root alone.
  std::optional<std::vector<clPermRec>> entries = modDNS::ReadPermEntries(app.store());
  return PermModel(entries ? std::move(*entries) : std::vector<clPermRec>{});
}

}  // namespace

frmPerm::frmPerm(modMain::Application& app, QWidget* parent)
    : QMainWindow(parent),
      app_(app),
      model_(ReadModel(app)),
      context_{model_, app.boxes(), app.LocalIPs(), app.options().NAME} {
  setWindowTitle("Korvane - DNS Records");
  setObjectName("frmPerm");
  BuildMenus();
  auto* central = new QWidget;
  auto* layout = new QVBoxLayout(central);
  layout->addWidget(BuildTop());
  JHList_ = new ColList;
  JHList_->setObjectName("JHList");
  JHList_->SetColCount(3);
  const char* const captions[] = {"Type", "Name", "Data"};
  const int widths[] = {70, 170, 260};
  for (int column = 1; column <= 3; ++column) {
    JHList_->SetColCaption(column, captions[column - 1]);
    JHList_->SetColWidth(column, widths[column - 1]);
  }
  layout->addWidget(JHList_, 1);
  setCentralWidget(central);
  connect(JHList_, &ColList::Click, this, &frmPerm::ListClicked);
  connect(JHList_, &ColList::DblClick, this, &frmPerm::ListDblClick);
  connect(JHList_, &ColList::DeleteKey, this, [this] { Run("frmPerm mnuDelete", &frmPerm::mnuDelete); });
  connect(JHList_, &ColList::RightClick, this, [this](const QPoint& at) {
    ListClicked();
    if (SelectedId()) mnuItem_->popup(at);
  });
  resize(560, 420);
  RefreshList();
}

QWidget* frmPerm::BuildTop() {
  comDomain_ = new QComboBox;
  comDomain_->setObjectName("comDomain");
  comDomain_->setMinimumContentsLength(28);
  cmdUp_ = new QPushButton("Up One Level");
  cmdUp_->setObjectName("cmdUp");
  auto* top = new QWidget;
  auto* row = new QHBoxLayout(top);
  row->setContentsMargins(0, 0, 0, 0);
  row->addWidget(new QLabel("Domain:"));
  row->addWidget(comDomain_, 1);
  row->addWidget(cmdUp_);
  connect(comDomain_, &QComboBox::activated, this, &frmPerm::DomainChosen);
  connect(cmdUp_, &QPushButton::clicked, this, [this] { Run("frmPerm cmdUp", &frmPerm::cmdUp_Click); });
  return top;
}

QAction* frmPerm::AddCommand(QMenu* menu, const char* name, const char* caption, void (frmPerm::*handler)()) {
  QAction* action = menu->addAction(caption);
  action->setObjectName(name);
  const std::string tag = std::string("frmPerm ") + name;
  connect(action, &QAction::triggered, this, [this, tag, handler] { Run(tag.c_str(), handler); });
  return action;
}

void frmPerm::BuildMenus() {
  QMenu* file = menuBar()->addMenu("&File");
  file->setObjectName("mnuFile");
  AddCommand(file, "mnuNewDomain", "&New Domain...", &frmPerm::mnuNewDomain);
  QMenu* add = file->addMenu("&New");
  add->setObjectName("mnuNew");
  AddCommand(add, "mnuNewHost", "&A-Record (Name to IP-Address)", &frmPerm::mnuNewHost);
  AddCommand(add, "mnuNewNS", "&NS-Record (DNS Server)", &frmPerm::mnuNewNS);
  AddCommand(add, "mnuNewCNAME", "&CNAME-Record (Alias)", &frmPerm::mnuNewCNAME);
  AddCommand(add, "mnuNewMX", "&MX-Record (Mail Server)", &frmPerm::mnuNewMX);
  AddCommand(add, "mnuNewDHCP", "&DHCP-Record (Dynamic IP)", &frmPerm::mnuNewDHCP);
  add->addSeparator();
  AddCommand(add, "mnuNewSub", "Sub &Domain", &frmPerm::mnuNewSub);
  file->addSeparator();
  AddCommand(file, "mnuSave", "&Save", &frmPerm::mnuSave)->setShortcut(QKeySequence::Save);
  file->addSeparator();
  QAction* closing = file->addAction("&Close");
  closing->setObjectName("mnuClose");
  connect(closing, &QAction::triggered, this, &QWidget::close);
  mnuItem_ = menuBar()->addMenu("&Item");
  mnuItem_->setObjectName("mnuItem");
  AddCommand(mnuItem_, "mnuOpen", "&Open", &frmPerm::mnuOpen);
  AddCommand(mnuItem_, "mnuProp", "&Properties...", &frmPerm::mnuProp);
  AddCommand(mnuItem_, "mnuDelete", "&Delete", &frmPerm::mnuDelete);
}

QAction* frmPerm::Command(const char* name) const { return findChild<QAction*>(name); }

void frmPerm::Run(const char* tag, void (frmPerm::*handler)()) {
  try {
    (this->*handler)();
  } catch (const std::exception& e) {
    ReportException(app_.reporter(), tag, e);
  }
}

void frmPerm::RefreshList() {
  JHList_->Clear();
  for (const PermRow& row : model_.RefreshList()) {
    const int index = JHList_->AddItem(Text(row.type + "\t" + row.name + "\t" + row.data), QString::number(row.id));
    if (row.id == model_.CurItem()) JHList_->SetListIndex(index);
  }
  shownDomains_ = model_.Domains();
  comDomain_->clear();
  for (const std::string& domain : shownDomains_) {
    comDomain_->addItem(Text(DomainCaption(domain)));
    if (domain == model_.CurDomain()) comDomain_->setCurrentIndex(comDomain_->count() - 1);
  }
  UpdateCommands();
}

void frmPerm::UpdateCommands() {
  const clPermRec* selected = model_.Entry(SelectedId());
  const bool domain = selected && selected->RecType == RecordType::kSOA;
  const bool editable = selected && selected->RecType != RecordType::kPTR;
  Command("mnuOpen")->setEnabled(domain);
  Command("mnuProp")->setEnabled(editable);
  Command("mnuDelete")->setEnabled(selected != nullptr);
  cmdUp_->setEnabled(!model_.CurDomain().empty());
}

int frmPerm::SelectedId() const { return JHList_->Key(JHList_->ListIndex()).toInt(); }

void frmPerm::SelectEntry(int id) {
  model_.SetCurItem(id);
  for (int row = 1; row <= JHList_->ListCount(); ++row)
    if (JHList_->Key(row).toInt() == id) JHList_->SetListIndex(row);
  UpdateCommands();
}

void frmPerm::ListClicked() {
  model_.SetCurItem(SelectedId());
  UpdateCommands();
}

void frmPerm::ListDblClick() {
  ListClicked();
  const clPermRec* selected = model_.Entry(SelectedId());
  if (!selected) return;
  if (selected->RecType == RecordType::kSOA)
    Run("frmPerm mnuOpen", &frmPerm::mnuOpen);
  else
    Run("frmPerm mnuProp", &frmPerm::mnuProp);
}

void frmPerm::DomainChosen(int index) {
  if (index >= 0 && index < static_cast<int>(shownDomains_.size())) model_.SetCurDomain(shownDomains_[index]);
  RefreshList();
}

void frmPerm::cmdUp_Click() {
  model_.UpOneLevel();
  RefreshList();
}

void frmPerm::OpenDialog(frmPRDialog* dialog) {
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  // The editor waits for the dialog, and so does the main window: nothing
  // may delete what the dialog edits meanwhile.
  dialog->setWindowModality(Qt::ApplicationModal);
  connect(dialog, &QDialog::accepted, this, [this, dialog] {
    model_.SetCurItem(dialog->Added());
    RefreshList();
  });
  connect(dialog, &QDialog::rejected, this, &frmPerm::RefreshList);
  dialog_ = dialog;
  dialog->show();
}

template <class Dialog>
void frmPerm::OpenNew() {
  model_.SetCurItem(0);
  OpenDialog(new Dialog(context_, 0, this));
}

void frmPerm::mnuNewDomain() {
  model_.SetCurItem(0);
  OpenDialog(new frmPRDom(context_, 0, NewDomainForm(model_, "", context_.ownName), this));
}

void frmPerm::mnuNewSub() {
  model_.SetCurItem(0);
  OpenDialog(new frmPRDom(context_, 0, NewDomainForm(model_, model_.CurDomain(), context_.ownName), this));
}

void frmPerm::mnuNewHost() { OpenNew<frmPRHost>(); }

void frmPerm::mnuNewNS() { OpenNew<frmPRNS>(); }

void frmPerm::mnuNewCNAME() { OpenNew<frmPRCNAME>(); }

void frmPerm::mnuNewMX() { OpenNew<frmPRMX>(); }

void frmPerm::mnuNewDHCP() { OpenNew<modDHCP::frmPRDHCP>(); }

void frmPerm::mnuOpen() {
  const clPermRec* selected = model_.Entry(SelectedId());
  if (!selected || selected->RecType != RecordType::kSOA) return;
  model_.SetCurDomain(selected->Domain);
  RefreshList();
}

void frmPerm::mnuProp() {
  const int id = SelectedId();
  const clPermRec* selected = model_.Entry(id);
  if (!selected) return;
  model_.SetCurItem(id);
  switch (selected->RecType) {
    case RecordType::kSOA: OpenDialog(new frmPRDom(context_, id, {}, this)); break;
    case RecordType::kA: OpenDialog(new frmPRHost(context_, id, this)); break;
    case RecordType::kNS: OpenDialog(new frmPRNS(context_, id, this)); break;
    case RecordType::kCNAME: OpenDialog(new frmPRCNAME(context_, id, this)); break;
    case RecordType::kMX: OpenDialog(new frmPRMX(context_, id, this)); break;
    case RecordType::kDHCP: OpenDialog(new modDHCP::frmPRDHCP(context_, id, this)); break;
    default: break;  // reverse records read from the file have no dialog
  }
}

void frmPerm::mnuDelete() {
  const int id = SelectedId();
  const clPermRec* selected = model_.Entry(id);
  if (!selected) return;
  // A single record goes without asking: nothing is written before Save.
  if (selected->RecType == RecordType::kSOA &&
      app_.boxes().Show("Delete everything in Domain " + selected->Domain + " ?", MessageButtons::YesNo,
                        MessageIcon::Question, true) != MessageAnswer::Yes)
    return;
  model_.Delete(id);
  RefreshList();
}

void frmPerm::mnuSave() { Save(); }

bool frmPerm::Save() {
  if (!app_.SaveRecords(model_.ForSave())) return false;
  model_.Saved();
  RefreshList();
  return true;
}

void frmPerm::closeEvent(QCloseEvent* event) {
  if (model_.Changed() &&
      app_.boxes().Show("Save DNS Records ?", MessageButtons::YesNo, MessageIcon::Question) == MessageAnswer::Yes &&
      !Save()) {
    event->ignore();  // the changes stay until they are written or let go
    return;
  }
  event->accept();
}

}  // namespace modEditor

}  // namespace korvane
