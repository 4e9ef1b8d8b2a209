// The dialogs of the A, NS, CNAME and MX records: each shows the shown
// domain, fills its fields from the edited entry, and on OK checks the
// fields and hands the entry to the editor.
#pragma once

#include "editor/frmPRDialog.h"

class QLineEdit;
class QSpinBox;

namespace korvane {

class ctlIP;
class ctlTTL;

namespace modEditor {

class frmPRHost : public frmPRDialog {
  Q_OBJECT

 public:
  frmPRHost(EditorContext& editor, int editing, QWidget* parent = nullptr);
  QLineEdit* txtName() const { return txtName_; }
  ctlIP* txtData() const { return txtData_; }
  ctlTTL* txtTTL() const { return txtTTL_; }

 protected:
  bool TakeFields() override;

 private:
  QLineEdit* txtDomain_;
  QLineEdit* txtName_;
  ctlIP* txtData_;
  ctlTTL* txtTTL_;
};

class frmPRNS : public frmPRDialog {
  Q_OBJECT

 public:
  frmPRNS(EditorContext& editor, int editing, QWidget* parent = nullptr);
  QLineEdit* txtData() const { return txtData_; }
  ctlTTL* txtTTL() const { return txtTTL_; }

 protected:
  bool TakeFields() override;

 private:
  QLineEdit* txtDomain_;
  QLineEdit* txtData_;
  ctlTTL* txtTTL_;
};

class frmPRCNAME : public frmPRDialog {
  Q_OBJECT

 public:
  frmPRCNAME(EditorContext& editor, int editing, QWidget* parent = nullptr);
  QLineEdit* txtName() const { return txtName_; }
  QLineEdit* txtData() const { return txtData_; }
  ctlTTL* txtTTL() const { return txtTTL_; }

 protected:
  bool TakeFields() override;

 private:
  QLineEdit* txtDomain_;
  QLineEdit* txtName_;
  QLineEdit* txtData_;
  ctlTTL* txtTTL_;
};

class frmPRMX : public frmPRDialog {
  Q_OBJECT

 public:
  frmPRMX(EditorContext& editor, int editing, QWidget* parent = nullptr);
  QLineEdit* txtData() const { return txtData_; }
  QSpinBox* txtPref() const { return txtPref_; }
  ctlTTL* ctlTTL1() const { return ctlTTL1_; }

 protected:
  bool TakeFields() override;

 private:
  QLineEdit* txtDomain_;
  QLineEdit* txtData_;
  QSpinBox* txtPref_;
  ctlTTL* ctlTTL1_;
};

}  // namespace modEditor

}  // namespace korvane
