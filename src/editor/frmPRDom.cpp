#include "editor/frmPRDom.h"

#include <QComboBox>
#include <QEvent>
#include <QLabel>
#include <QLineEdit>
#include <QTimer>

#include "controls/ctlTTL.h"

namespace korvane {

namespace modEditor {

namespace {

QString Text(const std::string& text) { return QString::fromStdString(text); }

}  // namespace

frmPRDom::frmPRDom(EditorContext& editor, int editing, const DomainForm& start, QWidget* parent)
    : frmPRDialog(editor, editing, "Korvane - Domain", nullptr, parent) {
  txtName_ = TextBox("txtName");
  comAuth_ = new QComboBox;
  comAuth_->setObjectName("comAuth");
  comAuth_->addItems({"Not authority for this domain", "Primary DNS server for this domain",
                      "Secondary DNS server for this domain"});
  txtPrim_ = TextBox("txtPrim");
  txtEMail_ = TextBox("txtEMail");
  static const char* const kPeriods[] = {"Refresh interval:", "Retry interval:", "Data Expires in:", "TTL:"};
  AddRow("Name:", txtName_);
  AddRow("Authority:", comAuth_);
  AddRow("Primary:", txtPrim_, "(Primary  DNS server for this this domain.)");
  AddRow("E-Mail:", txtEMail_, "(E-mail address of the person responsible for this domain.)");
  for (int i = 0; i < 4; ++i) {
    txtNum_[i] = new ctlTTL;
    txtNum_[i]->setObjectName(QString("txtNum%1").arg(i));
    AddRow(kPeriods[i], txtNum_[i]);
  }
  // This server answers from its own records; it neither sends nor asks for zone transfers.
  AddRow("Zone Transfers:", new QLabel("None (secondaries take a copy of the record file)"));
  const clPermRec* edited = EditedEntry();
  Show(edited ? DomainFormOf(*edited) : start);
  // The root keeps its name.
  txtName_->setReadOnly(edited && edited->Domain.empty());
  txtName_->installEventFilter(this);
  txtEMail_->installEventFilter(this);
  connect(comAuth_, &QComboBox::currentIndexChanged, this, &frmPRDom::AuthorityChanged);
  txtName_->setFocus();
  // The operator types the new labels in front of a sub-domain's parent:
  // nothing selected, the cursor first, once the window has the focus.
  QTimer::singleShot(0, this, [this] {
    txtName_->deselect();
    txtName_->setCursorPosition(0);
  });
}

void frmPRDom::Show(const DomainForm& form) {
  txtName_->setText(Text(form.name));
  comAuth_->setCurrentIndex(form.authority);
  txtPrim_->setText(Text(form.primary));
  txtEMail_->setText(Text(form.email));
  const int32_t periods[] = {form.refresh, form.retry, form.expire, form.ttl};
  for (int i = 0; i < 4; ++i) txtNum_[i]->SetValue(periods[i]);
  AuthorityChanged();
}

DomainForm frmPRDom::Read() const {
  return {txtName_->text().toStdString(), comAuth_->currentIndex(), txtPrim_->text().toStdString(),
          txtEMail_->text().toStdString(), txtNum_[0]->Value(), txtNum_[1]->Value(),
          txtNum_[2]->Value(), txtNum_[3]->Value()};
}

void frmPRDom::AuthorityChanged() {
  // Without authority nothing of the start of authority is written.
  const bool authority = comAuth_->currentIndex() != kAuthorityNone;
  txtPrim_->setEnabled(authority);
  for (ctlTTL* period : txtNum_) period->setEnabled(authority);
}

bool frmPRDom::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::FocusOut) {
    if (watched == txtName_ && txtEMail_->text().trimmed().isEmpty())
      txtEMail_->setText(Text(DefaultEMail(txtName_->text().toStdString())));
    else if (watched == txtEMail_)
      txtEMail_->setText(Text(CleanEMail(txtEMail_->text().toStdString())));
  }
  return frmPRDialog::eventFilter(watched, event);
}

bool frmPRDom::TakeFields() {
  txtEMail_->setText(Text(CleanEMail(txtEMail_->text().toStdString())));
  const DomainForm form = Read();
  const RecordCheck check = CheckDomain(form, editor_.model, Editing(), editor_.ownName);
  QWidget* field = nullptr;
  switch (check.focus) {
    case RecordField::kName: field = txtName_; break;
    case RecordField::kPrim: field = txtPrim_; break;
    case RecordField::kEMail: field = txtEMail_; break;
    default: break;
  }
  if (Refused(check, field)) return false;
  return AddEntry(DomainEntry(form, EditedEntry()));
}

}  // namespace modEditor

}  // namespace korvane
