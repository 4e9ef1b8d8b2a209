#include "editor/frmPRRecords.h"

#include <QLineEdit>
#include <QSpinBox>

#include "controls/ctlIP.h"
#include "controls/ctlTTL.h"
#include "editor/record_forms.h"
#include "wire/clean_name.h"
#include "wire/ip.h"

namespace korvane {

namespace modEditor {

namespace {

QString Text(const std::string& text) { return QString::fromStdString(text); }
std::string Std(const QString& text) { return text.toStdString(); }

ctlTTL* TTLBox(const char* name, int32_t seconds) {
  auto* box = new ctlTTL;
  box->setObjectName(name);
  box->SetValue(seconds);
  return box;
}

// The field a check names, among a dialog's own.
QWidget* FieldOf(RecordField field, QWidget* name, QWidget* data, QWidget* ttl, QWidget* pref = nullptr) {
  switch (field) {
    case RecordField::kName: return name;
    case RecordField::kData: return data;
    case RecordField::kTTL: return ttl;
    case RecordField::kPref: return pref;
    default: return nullptr;
  }
}

}  // namespace

frmPRHost::frmPRHost(EditorContext& editor, int editing, QWidget* parent)
    : frmPRDialog(editor, editing, "Korvane - A-Record", "A-Record: (Name to IP-Address)", parent) {
  txtDomain_ = DomainBox();
  txtName_ = TextBox("txtName");
  txtData_ = new ctlIP;
  txtData_->setObjectName("txtData");
  const clPermRec* edited = EditedEntry();
  txtTTL_ = TTLBox("txtTTL", edited ? edited->TTL : 3600);
  if (edited) {
    txtName_->setText(Text(modMain::CleanName(edited->Name)));
    txtData_->SetValue(Text(modIP::DataToIP(edited->Data)));
  }
  AddRow("Domain:", txtDomain_);
  AddRow("Host:", txtName_, "(Leave blank to specify A-Record for the domain name.)");
  AddRow("IP Address:", txtData_);
  AddRow("TTL:", txtTTL_);
  txtName_->setFocus();
}

bool frmPRHost::TakeFields() {
  const HostForm form{editor_.model.CurDomain(), Std(txtName_->text()), Std(txtData_->Value()), txtTTL_->Value()};
  const RecordCheck check = CheckHost(form, editor_.model, Editing());
  if (Refused(check, FieldOf(check.focus, txtName_, txtData_, txtTTL_))) return false;
  return AddEntry(HostEntry(form));
}

frmPRNS::frmPRNS(EditorContext& editor, int editing, QWidget* parent)
    : frmPRDialog(editor, editing, "Korvane - NS-Record", "NS-Record: (DNS Server)", parent) {
  txtDomain_ = DomainBox();
  txtData_ = TextBox("txtData");
  const clPermRec* edited = EditedEntry();
  txtTTL_ = TTLBox("txtTTL", edited ? edited->TTL : 86400);
  if (edited) txtData_->setText(Text(modMain::CleanName(edited->Data)));
  AddRow("Domain:", txtDomain_);
  AddRow("DNS Server:", txtData_);
  AddRow("TTL:", txtTTL_);
  txtData_->setFocus();
}

bool frmPRNS::TakeFields() {
  const NSForm form{editor_.model.CurDomain(), Std(txtData_->text()), txtTTL_->Value()};
  const RecordCheck check = CheckNS(form, editor_.model, Editing());
  if (Refused(check, FieldOf(check.focus, nullptr, txtData_, txtTTL_))) return false;
  return AddEntry(NSEntry(form));
}

frmPRCNAME::frmPRCNAME(EditorContext& editor, int editing, QWidget* parent)
    : frmPRDialog(editor, editing, "Korvane - CNAME-Record", "CNAME-Record: (Alias)", parent) {
  txtDomain_ = DomainBox();
  txtName_ = TextBox("txtName");
  txtData_ = TextBox("txtData");
  const clPermRec* edited = EditedEntry();
  txtTTL_ = TTLBox("txtTTL", edited ? edited->TTL : 3600);
  if (edited) {
    txtName_->setText(Text(modMain::CleanName(edited->Name)));
    txtData_->setText(Text(modMain::CleanName(edited->Data)));
  }
  AddRow("Domain:", txtDomain_);
  AddRow("Host:", txtName_);
  AddRow("Alias for:", txtData_);
  AddRow("TTL:", txtTTL_);
  txtName_->setFocus();
}

bool frmPRCNAME::TakeFields() {
  const CNAMEForm form{editor_.model.CurDomain(), Std(txtName_->text()), Std(txtData_->text()), txtTTL_->Value()};
  const RecordCheck check = CheckCNAME(form, editor_.model, Editing());
  if (Refused(check, FieldOf(check.focus, txtName_, txtData_, txtTTL_))) return false;
  return AddEntry(CNAMEEntry(form));
}

frmPRMX::frmPRMX(EditorContext& editor, int editing, QWidget* parent)
    : frmPRDialog(editor, editing, "Korvane - MX-Record", "MX-Record: (Mail Server)", parent) {
  txtDomain_ = DomainBox();
  txtData_ = TextBox("txtData");
  txtPref_ = new QSpinBox;
  txtPref_->setObjectName("txtPref");
  txtPref_->setRange(0, 65535);
  const clPermRec* edited = EditedEntry();
  txtPref_->setValue(edited ? edited->Pref : 10);
  ctlTTL1_ = TTLBox("ctlTTL1", edited ? edited->TTL : 3600);
  if (edited) txtData_->setText(Text(modMain::CleanName(edited->Data)));
  AddRow("Domain:", txtDomain_);
  AddRow("Mail Server:", txtData_);
  AddRow("Preference:", txtPref_);
  AddRow("TTL:", ctlTTL1_);
  txtData_->setFocus();
}

bool frmPRMX::TakeFields() {
  txtPref_->interpretText();
  const MXForm form{editor_.model.CurDomain(), Std(txtData_->text()), txtPref_->value(), ctlTTL1_->Value()};
  const RecordCheck check = CheckMX(form, editor_.model, Editing());
  if (Refused(check, FieldOf(check.focus, nullptr, txtData_, ctlTTL1_, txtPref_))) return false;
  return AddEntry(MXEntry(form));
}

}  // namespace modEditor

}  // namespace korvane
