#include "app/frmOptions.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QGroupBox>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <memory>

#include "app/app_world.h"
#include "app/options_file.h"
#include "controls/ctlTTL.h"

using namespace korvane;

namespace {

using modMain::frmOptions;
using Strings = std::vector<std::string>;

const std::string kRecords = "www.example.test. 3600 A 10.1.2.3\n";
const std::string kOptions = "Name: ns.example.test\nHostsTTL: 7200\nDNSBind: 127.0.0.1\nNS: 10.0.0.1\n";

class FrmOptionsTest : public AppWorld {
 protected:
  void Open(const std::string& options = kOptions) {
    settings.dnsPort = FreeUdpPort();
    settings.localIPs = Strings{"192.0.2.7"};
    Start(options, kRecords);
    dialog = std::make_unique<frmOptions>(*app);
    dialog->show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(dialog.get()));
  }
  template <typename Widget>
  Widget* Get(const char* name) {
    Widget* widget = dialog->findChild<Widget*>(name);
    EXPECT_TRUE(widget) << name;
    return widget;
  }
  QLineEdit* Text(const char* name) { return Get<QLineEdit>(name); }
  void Click(const char* button) { QTest::mouseClick(Get<QPushButton>(button), Qt::LeftButton); }
  // Clicks `button`, then does `answer` with the modal dialog it opens.
  template <typename Modal>
  void ClickAndAnswer(const char* button, std::function<void(Modal*)> answer) {
    bool answered = false;
    QTimer::singleShot(0, [&] {
      auto* modal = qobject_cast<Modal*>(QApplication::activeModalWidget());
      ASSERT_TRUE(modal);
      answer(modal);
      answered = true;
    });
    Click(button);
    EXPECT_TRUE(answered);
  }
  void AddServer(const QString& typed) {
    ClickAndAnswer<QInputDialog>("cmdAdd", [&](QInputDialog* box) {
      EXPECT_EQ(box->labelText(), "Enter external DNS server IP address:");
      box->setTextValue(typed);
      box->accept();
    });
  }
  QStringList Listed() {
    QStringList items;
    for (int row = 0; row < Get<QListWidget>("List")->count(); ++row) items << Get<QListWidget>("List")->item(row)->text();
    return items;
  }
  std::unique_ptr<frmOptions> dialog;
};

TEST_F(FrmOptionsTest, ShowsTheOptionsInItsFrames) {
  Open(kOptions + "AutoCNAME: YES\nCacheTTL: 61\nRecursionOut: YES\nNS: 10.0.0.2\n");
  EXPECT_EQ(dialog->windowTitle(), "Korvane - Options");
  // Each frame as "caption: its controls (name=caption) and labels", sorted.
  Strings frames;
  for (QGroupBox* frame : dialog->findChildren<QGroupBox*>()) {
    Strings items;
    for (QWidget* child : frame->findChildren<QWidget*>()) {
      QString name = child->objectName();
      auto* button = qobject_cast<QAbstractButton*>(child);
      if (auto* label = qobject_cast<QLabel*>(child)) items.push_back(label->text().toStdString());
      if (name == "List" || QRegularExpression("^(txt|cmd|ttl|com|chk)").match(name).hasMatch())
        items.push_back((name + (button ? "=" + button->text() : "")).toStdString());
    }
    std::sort(items.begin(), items.end());
    std::string line = frame->title().toStdString() + ":";
    for (const std::string& item : items) line += " " + item;
    frames.push_back(line);
  }
  std::sort(frames.begin(), frames.end());
  EXPECT_EQ(frames, (Strings{
      "CNAME (alias) records:: chkCNAME=Auto resolve CNAME records:",
      "DNS Interface:: Bind DNS to IP address: comBind",
      "DNS Record resolution:: External DNS Servers IP Addresses: List chkRecur=Use external record resolution: "
      "cmdAdd=Add... cmdRemove=Remove",
      "Full Domain Name of this DNS Server:: txtName",
      "Hosts File:: Hosts file records TTL: cmdBrowse=Browse cmdEdit=Edit... ttlHosts txtHosts",
      "Log:: chkLog=Write Log Files:",
      "Minimum DNS cache time:: ttlMin"}));
  Strings buttons;
  for (const char* name : {"cmdOK", "cmdCancel", "cmdHelp"}) buttons.push_back(Get<QPushButton>(name)->text().toStdString());
  EXPECT_EQ(buttons, (Strings{"OK", "Cancel", "Help"}));
  EXPECT_EQ(Text("txtName")->text(), "ns.example.test");
  EXPECT_EQ(Text("txtHosts")->text(), "");
  EXPECT_EQ(Get<ctlTTL>("ttlHosts")->Value(), 7200);
  EXPECT_EQ(Get<ctlTTL>("ttlMin")->Value(), 61);
  auto* bind = Get<QComboBox>("comBind");
  EXPECT_EQ(bind->currentText(), "127.0.0.1");
  QStringList choices;
  for (int i = 0; i < bind->count(); ++i) choices << bind->itemText(i);
  EXPECT_EQ(choices, (QStringList{"", "192.0.2.7", "127.0.0.1"}));
  EXPECT_TRUE(Get<QCheckBox>("chkCNAME")->isChecked() && Get<QCheckBox>("chkRecur")->isChecked());
  EXPECT_FALSE(Get<QCheckBox>("chkLog")->isChecked());
  EXPECT_EQ(Listed(), (QStringList{"10.0.0.1", "10.0.0.2"}));
  EXPECT_FALSE(Get<QPushButton>("cmdRemove")->isEnabled());
}

TEST_F(FrmOptionsTest, EachCheckSaysWhatIsMissingAndGoesToItsField) {
  struct Case {
    const char* label;
    std::function<void()> edit;
    std::string message;
    const char* focus;
  } cases[] = {
      {"no name", [this] { Text("txtName")->clear(); }, "Please enter server name!", "txtName"},
      {"external resolution without servers",
       [this] {
         Get<QCheckBox>("chkRecur")->setChecked(true);
         Get<QListWidget>("List")->clear();
       },
       "Please add at least one external DNS server\nIP Address to use external record resolution!", "cmdAdd"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    Open();
    boxes.shown.clear();
    c.edit();
    Click("cmdOK");
    ASSERT_EQ(boxes.shown.size(), 1u);
    EXPECT_EQ(boxes.shown[0].text, c.message);
    EXPECT_EQ(boxes.shown[0].icon, MessageIcon::Exclamation);
    EXPECT_EQ(QApplication::focusWidget()->objectName(), c.focus);
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_EQ(dir.Read("korvane.ini"), kOptions);
    dialog.reset();
  }
}

TEST_F(FrmOptionsTest, BoxesSelectAllOnEnteringAndAreCleanedOnLeaving) {
  Open();
  auto* bind = Get<QComboBox>("comBind");
  struct Case {
    QWidget* box;
    QLineEdit* edit;
    QString typed, left;
  } cases[] = {{Text("txtName"), Text("txtName"), "  My_Server.Example..COM. ", "myserver.example.com"},
               {Text("txtHosts"), Text("txtHosts"), "  /srv/My Hosts ", "/srv/My Hosts"},
               {bind, bind->lineEdit(), " 127.000.000.002 ", "127.0.0.2"},
               {bind, bind->lineEdit(), "nonsense", ""}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.typed.toStdString());
    c.edit->setText("some text");
    QTest::mouseClick(c.edit, Qt::LeftButton);  // the click would place the cursor
    RunEvents();
    EXPECT_TRUE(c.box->hasFocus());
    EXPECT_EQ(c.edit->selectedText(), "some text");
    c.edit->setText(c.typed);
    Get<QListWidget>("List")->setFocus(Qt::TabFocusReason);
    EXPECT_EQ(c.edit->text(), c.left);
  }
}

TEST_F(FrmOptionsTest, ServersAreAddedOnceAndRemovedBySelection) {
  Open();
  auto* remove = Get<QPushButton>("cmdRemove");
  for (const char* typed : {" 010.000.000.001", "nonsense", ""}) {
    AddServer(typed);
    EXPECT_FALSE(remove->isEnabled()) << typed;
  }
  AddServer("10.0.0.3");
  EXPECT_TRUE(remove->isEnabled());
  ClickAndAnswer<QInputDialog>("cmdAdd", [](QInputDialog* box) {
    box->setTextValue("10.0.0.4");
    box->reject();
  });
  EXPECT_EQ(Listed(), (QStringList{"10.0.0.1", "10.0.0.3"}));
  Get<QListWidget>("List")->setCurrentRow(0);
  Click("cmdRemove");
  EXPECT_EQ(Listed(), QStringList{"10.0.0.3"});
  EXPECT_FALSE(remove->isEnabled());
  Get<QListWidget>("List")->setCurrentRow(0);
  EXPECT_TRUE(remove->isEnabled());
}

TEST_F(FrmOptionsTest, BrowseEditAndHelp) {
  Open();
  dir.Write("hosts.old", "");
  dir.Write("hosts.new", "");
  Text("txtHosts")->setText(QString::fromStdString(dir.File("hosts.old")));
  ClickAndAnswer<QFileDialog>("cmdBrowse", [&](QFileDialog* browser) {
    EXPECT_EQ(browser->windowTitle(), "Select Hosts file");
    EXPECT_EQ(browser->nameFilters(), (QStringList{"All Files (*)", "Text Files (*.txt)"}));
    EXPECT_EQ(browser->directory().absolutePath().toStdString(), dir.path());
    EXPECT_EQ(browser->selectedFiles(), QStringList{QString::fromStdString(dir.File("hosts.old"))});
    browser->selectFile(QString::fromStdString(dir.File("hosts.new")));
    static_cast<QDialog*>(browser)->accept();  // public there
  });
  EXPECT_EQ(Text("txtHosts")->text().toStdString(), dir.File("hosts.new"));

  Text("txtHosts")->setText("  /etc/hosts ");
  Click("cmdEdit");
  EXPECT_EQ(editor.opened, Strings{"/etc/hosts"});
  QSignalSpy help(dialog.get(), &frmOptions::helpRequested);
  Click("cmdHelp");
  EXPECT_EQ(help.size(), 1);
  EXPECT_TRUE(boxes.shown.empty());

  struct NoEditor : TextEditor {
    bool Open(const std::string&) override { return false; }
  } noEditor;
  modMain::Application withoutEditor(settings, boxes, noEditor);
  frmOptions other(withoutEditor);
  QTest::mouseClick(other.findChild<QPushButton*>("cmdEdit"), Qt::LeftButton);
  EXPECT_EQ(boxes.Texts(), Strings{"Error trying to open text editor!"});
}

TEST_F(FrmOptionsTest, OKWritesTheFileAndTheServerAnswersOnTheNewAddress) {
  Open();
  Text("txtName")->setText("  NS2.Example.Test ");
  Text("txtHosts")->setText("/etc/hosts\nNS: 6.6.6.6");
  Get<QComboBox>("comBind")->setEditText("127.0.0.2");
  Get<ctlTTL>("ttlHosts")->SetValue(90);
  Get<ctlTTL>("ttlMin")->SetValue(600);
  for (const char* box : {"chkRecur", "chkCNAME", "chkLog"}) Get<QCheckBox>(box)->setChecked(true);
  AddServer("10.0.0.2");
  const std::string before = dir.Read("korvane.ini");
  {
    FileSizeLimit limit(4);  // korvane.ini cannot be written: the dialog stays
    Click("cmdOK");
  }
  EXPECT_TRUE(dialog->isVisible());
  EXPECT_EQ(dir.Read("korvane.ini"), before);
  boxes.shown.clear();
  Click("cmdOK");
  EXPECT_EQ(dialog->result(), QDialog::Accepted);
  EXPECT_FALSE(dialog->isVisible());
  EXPECT_EQ(dir.Read("korvane.ini"),
            "Name: ns2.example.test\nHosts: /etc/hostsNS: 6.6.6.6\nHostsTTL: 90\nDNSBind: 127.0.0.2\n"
            "AutoCNAME: YES\nWriteLog: YES\nCacheTTL: 600\nRecursionOut: YES\nNS: 10.0.0.1\nNS: 10.0.0.2\n");
  std::vector<Received> replies = AskAt({"127.0.0.1", "127.0.0.2"}, "www.example.test");
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0].from, "127.0.0.2");
}

TEST_F(FrmOptionsTest, CancelChangesNothing) {
  Open();
  Text("txtName")->setText("other.example.test");
  Get<QComboBox>("comBind")->setEditText("127.0.0.2");
  Get<ctlTTL>("ttlHosts")->SetValue(60);
  Get<QCheckBox>("chkLog")->setChecked(true);
  AddServer("10.0.0.9");
  Click("cmdCancel");
  EXPECT_EQ(dialog->result(), QDialog::Rejected);
  EXPECT_EQ(dir.Read("korvane.ini"), kOptions);
  EXPECT_EQ(modMain::OptionsFileText(app->options()), kOptions);
  std::vector<Received> replies = AskAt({"127.0.0.1"}, "www.example.test");
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0].from, "127.0.0.1");
}

}  // namespace
