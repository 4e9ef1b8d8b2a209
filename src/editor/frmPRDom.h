// The domain dialog: the domain's name and authority with its start-of-
// authority values. The e-mail is filled from the name and cleaned when the
// operator leaves it.
#pragma once

#include "editor/frmPRDialog.h"
#include "editor/record_forms.h"

class QComboBox;
class QLineEdit;

namespace korvane {

class ctlTTL;

namespace modEditor {

class frmPRDom : public frmPRDialog {
  Q_OBJECT

 public:
  // A new domain starts from `start` (see NewDomainForm); an edited one
  // from its entry.
  frmPRDom(EditorContext& editor, int editing, const DomainForm& start, QWidget* parent = nullptr);

  QLineEdit* txtName() const { return txtName_; }
  QComboBox* comAuth() const { return comAuth_; }
  QLineEdit* txtPrim() const { return txtPrim_; }
  QLineEdit* txtEMail() const { return txtEMail_; }
  // Refresh, retry, expire, TTL.
  ctlTTL* txtNum(int index) const { return txtNum_[index]; }

 protected:
  bool TakeFields() override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void Show(const DomainForm& form);
  DomainForm Read() const;
  void AuthorityChanged();

  QLineEdit* txtName_;
  QComboBox* comAuth_;
  QLineEdit* txtPrim_;
  QLineEdit* txtEMail_;
  ctlTTL* txtNum_[4];
};

}  // namespace modEditor

}  // namespace korvane
