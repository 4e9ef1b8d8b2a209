#include "app/frmOptions.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QFileDialog>
#include <QFocusEvent>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "app/application.h"
#include "controls/ctlTTL.h"
#include "store/options_form.h"
#include "wire/clean_name.h"
#include "wire/ip.h"

namespace korvane {

namespace modMain {

namespace {

QString Text(const std::string& text) { return QString::fromStdString(text); }

QGroupBox* Frame(const char* caption, QLayout* contents) {
  auto* frame = new QGroupBox(QString::fromUtf8(caption));
  frame->setLayout(contents);
  return frame;
}

QHBoxLayout* Row(std::initializer_list<QWidget*> widgets) {
  auto* row = new QHBoxLayout;
  for (QWidget* widget : widgets) row->addWidget(widget);
  return row;
}

}  // namespace

frmOptions::frmOptions(Application& app, QWidget* parent) : QDialog(parent), app_(app) {
  setObjectName("frmOptions");
  setWindowTitle("Korvane - Options");
  auto* left = new QVBoxLayout;
  left->addWidget(NameFrame());
  left->addWidget(HostsFrame());
  left->addWidget(InterfaceFrame());
  left->addWidget(LogFrame());
  left->addStretch(1);
  // What decides how names are resolved stands together on the right.
  auto* right = new QVBoxLayout;
  right->addWidget(ResolutionFrame(), 1);
  right->addWidget(CNAMEFrame());
  right->addWidget(CacheFrame());
  auto* columns = new QHBoxLayout;
  columns->addLayout(left, 1);
  columns->addLayout(right, 1);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(columns);
  layout->addSpacing(6);
  layout->addLayout(Buttons());
  layout->setSizeConstraint(QLayout::SetFixedSize);
  for (QWidget* box : EditBoxes()) box->installEventFilter(this);
  Run("frmOptions Form_Load", &frmOptions::Form_Load);
}

void frmOptions::Run(const char* tag, void (frmOptions::*handler)()) {
  try {
    (this->*handler)();
  } catch (const std::exception& e) {
    ReportException(app_.reporter(), tag, e);
  }
}

void frmOptions::OnClick(QPushButton* button, const char* tag, void (frmOptions::*handler)()) {
  connect(button, &QPushButton::clicked, this, [this, tag, handler] { Run(tag, handler); });
}

std::vector<QWidget*> frmOptions::EditBoxes() const { return {txtName_, txtHosts_, comBind_}; }

QWidget* frmOptions::NameFrame() {
  txtName_ = new QLineEdit;
  txtName_->setObjectName("txtName");
  txtName_->setMinimumWidth(260);
  return Frame("Full Domain Name of this DNS Server:", Row({txtName_}));
}

QWidget* frmOptions::HostsFrame() {
  txtHosts_ = new QLineEdit("/etc/hosts");
  txtHosts_->setObjectName("txtHosts");
  txtHosts_->setPlaceholderText("/etc/hosts");
  cmdBrowse_ = new QPushButton("Browse");
  cmdBrowse_->setObjectName("cmdBrowse");
  cmdEdit_ = new QPushButton("Edit...");
  cmdEdit_->setObjectName("cmdEdit");
  ttlHosts_ = new ctlTTL;
  ttlHosts_->setObjectName("ttlHosts");
  auto* buttons = Row({cmdBrowse_, cmdEdit_});
  buttons->addStretch(1);
  auto* contents = new QVBoxLayout;
  contents->addWidget(txtHosts_);
  contents->addLayout(buttons);
  contents->addWidget(new QLabel("Hosts file records TTL:"));
  contents->addWidget(ttlHosts_);
  OnClick(cmdBrowse_, "frmOptions cmdBrowse", &frmOptions::cmdBrowse_Click);
  OnClick(cmdEdit_, "frmOptions cmdEdit", &frmOptions::cmdEdit_Click);
  return Frame("Hosts File:", contents);
}

QWidget* frmOptions::InterfaceFrame() {
  comBind_ = new QComboBox;
  comBind_->setObjectName("comBind");
  comBind_->setEditable(true);
  comBind_->setInsertPolicy(QComboBox::NoInsert);
  comBind_->setMinimumContentsLength(15);
  auto* contents = new QVBoxLayout;
  contents->addWidget(new QLabel("Bind DNS to IP address:"));
  contents->addWidget(comBind_);
  return Frame("DNS Interface:", contents);
}

QWidget* frmOptions::ResolutionFrame() {
  chkRecur_ = new QCheckBox("Use external record resolution:");
  chkRecur_->setObjectName("chkRecur");
  List_ = new QListWidget;
  List_->setObjectName("List");
  List_->setMinimumHeight(90);
  // The list takes the height the left column leaves, no more.
  List_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Ignored);
  cmdAdd_ = new QPushButton("Add...");
  cmdAdd_->setObjectName("cmdAdd");
  cmdRemove_ = new QPushButton("Remove");
  cmdRemove_->setObjectName("cmdRemove");
  auto* buttons = new QVBoxLayout;
  buttons->addWidget(cmdAdd_);
  buttons->addWidget(cmdRemove_);
  buttons->addStretch(1);
  auto* list = new QHBoxLayout;
  list->addWidget(List_, 1);
  list->addLayout(buttons);
  auto* contents = new QVBoxLayout;
  contents->addWidget(chkRecur_);
  contents->addWidget(new QLabel("External DNS Servers IP Addresses:"));
  contents->addLayout(list, 1);
  OnClick(cmdAdd_, "frmOptions cmdAdd", &frmOptions::cmdAdd_Click);
  OnClick(cmdRemove_, "frmOptions cmdRemove", &frmOptions::cmdRemove_Click);
  connect(List_, &QListWidget::itemSelectionChanged, this,
          [this] { cmdRemove_->setEnabled(!List_->selectedItems().isEmpty()); });
  return Frame("DNS Record resolution:", contents);
}

QWidget* frmOptions::CNAMEFrame() {
  chkCNAME_ = new QCheckBox("Auto resolve CNAME records:");
  chkCNAME_->setObjectName("chkCNAME");
  return Frame("CNAME (alias) records:", Row({chkCNAME_}));
}

QWidget* frmOptions::CacheFrame() {
  ttlMin_ = new ctlTTL;
  ttlMin_->setObjectName("ttlMin");
  return Frame("Minimum DNS cache time:", Row({ttlMin_}));
}

QWidget* frmOptions::LogFrame() {
  chkLog_ = new QCheckBox("Write Log Files:");
  chkLog_->setObjectName("chkLog");
  return Frame("Log:", Row({chkLog_}));
}

QLayout* frmOptions::Buttons() {
  cmdOK_ = new QPushButton("OK");
  cmdOK_->setObjectName("cmdOK");
  cmdOK_->setDefault(true);
  cmdCancel_ = new QPushButton("Cancel");
  cmdCancel_->setObjectName("cmdCancel");
  cmdHelp_ = new QPushButton("Help");
  cmdHelp_->setObjectName("cmdHelp");
  auto* row = new QHBoxLayout;
  row->addStretch(1);
  for (QPushButton* button : {cmdOK_, cmdCancel_, cmdHelp_}) row->addWidget(button);
  OnClick(cmdOK_, "frmOptions cmdOK", &frmOptions::cmdOK_Click);
  connect(cmdCancel_, &QPushButton::clicked, this, &QDialog::reject);
  connect(cmdHelp_, &QPushButton::clicked, this, &frmOptions::helpRequested);
  return row;
}

void frmOptions::Form_Load() {
  const Options& options = app_.options();
  txtName_->setText(Text(options.NAME));
  txtHosts_->setText(Text(options.HOSTS));
  ttlHosts_->SetValue(options.HOSTSTTL);
  for (const std::string& choice : BindChoices(app_.LocalIPs())) comBind_->addItem(Text(choice));
  comBind_->setCurrentIndex(-1);
  comBind_->setEditText(Text(options.DNSBIND));
  ttlMin_->SetValue(options.CACHETTL);
  chkCNAME_->setChecked(options.AUTOCNAME);
  chkLog_->setChecked(options.WRITELOG);
  chkRecur_->setChecked(options.RECURSIONOUT);
  for (const std::string& server : options.NS) List_->addItem(Text(server));
  cmdRemove_->setEnabled(false);
}

bool frmOptions::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::FocusIn) {
    QLineEdit* box = watched == comBind_ ? comBind_->lineEdit() : qobject_cast<QLineEdit*>(watched);
    // After the click that gave the focus, which would place the cursor.
    if (box) QTimer::singleShot(0, box, &QLineEdit::selectAll);
  } else if (event->type() == QEvent::FocusOut) {
    Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
    // A drop-down or another window taking the focus is not leaving the box.
    if (reason != Qt::PopupFocusReason && reason != Qt::ActiveWindowFocusReason) LeaveField(watched);
  }
  return QDialog::eventFilter(watched, event);
}

void frmOptions::LeaveField(QObject* field) {
  if (field == txtName_) {
    txtName_->setText(Text(CleanName(txtName_->text().toStdString())));
  } else if (field == txtHosts_) {
    txtHosts_->setText(Text(CleanHostsPath(txtHosts_->text().toStdString())));
  } else if (field == comBind_) {
    comBind_->setEditText(Text(modIP::CleanIP(comBind_->currentText().toStdString())));
  }
}

void frmOptions::CommitEdits() {
  for (QWidget* box : EditBoxes()) LeaveField(box);
  ttlHosts_->Value();
  ttlMin_->Value();
}

std::vector<std::string> frmOptions::Servers() const {
  std::vector<std::string> servers;
  for (int row = 0; row < List_->count(); ++row) servers.push_back(List_->item(row)->text().toStdString());
  return servers;
}

OptionsForm frmOptions::ReadForm() const {
  OptionsForm form;
  form.name = txtName_->text().toStdString();
  form.hosts = txtHosts_->text().toStdString();
  form.hostsTTL = ttlHosts_->Value();
  form.bind = comBind_->currentText().toStdString();
  form.autoCNAME = chkCNAME_->isChecked();
  form.cacheTTL = ttlMin_->Value();
  form.writeLog = chkLog_->isChecked();
  form.recursionOut = chkRecur_->isChecked();
  form.servers = Servers();
  return form;
}

void frmOptions::cmdAdd_Click() {
  bool answered = false;
  QString typed = QInputDialog::getText(this, "Korvane", "Enter external DNS server IP address:",
                                        QLineEdit::Normal, "", &answered);
  if (!answered) return;
  std::vector<std::string> servers = Servers();
  if (!AddServer(servers, typed.toStdString())) return;
  List_->addItem(Text(servers.back()));
  cmdRemove_->setEnabled(true);
}

void frmOptions::cmdRemove_Click() {
  for (QListWidgetItem* item : List_->selectedItems()) delete List_->takeItem(List_->row(item));
  List_->clearSelection();
  cmdRemove_->setEnabled(false);
}

void frmOptions::cmdBrowse_Click() {
  QFileDialog dialog(this, "Select Hosts file");
  dialog.setAcceptMode(QFileDialog::AcceptOpen);
  dialog.setFileMode(QFileDialog::ExistingFile);
  // "*" and not "*.*": most files here, the hosts file among them, have no dot.
  dialog.setNameFilters({"All Files (*)", "Text Files (*.txt)"});
  BrowseStart start = HostsBrowseStart(txtHosts_->text().toStdString());
  if (!start.folder.empty()) dialog.setDirectory(Text(start.folder));
  dialog.selectFile(Text(start.file));
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return;
  txtHosts_->setText(dialog.selectedFiles().first());
}

void frmOptions::cmdEdit_Click() {
  if (!app_.editor().Open(CleanHostsPath(txtHosts_->text().toStdString())))
    app_.boxes().Show("Error trying to open text editor!");
}

void frmOptions::cmdOK_Click() {
  CommitEdits();
  cmdOK_->setFocus(Qt::OtherFocusReason);
  OptionsForm form = ReadForm();
  OptionsCheck check = ValidateOptions(form);
  if (!check.ok()) {
    app_.boxes().Show(check.message, MessageButtons::OK, MessageIcon::Exclamation);
    (check.focus == OptionsField::kName ? static_cast<QWidget*>(txtName_) : cmdAdd_)->setFocus(Qt::OtherFocusReason);
    return;
  }
  // A korvane.ini that cannot be written has been reported; the dialog stays.
  if (app_.ApplyOptions(OptionsFromForm(app_.options(), form))) accept();
}

}  // namespace modMain

}  // namespace korvane
