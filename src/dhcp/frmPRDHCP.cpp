#include "dhcp/frmPRDHCP.h"

#include <QLineEdit>

#include "controls/ctlIP.h"
#include "controls/ctlTTL.h"
#include "dhcp/scope_form.h"
#include "store/record.h"
#include "wire/clean_name.h"

namespace korvane {

namespace modDHCP {

frmPRDHCP::frmPRDHCP(modEditor::EditorContext& editor, int editing, QWidget* parent)
    : frmPRDialog(editor, editing, "Korvane - DHCP-Record", "DHCP-Record: ( Dynamic IP-Addresses )", parent) {
  txtDomain_ = TextBox("txtDomain");
  txtDomain_->setReadOnly(true);
  const std::string domain = modMain::CleanName(editor.model.CurDomain());
  txtDomain_->setText(QString::fromStdString(domain));
  for (int i = 0; i < 4; ++i) {
    txtIP_[i] = new ctlIP;
    txtIP_[i]->setObjectName(QString("txtIP%1").arg(i));
  }
  txtTTL_ = new ctlTTL;
  txtTTL_->setObjectName("txtTTL");
  const clPermRec* edited = EditedEntry();
  const ScopeForm shown = edited ? ScopeFormOf(*edited, domain) : ScopeForm{};
  for (int i = 0; i < 4; ++i) txtIP_[i]->SetValue(QString::fromStdString(shown.ip[i]));
  txtTTL_->SetValue(shown.ttl);
  AddRow("Domain:", txtDomain_);
  AddRow("IP-Addresses:", txtIP_[0]);
  AddRow("", txtIP_[1]);
  AddRow("Subnet Mask:", txtIP_[2]);
  AddRow("Default Gateway:", txtIP_[3]);
  AddRow("Lease period:", txtTTL_);
  txtIP_[0]->setFocus();
}

bool frmPRDHCP::TakeFields() {
  ScopeForm form;
  form.domain = txtDomain_->text().toStdString();
  for (int i = 0; i < 4; ++i) form.ip[i] = txtIP_[i]->Value().toStdString();
  form.ttl = txtTTL_->Value();
  std::vector<clPermRec> others;
  for (int id : editor_.model.Ids())
    if (id != Editing() && editor_.model.Entry(id)->RecType == RecordType::kDHCP)
      others.push_back(*editor_.model.Entry(id));
  const ScopeCheck check = CheckScope(form, others, editor_.localIPs);
  QWidget* field = check.focus == ScopeField::kTTL ? static_cast<QWidget*>(txtTTL_)
                   : check.focus == ScopeField::kNone
                       ? nullptr
                       : static_cast<QWidget*>(txtIP_[static_cast<int>(check.focus) - 1]);
  if (Refused(check, field)) return false;
  if (SwapReversedRange(form)) {
    txtIP_[0]->SetValue(QString::fromStdString(form.ip[0]));
    txtIP_[1]->SetValue(QString::fromStdString(form.ip[1]));
  }
  return AddEntry(ScopeEntry(form, editor_.localIPs));
}

}  // namespace modDHCP

}  // namespace korvane
