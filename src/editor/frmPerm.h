// The record editor window: the records of named.perm one domain level at a
// time, the dialogs that make and change them, and the save that writes the
// file and has the running server take it at once.
#pragma once

#include <QMainWindow>
#include <QPointer>

#include "editor/frmPRDialog.h"
#include "editor/perm_model.h"

class QAction;
class QComboBox;
class QMenu;
class QPushButton;

namespace korvane {

class ColList;

namespace modMain {
class Application;
}

namespace modEditor {

class frmPerm : public QMainWindow {
  Q_OBJECT

 public:
  explicit frmPerm(modMain::Application& app, QWidget* parent = nullptr);

  // Refills JHList, comDomain and the commands for the shown domain.
  void RefreshList();
  // Writes the records and has the server take them; false when the file
  // could not be written (the changes stay in the editor).
  bool Save();

  PermModel& model() { return model_; }
  ColList* JHList() const { return JHList_; }
  QComboBox* comDomain() const { return comDomain_; }
  QPushButton* cmdUp() const { return cmdUp_; }
  QMenu* mnuItem() const { return mnuItem_; }
  // The record dialog open now (null: none).
  frmPRDialog* ActiveDialog() const { return dialog_; }
  // The menu command with this object name ("mnuNewHost" ...), or null.
  QAction* Command(const char* name) const;
  // Selects the row of entry `id` (0: none).
  void SelectEntry(int id);

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void BuildMenus();
  QAction* AddCommand(QMenu* menu, const char* name, const char* caption, void (frmPerm::*handler)());
  QWidget* BuildTop();
  // The entry of the selected row (0: none).
  int SelectedId() const;
  void ListClicked();
  void ListDblClick();
  void DomainChosen(int index);
  void UpdateCommands();
  void OpenDialog(frmPRDialog* dialog);
  // A record dialog for a new entry.
  template <class Dialog>
  void OpenNew();
  // Runs a command; what it throws goes to the error reporter under `tag`.
  void Run(const char* tag, void (frmPerm::*handler)());

  void mnuNewDomain();
  void mnuNewSub();
  void mnuNewHost();
  void mnuNewNS();
  void mnuNewCNAME();
  void mnuNewMX();
  void mnuNewDHCP();
  void mnuSave();
  void mnuOpen();
  void mnuProp();
  void mnuDelete();
  void cmdUp_Click();

  modMain::Application& app_;
  PermModel model_;
  EditorContext context_;
  QComboBox* comDomain_ = nullptr;
  QPushButton* cmdUp_ = nullptr;
  ColList* JHList_ = nullptr;
  QMenu* mnuItem_ = nullptr;
  QPointer<frmPRDialog> dialog_;
  std::vector<std::string> shownDomains_;  // comDomain's items
};

}  // namespace modEditor

}  // namespace korvane
