// The record editor window and its dialogs, offscreen, over the whole
// application: each dialog's OK adds the row, a refusal keeps it open, and
// a save reaches the running server.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>

#include <sys/mount.h>
#include <sched.h>
#include <unistd.h>

#include <QProcess>

#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <optional>
#include <sstream>

#include "controls/ctlIP.h"
#include "controls/ctlTTL.h"
#include "dhcp/frmPRDHCP.h"
#include "editor/frmPRDom.h"
#include "editor/frmPRRecords.h"
#include "editor/frmPerm.h"
#include "gui/gui_world.h"
#include "wire/ip.h"

namespace {

using modEditor::frmPerm;
using modEditor::frmPRDialog;

const std::string kRecords =
    "office.example. 86400 SOA ns1.office.example. hostmaster.office.example. 4 10800 3600 604800 3600\n"
    "office.example. 86400 NS ns1.office.example.\n"
    "ns1.office.example. 3600 A 192.0.2.2\n"
    "www.office.example. 3600 A 192.0.2.10\n";

class RecordEditorTest : public GuiWorld {
 protected:
  frmPerm* OpenEditor(const std::string& records = kRecords) {
    settings.localIPs = std::vector<std::string>{"10.88.0.1"};
    Open("Name: dns.office.example\n", records);
    window->ShowRecordEditor();
    RunEvents();
    frmPerm* editor = window->RecordEditor();
    EXPECT_TRUE(editor && editor->isVisible());
    return editor;
  }
  // Rows as "type|name|data".
  static std::vector<std::string> Rows(frmPerm* editor) {
    std::vector<std::string> rows;
    ColList* list = editor->JHList();
    for (int row = 1; row <= list->ListCount(); ++row)
      rows.push_back((list->Text(row, 1) + "|" + list->Text(row, 2) + "|" + list->Text(row, 3)).toStdString());
    return rows;
  }
  static int RowOf(frmPerm* editor, const QString& type, const QString& name) {
    for (int row = 1; row <= editor->JHList()->ListCount(); ++row)
      if (editor->JHList()->Text(row, 1) == type && editor->JHList()->Text(row, 2) == name) return row;
    return 0;
  }
  void Trigger(frmPerm* editor, const char* command) {
    QAction* action = editor->Command(command);
    ASSERT_TRUE(action) << command;
    action->trigger();
    RunEvents();
  }
  void OpenDomain(frmPerm* editor, const char* name) {
    editor->JHList()->SetListIndex(RowOf(editor, "Domain", name));
    emit editor->JHList()->DblClick();
    RunEvents();
  }
};

void Type(QLineEdit* box, const QString& text) {
  box->clear();
  QTest::keyClicks(box, text);
}

// One dialog: the command that opens it, a refusal and its message, then
// fields that pass and the row they make.
struct DialogCase {
  const char* command;
  std::function<void(frmPRDialog*)> refused;
  std::string message;
  std::function<void(frmPRDialog*)> passing;
  std::string row;
};

const std::vector<DialogCase>& DialogCases() {
  static const std::vector<DialogCase> cases = {
      {"mnuNewHost", [](frmPRDialog* d) { Type(static_cast<modEditor::frmPRHost*>(d)->txtName(), "pc1"); },
       "Invalid IP Address!",
       [](frmPRDialog* d) {
         auto* host = static_cast<modEditor::frmPRHost*>(d);
         Type(host->txtName(), "PC1");
         host->txtData()->SetValue("192.0.2.50");
       },
       "A|pc1|192.0.2.50"},
      {"mnuNewNS", [](frmPRDialog*) {}, "Please enter Name Server.",
       [](frmPRDialog* d) { Type(static_cast<modEditor::frmPRNS*>(d)->txtData(), "ns2.office.example"); },
       "NS||ns2.office.example"},
      {"mnuNewCNAME", [](frmPRDialog* d) { Type(static_cast<modEditor::frmPRCNAME*>(d)->txtName(), "www"); },
       "Please enter Alias for",
       [](frmPRDialog* d) {
         auto* alias = static_cast<modEditor::frmPRCNAME*>(d);
         Type(alias->txtName(), "intranet");
         Type(alias->txtData(), "www.office.example");
       },
       "CNAME|intranet|www.office.example"},
      {"mnuNewMX", [](frmPRDialog*) {}, "Please enter Mail Server.",
       [](frmPRDialog* d) {
         auto* mx = static_cast<modEditor::frmPRMX*>(d);
         Type(mx->txtData(), "mail.office.example");
         mx->txtPref()->setValue(20);
       },
       "MX||20 mail.office.example"},
      {"mnuNewDHCP",
       [](frmPRDialog* d) {
         auto* pool = static_cast<modDHCP::frmPRDHCP*>(d);
         pool->txtIP(0)->SetValue("10.88.0.100");
         pool->txtIP(1)->SetValue("10.88.0.150");
         pool->txtIP(2)->SetValue("255.255.0.255");
       },
       "Invalid subnet mask!",
       [](frmPRDialog* d) {
         auto* pool = static_cast<modDHCP::frmPRDHCP*>(d);
         pool->txtIP(0)->SetValue("10.88.0.150");
         pool->txtIP(1)->SetValue("10.88.0.100");
         pool->txtIP(2)->SetValue("255.255.255.0");
       },
       "DHCP||10.88.0.100 - 10.88.0.150"},
  };
  return cases;
}

TEST_F(RecordEditorTest, EachDialogRefusesThenAddsItsRow) {
  frmPerm* editor = OpenEditor();
  ASSERT_TRUE(editor);
  OpenDomain(editor, "office.example");
  for (const DialogCase& c : DialogCases()) {
    SCOPED_TRACE(c.command);
    boxes.shown.clear();
    Trigger(editor, c.command);
    QPointer<frmPRDialog> dialog = editor->ActiveDialog();
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(dialog->isVisible());
    c.refused(dialog);
    QTest::mouseClick(dialog->cmdOK(), Qt::LeftButton);
    RunEvents();
    ASSERT_EQ(boxes.Texts(), std::vector<std::string>{c.message});
    EXPECT_EQ(boxes.shown[0].icon,
              c.message.starts_with("Please enter") && std::string(c.command) != "mnuNewDHCP"
                  ? MessageIcon::Information
                  : MessageIcon::Exclamation);
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(dialog->isVisible());
    c.passing(dialog);
    QTest::mouseClick(dialog->cmdOK(), Qt::LeftButton);
    RunEvents();
    EXPECT_TRUE(dialog.isNull() || !dialog->isVisible());
    EXPECT_EQ(boxes.shown.size(), 1u);
    const std::vector<std::string> rows = Rows(editor);
    EXPECT_NE(std::find(rows.begin(), rows.end(), c.row), rows.end()) << testing::PrintToString(rows);
  }
}

TEST_F(RecordEditorTest, ADomainMadeFromTheDialogWithItsEMailFilledIn) {
  frmPerm* editor = OpenEditor();
  Trigger(editor, "mnuNewDomain");
  auto* dom = static_cast<modEditor::frmPRDom*>(editor->ActiveDialog());
  ASSERT_TRUE(dom);
  EXPECT_EQ(dom->windowTitle(), "Korvane - Domain");
  EXPECT_EQ(dom->txtPrim()->text(), "dns.office.example");
  dom->txtName()->setFocus();
  Type(dom->txtName(), "Lab.Example");
  dom->txtPrim()->setFocus();  // leaving the name fills the e-mail
  RunEvents();
  EXPECT_EQ(dom->txtEMail()->text(), "hostmaster@lab.example");
  Type(dom->txtPrim(), "ns1");
  QTest::mouseClick(dom->cmdOK(), Qt::LeftButton);
  RunEvents();
  EXPECT_EQ(boxes.Texts(), std::vector<std::string>{"Please specify another Primary DNS server!"});
  EXPECT_TRUE(dom->isVisible());
  EXPECT_TRUE(dom->txtPrim()->hasFocus() || QApplication::focusWidget() == nullptr);
  Type(dom->txtPrim(), "ns1.lab.example");
  QTest::mouseClick(dom->cmdOK(), Qt::LeftButton);
  RunEvents();
  EXPECT_EQ(Rows(editor), (std::vector<std::string>{"Domain|lab.example|Authority: Primary",
                                                     "Domain|office.example|Authority: Primary"}));
}

TEST_F(RecordEditorTest, DeleteAsksForADomainAndCloseAsksOnlyAfterAChange) {
  frmPerm* editor = OpenEditor();
  editor->close();
  RunEvents();
  EXPECT_TRUE(boxes.shown.empty());  // nothing changed: no question
  window->ShowRecordEditor();
  RunEvents();
  editor = window->RecordEditor();
  editor->JHList()->SetListIndex(RowOf(editor, "Domain", "office.example"));
  emit editor->JHList()->DeleteKey();
  RunEvents();
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_EQ(boxes.shown[0].text, "Delete everything in Domain office.example ?");
  EXPECT_EQ(boxes.shown[0].icon, MessageIcon::Question);
  EXPECT_TRUE(boxes.shown[0].defaultNo);
  EXPECT_EQ(Rows(editor).size(), 1u);  // No keeps it
  boxes.answer = MessageAnswer::Yes;
  emit editor->JHList()->DeleteKey();
  RunEvents();
  EXPECT_TRUE(Rows(editor).empty());
  boxes.answer = MessageAnswer::No;
  editor->close();
  RunEvents();
  EXPECT_EQ(boxes.Texts().back(), "Save DNS Records ?");
  EXPECT_EQ(dir.Read("named.perm"), kRecords);  // No: nothing written
}

TEST_F(RecordEditorTest, SaveWritesTheFileAndTheRunningServerAnswersAtOnce) {
  frmPerm* editor = OpenEditor();
  OpenDomain(editor, "office.example");
  Trigger(editor, "mnuNewHost");
  auto* host = static_cast<modEditor::frmPRHost*>(editor->ActiveDialog());
  Type(host->txtName(), "new");
  host->txtData()->SetValue("192.0.2.77");
  QTest::mouseClick(host->cmdOK(), Qt::LeftButton);
  RunEvents();
  Trigger(editor, "mnuSave");
  EXPECT_TRUE(Logged("DNS records saved."));
  EXPECT_TRUE(Logged("Loading permanent records..."));
  EXPECT_NE(dir.Read("named.perm").find("new.office.example. 3600 A 192.0.2.77\n"), std::string::npos);
  // The changed domain's serial has risen.
  EXPECT_NE(dir.Read("named.perm").find(" SOA ns1.office.example. hostmaster.office.example. 5 "),
            std::string::npos);
  UdpClient client;
  client.SendTo("127.0.0.1", app->DnsPort(), DnsQuery(7, "new.office.example"));
  std::optional<Received> answer = client.Receive();
  ASSERT_TRUE(answer);
  EXPECT_NE(answer->bytes.find(modIP::IPToData("192.0.2.77")), std::string::npos);
  editor->close();
  RunEvents();
  EXPECT_TRUE(boxes.shown.empty());  // saved: nothing to ask
}

// A folder that cannot be written even by root: a read-only bind mount of
// it, in a mount namespace of this process's own.
bool MakeReadOnly(const std::string& folder) {
  if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0) return false;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
  return mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
}

TEST_F(RecordEditorTest, AFailedSaveSaysSoAndKeepsTheChangesAndTheOldFile) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to make a folder read-only for root";
  frmPerm* editor = OpenEditor();
  OpenDomain(editor, "office.example");
  editor->JHList()->SetListIndex(RowOf(editor, "A", "www"));
  emit editor->JHList()->DeleteKey();
  RunEvents();
  ASSERT_TRUE(MakeReadOnly(dir.path()));
  Trigger(editor, "mnuSave");
  umount(dir.path().c_str());
  EXPECT_EQ(dir.Read("named.perm"), kRecords);
  EXPECT_FALSE(boxes.shown.empty());  // the error report's box
  EXPECT_TRUE(editor->model().Changed());
  EXPECT_FALSE(Logged("DNS records saved."));
  // Closing still offers the save, and No lets the changes go.
  const std::size_t before = boxes.shown.size();
  editor->close();
  RunEvents();
  ASSERT_GT(boxes.shown.size(), before);
  EXPECT_EQ(boxes.shown.back().text, "Save DNS Records ?");
}

std::string ExampleFile(const std::string& name) {
  std::ifstream in(std::string(KORVANE_SOURCE_DIR) + "/examples/office/" + name, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs a command (in this thread's network namespace) while the event loop
// goes on; its standard output, or nullopt when it failed.
std::optional<std::string> RunTool(const QString& command) {
  QProcess process;
  process.start("sh", {"-c", command});
  RunEventsUntil([&] { return process.state() == QProcess::NotRunning; });
  if (process.state() != QProcess::NotRunning) {
    process.kill();
    process.waitForFinished();
  }
  if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) return std::nullopt;
  return process.readAllStandardOutput().toStdString();
}

// The example folder's server in a network of its own with a client
// namespace behind a veth pair; the editor adds a host, an alias, a mail
// server and a pool there, saves, and dig and udhcpc get their answers.
TEST_F(RecordEditorTest, EndToEndTheSavedRecordsAnswerDigAndThePoolLeasesToUdhcpc) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root for network namespaces and the DHCP port";
  for (const char* tool : {"dig", "udhcpc", "ip"})
    if (!RunTool(QString("command -v ") + tool)) GTEST_SKIP() << tool << " is not installed";
  PrivateNetwork network({});
  ASSERT_TRUE(network.ok());
  const QString id = QString::number(getpid());
  const QString client = "kvcli" + id, serverSide = "kvs" + id, clientSide = "kvc" + id;
  ASSERT_TRUE(RunTool("ip netns add " + client + " && ip link add " + serverSide + " type veth peer name " +
                      clientSide + " && ip link set " + clientSide + " netns " + client + " && ip addr add " +
                      "10.77.0.1/24 dev " + serverSide + " && ip link set " + serverSide + " up && ip -n " +
                      client + " link set lo up && ip -n " + client + " link set " + clientSide + " up"));
  struct Cleanup {
    QString ns;
    ~Cleanup() { RunTool("ip netns del " + ns); }
  } cleanup{client};

  dir.Write("named.root", ExampleFile("named.root"));
  settings.localIPs = std::vector<std::string>{"10.77.0.1"};
  settings.dhcpPort = 67;
  Open(ExampleFile("korvane.ini"), ExampleFile("named.perm"));
  window->ShowRecordEditor();
  RunEvents();
  frmPerm* editor = window->RecordEditor();
  OpenDomain(editor, "office.example");
  const auto add = [&](const char* command, const std::function<void(frmPRDialog*)>& fill) {
    Trigger(editor, command);
    fill(editor->ActiveDialog());
    QTest::mouseClick(editor->ActiveDialog()->cmdOK(), Qt::LeftButton);
    RunEvents();
  };
  add("mnuNewHost", [](frmPRDialog* d) {
    Type(static_cast<modEditor::frmPRHost*>(d)->txtName(), "laptop");
    static_cast<modEditor::frmPRHost*>(d)->txtData()->SetValue("192.0.2.99");
  });
  add("mnuNewCNAME", [](frmPRDialog* d) {
    Type(static_cast<modEditor::frmPRCNAME*>(d)->txtName(), "portable");
    Type(static_cast<modEditor::frmPRCNAME*>(d)->txtData(), "laptop.office.example");
  });
  add("mnuNewMX", [](frmPRDialog* d) {
    Type(static_cast<modEditor::frmPRMX*>(d)->txtData(), "backup-mail.office.example");
    static_cast<modEditor::frmPRMX*>(d)->txtPref()->setValue(30);
  });
  add("mnuNewDHCP", [](frmPRDialog* d) {
    auto* pool = static_cast<modDHCP::frmPRDHCP*>(d);
    pool->txtIP(0)->SetValue("10.77.0.100");
    pool->txtIP(1)->SetValue("10.77.0.150");
    pool->txtIP(2)->SetValue("255.255.255.0");
  });
  ASSERT_TRUE(boxes.shown.empty()) << boxes.Texts().front();
  Trigger(editor, "mnuSave");
  EXPECT_TRUE(Logged("DHCP service started on 10.77.0.1"));

  const QString dig = "dig @127.0.0.1 -p " + QString::number(app->DnsPort()) + " +short +tries=1 ";
  EXPECT_EQ(RunTool(dig + "laptop.office.example A"), "192.0.2.99\n");
  EXPECT_EQ(RunTool(dig + "portable.office.example CNAME"), "laptop.office.example.\n");
  const std::optional<std::string> mx = RunTool(dig + "office.example MX");
  ASSERT_TRUE(mx);
  EXPECT_NE(mx->find("30 backup-mail.office.example."), std::string::npos) << *mx;

  dir.Write("udhcpc.sh", "#!/bin/sh\n[ \"$1\" = bound ] && echo \"$ip\" > " + dir.File("leased") + "\nexit 0\n");
  chmod(dir.File("udhcpc.sh").c_str(), 0755);
  EXPECT_TRUE(RunTool("ip netns exec " + client + " udhcpc -i " + clientSide + " -n -q -f -t 3 -T 1 -s " +
                      QString::fromStdString(dir.File("udhcpc.sh"))));
  const std::string leased = dir.Read("leased");
  EXPECT_TRUE(leased.starts_with("10.77.0.1") && leased.size() == std::string("10.77.0.1xx\n").size()) << leased;
  window.reset();
  app.reset();  // the sockets leave the namespace before it goes
}

}  // namespace
