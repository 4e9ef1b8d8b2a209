// The DHCP scope dialog: a pool's range, mask, gateway and lease period in
// the shown domain. A reversed range is put in order on OK.
#pragma once

#include "editor/frmPRDialog.h"

class QLineEdit;

namespace korvane {

class ctlIP;
class ctlTTL;

namespace modDHCP {

class frmPRDHCP : public modEditor::frmPRDialog {
  Q_OBJECT

 public:
  frmPRDHCP(modEditor::EditorContext& editor, int editing, QWidget* parent = nullptr);

  // First, last, mask, gateway.
  ctlIP* txtIP(int index) const { return txtIP_[index]; }
  ctlTTL* txtTTL() const { return txtTTL_; }

 protected:
  bool TakeFields() override;

 private:
  QLineEdit* txtDomain_;
  ctlIP* txtIP_[4];
  ctlTTL* txtTTL_;
};

}  // namespace modDHCP

}  // namespace korvane
