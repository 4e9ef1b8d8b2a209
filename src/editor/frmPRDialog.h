// What the record dialogs share: the editor they work for, a frame of
// labelled rows, the OK and Cancel buttons, the message of a refused check
// with the focus put back on its field, and handing the entry to the editor.
#pragma once

#include <QDialog>
#include <QString>

#include <string>
#include <vector>

#include "editor/perm_model.h"
#include "store/form_check.h"

class QFormLayout;
class QLineEdit;
class QPushButton;

namespace korvane {

class MessageBoxes;

namespace modEditor {

// The record editor as its dialogs see it.
struct EditorContext {
  PermModel& model;
  MessageBoxes& boxes;
  std::vector<std::string> localIPs;  // this machine's addresses
  std::string ownName;                // the NAME option: this server's name
};

class frmPRDialog : public QDialog {
  Q_OBJECT

 public:
  // `editing` is the entry the dialog was opened on (0: a new entry).
  frmPRDialog(EditorContext& editor, int editing, const char* title, const char* frame,
              QWidget* parent = nullptr);

  QPushButton* cmdOK() const { return cmdOK_; }
  QPushButton* cmdCancel() const { return cmdCancel_; }
  int Editing() const { return editing_; }
  // The id the entry got in the editor's list once OK took it (0 before).
  int Added() const { return added_; }

 protected:
  // Checks the fields; when they pass, builds the entry and hands it to
  // AddEntry. False keeps the dialog open.
  virtual bool TakeFields() = 0;

  // A labelled row of the frame; `hint` goes below the control.
  void AddRow(const char* label, QWidget* control, const char* hint = nullptr);
  // A read-only text box that shows the shown domain.
  QLineEdit* DomainBox();
  QLineEdit* TextBox(const char* name);
  // Shows a refused check's message and focuses `field`; true when refused.
  template <class Field>
  bool Refused(const FormCheck<Field>& check, QWidget* field) {
    if (check.ok()) return false;
    ShowRefusal(check.message, check.information, field);
    return true;
  }
  // Hands the entry to the editor in place of the edited one; false (and a
  // message) when the editor no longer holds the edited entry or its domain.
  bool AddEntry(clPermRec entry);

  EditorContext& editor_;
  const clPermRec* EditedEntry() const { return editor_.model.Entry(editing_); }

 private:
  void ShowRefusal(const std::string& message, bool information, QWidget* field);
  void cmdOK_Click();

  int editing_;
  int added_ = 0;
  QFormLayout* rows_;
  QPushButton* cmdOK_;
  QPushButton* cmdCancel_;
};

}  // namespace modEditor

}  // namespace korvane
