// The options dialog: shows the options, cleans each entry as the operator
// leaves it, and on OK checks the fields and hands the new options to the
// application, which writes korvane.ini and restarts the services.
#pragma once

#include <QDialog>

#include <string>
#include <vector>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace korvane {

class ctlTTL;

namespace modMain {

class Application;
struct OptionsForm;

class frmOptions : public QDialog {
  Q_OBJECT

 public:
  explicit frmOptions(Application& app, QWidget* parent = nullptr);

 signals:
  // The operator asked for this dialog's help page.
  void helpRequested();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  QWidget* NameFrame();
  QWidget* HostsFrame();
  QWidget* InterfaceFrame();
  QWidget* ResolutionFrame();
  QWidget* CNAMEFrame();
  QWidget* CacheFrame();
  QWidget* LogFrame();
  QLayout* Buttons();

  // The boxes that are cleaned when the operator leaves them.
  std::vector<QWidget*> EditBoxes() const;
  void Form_Load();
  // What leaving a box does to its text.
  void LeaveField(QObject* field);
  // Every box as if the operator had left it, and the TTLs' typing taken.
  void CommitEdits();
  OptionsForm ReadForm() const;
  std::vector<std::string> Servers() const;

  void cmdAdd_Click();
  void cmdRemove_Click();
  void cmdBrowse_Click();
  void cmdEdit_Click();
  void cmdOK_Click();
  // Runs a handler; what it throws goes to the error reporter under `tag`.
  void Run(const char* tag, void (frmOptions::*handler)());
  void OnClick(QPushButton* button, const char* tag, void (frmOptions::*handler)());

  Application& app_;
  QLineEdit* txtName_;
  QLineEdit* txtHosts_;
  QPushButton* cmdBrowse_;
  QPushButton* cmdEdit_;
  ctlTTL* ttlHosts_;
  QComboBox* comBind_;
  QCheckBox* chkRecur_;
  QListWidget* List_;
  QPushButton* cmdAdd_;
  QPushButton* cmdRemove_;
  QCheckBox* chkCNAME_;
  ctlTTL* ttlMin_;
  QCheckBox* chkLog_;
  QPushButton* cmdOK_;
  QPushButton* cmdCancel_;
  QPushButton* cmdHelp_;
};

}  // namespace modMain

}  // namespace korvane
