#include "app/frmMain.h"

#include <gtest/gtest.h>

#include <QCloseEvent>
#include <QDesktopServices>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QTimer>
#include <QStatusBar>
#include <QTextBrowser>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "controls/cSysTray.h"
#include "app/title_strip.h"
#include "gui/gui_world.h"
#include "wire/datetime.h"

namespace {

using Strings = std::vector<std::string>;

const std::string kRecords =
    "example.test. 3600 SOA ns.example.test. hostmaster.example.test. 1 3600 600 86400 60\n"
    "www.example.test. 3600 A 10.1.2.3\n";

struct MenuLine {
  const char* name;
  const char* caption;  // "-" for a separator
};

// The menus as the operator knows them, in order.
const std::vector<std::pair<const char*, std::vector<MenuLine>>> kMenus = {
    {"mnuFile", {{"mnuStartStop", "&Pause Server"}, {"mnuBar4", "-"}, {"mnuExit", "E&xit"}}},
    {"mnuView",
     {{"mnuViewCache", "&DNS Cache"}, {"mnuBar2", "-"}, {"mnuClearWindow", "&Clear Log Window"},
      {"mnuBar1", "-"}, {"mnuViewW1", "&Active Log"}, {"mnuViewW2", "DHCP &Leases"}}},
    {"mnuTools",
     {{"mnuQuery", "&DNS Look Up..."}, {"mnuBar3", "-"},
      {"mnuRegDom", "Register Internet Domain Name..."}, {"mnuBar85", "-"},
      {"mnuReload", "&Reload DNS Records"}, {"mnuClearCache", "&Clear DNS Cache"},
      {"mnuBar5", "-"}, {"mnuPerm", "&Edit DNS Records..."}, {"mnuBar6", "-"},
      {"mnuOptions", "&Options..."}}},
    {"mnuHelp",
     {{"mnuHelpDHCP", "&DHCP Configuration"}, {"mnuBar9", "-"},
      {"mnuWebsite", "Korvane &Website"}, {"mnuBar8", "-"}, {"mnuDump", "&Support..."},
      {"mnuBar7", "-"}, {"mnuAbout", "&About..."}}},
    {"mnuDHCP", {{"mnuDHCPDel", "Delete"}}},
};

std::string ReplyTo(UdpClient& client, int id) {
  while (std::optional<Received> reply = client.Receive())
    if (reply->bytes.size() > 2 && reply->bytes[1] == static_cast<char>(id & 255)) return reply->bytes;
  return "";
}

using FrmMainTest = GuiWorld;

}  // namespace

// Takes the web pages the program would open in the browser.
class UrlCatcher : public QObject {
  Q_OBJECT
 public slots:
  void Open(const QUrl& url) { opened << url.toString(); }

 public:
  QStringList opened;
};

namespace {

TEST_F(FrmMainTest, EveryMenuEntryWithItsCaptionInOrderEnabledRunningAndPaused) {
  settings.dnsPort = FreeUdpPort();
  Open("DNSBind: 127.0.0.1\n", kRecords);
  EXPECT_EQ(window->windowTitle(), "Korvane");
  QStringList bar;
  for (QAction* action : window->menuBar()->actions()) bar << action->text();
  EXPECT_EQ(bar, (QStringList{"&File", "&View", "&Tools", "&Help"}));
  for (const char* state : {"running", "paused"}) {
    SCOPED_TRACE(state);
    for (const auto& [menuName, lines] : kMenus) {
      QMenu* menu = window->findChild<QMenu*>(menuName);
      ASSERT_TRUE(menu) << menuName;
      const QList<QAction*> actions = menu->actions();
      ASSERT_EQ(actions.size(), static_cast<int>(lines.size())) << menuName;
      for (int i = 0; i < actions.size(); ++i) {
        std::string caption = lines[i].caption;
        if (std::string(lines[i].name) == "mnuStartStop" && std::string(state) == "paused")
          caption = "&Start Server";
        EXPECT_EQ(actions[i]->objectName().toStdString(), lines[i].name);
        EXPECT_EQ(actions[i]->isSeparator(), caption == "-") << lines[i].name;
        if (caption != "-") {
          EXPECT_EQ(actions[i]->text().toStdString(), caption);
        }
        EXPECT_TRUE(actions[i]->isEnabled()) << lines[i].name;
      }
    }
    EXPECT_FALSE(window->menuBar()->actions().contains(window->mnuDHCP()->menuAction()));
    if (std::string(state) == "running") Choose("mnuStartStop");
  }
}

TEST_F(FrmMainTest, PauseAndStartThroughTheMenuCloseAndBindTheRealSocket) {
  settings.dnsPort = FreeUdpPort();
  Open("DNSBind: 127.0.0.1\n", kRecords);
  UdpClient client;
  client.SendTo("127.0.0.1", settings.dnsPort, DnsQuery(1, "www.example.test"));
  EXPECT_FALSE(ReplyTo(client, 1).empty());

  Choose("mnuStartStop");
  EXPECT_FALSE(app->ServerStarted());
  EXPECT_EQ(Entry("mnuStartStop")->text(), "&Start Server");
  EXPECT_TRUE(Logged("Server paused."));
  RunEventsUntil([&] { return window->StatusTexts().value(0) == "Paused"; });
  EXPECT_EQ(window->StatusTexts().value(0), "Paused");
  client.SendTo("127.0.0.1", settings.dnsPort, DnsQuery(2, "www.example.test"));
  RunEvents();
  EXPECT_TRUE(client.Waiting().empty());

  Choose("mnuStartStop");
  EXPECT_TRUE(app->ServerStarted());
  EXPECT_EQ(Entry("mnuStartStop")->text(), "&Pause Server");
  client.SendTo("127.0.0.1", settings.dnsPort, DnsQuery(3, "www.example.test"));
  EXPECT_FALSE(ReplyTo(client, 3).empty());
}

// True when some pixel of the icon has colour, false when it is grey.
bool Coloured(const QIcon& icon) {
  const QImage image = icon.pixmap(32, 32).toImage();
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) {
      const QColor c = image.pixelColor(x, y);
      if (c.alpha() > 0 && std::abs(c.red() - c.blue()) > 40) return true;
    }
  return false;
}

TEST_F(FrmMainTest, AFailedBindLeavesTheWindowPausedWithItsBoxAndUsable) {
  settings.dnsPort = FreeUdpPort();
  Open("DNSBind: 192.0.2.1\n", kRecords);
  const std::string reason = "Cannot assign requested address: 192.0.2.1 is not an address of this machine";
  // The box's own text, then the reason, once.
  EXPECT_EQ(boxes.Texts(), Strings{"Could not start DNS service on 192.0.2.1\n\n" + reason});
  EXPECT_EQ(boxes.shown[0].icon, MessageIcon::Exclamation);
  EXPECT_EQ(Entry("mnuStartStop")->text(), "&Start Server");
  auto* state = window->statusBar()->findChild<QLabel*>("lblState");
  ASSERT_TRUE(state);
  EXPECT_EQ(state->text(), "DNS service not started");
  EXPECT_EQ(state->toolTip().toStdString(), reason);
  EXPECT_FALSE(Coloured(window->SysTray()->TrayIcon()));
  Choose("mnuViewW2");
  Choose("mnuViewW1");
  EXPECT_TRUE(window->ListDNS()->isVisible());

  // Options corrected and started: the state follows at once, without
  // waiting for a sample.
  Options fixed = app->options();
  fixed.DNSBIND = "127.0.0.1";
  ASSERT_TRUE(app->ApplyOptions(fixed));
  Choose("mnuStartStop");
  EXPECT_EQ(state->text(), "Running");
  EXPECT_EQ(state->toolTip(), "");
  EXPECT_TRUE(Coloured(window->SysTray()->TrayIcon()));
  EXPECT_EQ(boxes.shown.size(), 1u);
}

TEST_F(FrmMainTest, BrokenOptionsAndRecordFilesLeaveTheWindowRunningAndUsable) {
  settings.dnsPort = FreeUdpPort();
  Open(std::string("DNSBind: 127.0.0.1\nHostsTTL: 99999999999999999999\nNS: 999.1.1.1\n\0\xff\xfe: (", 70),
       kRecords + "bad.example.test. 3600 MX (10\nmail.example.test. 3600 A 10.1.2.9\n\xff\x01 A A A\n");
  EXPECT_TRUE(app->ServerStarted());
  EXPECT_EQ(window->StatusTexts().value(0), "Running");
  EXPECT_FALSE(app->records().Named("www.example.test.").empty());
  for (const char* entry : {"mnuViewW2", "mnuViewW1", "mnuReload", "mnuClearWindow"}) Choose(entry);
  EXPECT_TRUE(window->ListDNS()->isVisible());
  EXPECT_TRUE(app->ServerStarted());
  EXPECT_TRUE(boxes.shown.empty());
}

TEST_F(FrmMainTest, OptionsOpenModalOverTheWindowAndTheirHelpShowsTheOptionsPage) {
  Open("", kRecords);
  const std::string before = dir.Read("korvane.ini");
  QString owner, help;
  QTimer::singleShot(0, [&] {
    QWidget* dialog = QApplication::activeModalWidget();
    ASSERT_TRUE(dialog);
    owner = dialog->objectName() + " over " + dialog->parentWidget()->objectName();
    dialog->findChild<QPushButton*>("cmdHelp")->click();
    // The help window belongs to the dialog, so the modal dialog does not block it.
    auto* browser = dialog->findChild<QTextBrowser*>("txtHelp");
    if (browser && browser->isVisible()) help = browser->toPlainText();
    dialog->findChild<QPushButton*>("cmdCancel")->click();
  });
  Choose("mnuOptions");
  EXPECT_EQ(owner, "frmOptions over frmMain");
  EXPECT_TRUE(help.contains("Hosts file records TTL")) << help.toStdString();
  EXPECT_TRUE(help.contains("RecursionFrom")) << help.toStdString();
  EXPECT_EQ(dir.Read("korvane.ini"), before);
  // The help window went with the dialog; the Help menu opens one of the window's.
  Choose("mnuHelpDHCP");
  auto* browser = window->findChild<QTextBrowser*>("txtHelp");
  ASSERT_TRUE(browser);
  EXPECT_TRUE(browser->isVisible());
}

TEST_F(FrmMainTest, TheCloseQuestionNoKeepsTheProgramYesSavesCacheAndLeases) {
  Open("", kRecords);
  for (const char* file : {"named.cache", "dhcp.dat"}) std::filesystem::remove(dir.File(file));
  int closed = 0;
  QObject::connect(window.get(), &modMain::frmMain::Closed, [&] { ++closed; });

  boxes.answer = MessageAnswer::No;
  Choose("mnuExit");
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_EQ(boxes.shown[0].text, "Exit Korvane ?");
  EXPECT_EQ(boxes.shown[0].buttons, MessageButtons::YesNo);
  EXPECT_EQ(boxes.shown[0].icon, MessageIcon::Question);
  EXPECT_TRUE(window->isVisible());
  EXPECT_EQ(closed, 0);
  EXPECT_FALSE(std::filesystem::exists(dir.File("named.cache")));

  boxes.answer = MessageAnswer::Yes;
  EXPECT_TRUE(window->close());  // the window's close box
  EXPECT_EQ(boxes.shown.size(), 2u);
  EXPECT_EQ(closed, 1);
  EXPECT_FALSE(window->isVisible());
  EXPECT_TRUE(Logged("Program was closed by user."));
  EXPECT_TRUE(std::filesystem::exists(dir.File("named.cache")));
  EXPECT_TRUE(std::filesystem::exists(dir.File("dhcp.dat")));
}

TEST_F(FrmMainTest, ASignalOrTheSessionsEndClosesWithoutTheQuestion) {
  for (auto [reason, line] :
       {std::pair{modMain::CloseReason::kSessionEnded, "Program was closed because session ended."},
        std::pair{modMain::CloseReason::kTerminationSignal, "Program was closed through a termination signal."}}) {
    Open("", kRecords);
    window->CloseFor(reason);
    EXPECT_TRUE(boxes.shown.empty());
    EXPECT_FALSE(window->isVisible());
    EXPECT_TRUE(Logged(line));
    window.reset();
    app.reset();
  }
}

TEST_F(FrmMainTest, ClearingTheCacheAsksWithNoAsDefaultAndKeepsTheOwnRecords) {
  Open("", kRecords);
  modDNS::CacheAdd(app->store(), "cached.example.org.", 1, 3600, Bytes({10, 9, 8, 7}), 0, false);
  auto cached = [&] {
    int count = 0;
    for (const clDNSRecord& record : app->records()) count += record.Permanent ? 0 : 1;
    return count;
  };
  const std::size_t permanent = app->records().size() - cached();
  ASSERT_EQ(cached(), 1);
  for (MessageAnswer answer : {MessageAnswer::No, MessageAnswer::Yes}) {
    boxes.answer = answer;
    Choose("mnuClearCache");
    ASSERT_FALSE(boxes.shown.empty());
    const ShownBox& box = boxes.shown.back();
    EXPECT_EQ(box.text, "Are you sure you want to clear the cached records ?");
    EXPECT_EQ(box.icon, MessageIcon::Question);
    EXPECT_TRUE(box.defaultNo);
    EXPECT_EQ(cached(), answer == MessageAnswer::Yes ? 0 : 1);
    EXPECT_EQ(Logged("Cache cleared by operator"), answer == MessageAnswer::Yes);
  }
  EXPECT_EQ(app->records().size(), permanent);
}

TEST_F(FrmMainTest, TheCacheViewSavesFirstAndSaysWhenNoEditorStarts) {
  Open("", kRecords);
  modDNS::CacheAdd(app->store(), "cached.example.org.", 1, 3600, Bytes({10, 9, 8, 7}), 0, false);
  Choose("mnuViewCache");
  EXPECT_EQ(editor.opened, Strings{dir.File("named.cache")});
  EXPECT_NE(dir.Read("named.cache").find("cached.example.org."), std::string::npos);
  EXPECT_TRUE(boxes.shown.empty());
  editor.works = false;
  Choose("mnuViewCache");
  EXPECT_EQ(boxes.Texts(), Strings{"Could not open text editor !"});
}

TEST_F(FrmMainTest, SupportWritesTheReportAndOffersItReloadReadsTheRecordsAgain) {
  Open("", kRecords);
  boxes.answer = MessageAnswer::Yes;
  Choose("mnuDump");
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_TRUE(boxes.shown[0].text.starts_with("A support file containing information about your\n"));
  EXPECT_NE(boxes.shown[0].text.find("E-Mail this file to "), std::string::npos);
  EXPECT_EQ(boxes.shown[0].icon, MessageIcon::Question);
  EXPECT_EQ(editor.opened, Strings{dir.File("support.txt")});
  EXPECT_EQ(dir.Read("support.txt").find("Error Description"), std::string::npos);

  dir.Write("named.perm", kRecords + "new.example.test. 3600 A 10.1.2.4\n");
  EXPECT_TRUE(app->records().Named("new.example.test.").empty());
  Choose("mnuReload");
  EXPECT_FALSE(app->records().Named("new.example.test.").empty());
  EXPECT_TRUE(app->ServerStarted());
}

TEST_F(FrmMainTest, TheViewEntriesSwitchBetweenLogAndLeasesAndCheckTheChosenOne) {
  Open("", kRecords);
  EXPECT_TRUE(window->ListDNS()->isVisible());
  EXPECT_FALSE(window->listDHCP()->isVisible());
  Choose("mnuViewW2");
  EXPECT_FALSE(window->ListDNS()->isVisible());
  EXPECT_TRUE(window->listDHCP()->isVisible());
  EXPECT_TRUE(Entry("mnuViewW2")->isChecked());
  EXPECT_FALSE(Entry("mnuViewW1")->isChecked());
  // Logging goes on meanwhile; switching back shows those lines.
  app->log().AddLine("while the leases were shown");
  Choose("mnuViewW1");
  EXPECT_TRUE(Entry("mnuViewW1")->isChecked());
  EXPECT_FALSE(Entry("mnuViewW2")->isChecked());
  LogModel& model = window->ListDNS()->Model();
  EXPECT_TRUE(model.data(model.index(model.rowCount() - 1), Qt::DisplayRole)
                  .toString()
                  .endsWith("  while the leases were shown"));
}

TEST_F(FrmMainTest, TheListsFillTheWindowUnderTheTitleStripWhichEndsWithTheTitle) {
  Open("", kRecords);
  window->resize(700, 500);
  RunEvents();
  const QWidget* inner = window->centralWidget();
  for (QWidget* list : {static_cast<QWidget*>(window->ListDNS()),
                        static_cast<QWidget*>(window->listDHCP())}) {
    EXPECT_EQ(list->geometry(), QRect(0, TitleStrip::kHeight, inner->width(),
                                      inner->height() - TitleStrip::kHeight));
  }
  TitleStrip* strip = window->picTitle();
  EXPECT_EQ(strip->width(), inner->width());
  EXPECT_EQ(strip->lblTitle()->text(), "Korvane");
  EXPECT_EQ(strip->lblTitle()->font().family(), "Arial");
  EXPECT_EQ(strip->lblTitle()->geometry().right(), strip->width() - 11);
  // Narrower than its title, the strip keeps the title at its left edge.
  window->resize(60, 300);
  RunEvents();
  EXPECT_GE(strip->lblTitle()->x(), 0);
  // Painted black at the top to blue at the bottom.
  const QImage picture = strip->grab().toImage();
  EXPECT_EQ(picture.pixelColor(5, 0), QColor(0, 0, 0));
  const int h = picture.height();
  EXPECT_EQ(picture.pixelColor(5, h - 1), QColor(0, 0, (h - 1) * 256 / h));
  EXPECT_EQ(picture.pixelColor(5, h / 2), QColor(0, 0, (h / 2) * 256 / h));
}

TEST_F(FrmMainTest, MinimisingHidesIntoATrayAndTheIconBringsItBackButNeverWithoutATray) {
  Open("", kRecords);
  bool trayThere = true;
  window->SysTray()->SetAvailabilityProbe([&] { return trayThere; });
  window->showMinimized();
  RunEvents();
  EXPECT_FALSE(window->isVisible());
  EXPECT_TRUE(window->SysTray()->InTray());
  EXPECT_EQ(window->SysTray()->TrayTip(), "Korvane");
  emit window->SysTray()->MouseDown(Qt::LeftButton);
  RunEvents();
  EXPECT_TRUE(window->isVisible());
  EXPECT_FALSE(window->isMinimized());

  // The tray goes away while the window is in it: the window comes back.
  window->showMinimized();
  RunEvents();
  ASSERT_FALSE(window->isVisible());
  trayThere = false;
  window->SampleStatus();
  EXPECT_TRUE(window->isVisible());
  // No tray: a normal minimised window.
  window->showMinimized();
  RunEvents();
  EXPECT_TRUE(window->isVisible());
}

TEST_F(FrmMainTest, TheWebLinksOpenTheBrowserAtTheirPages) {
  Open("", kRecords);
  UrlCatcher catcher;
  QDesktopServices::setUrlHandler("https", &catcher, "Open");
  Choose("mnuWebsite");
  // The registration dialog is modal: its button is pressed once it is open.
  QTimer::singleShot(0, [] {
    QWidget* dialog = QApplication::activeModalWidget();
    ASSERT_TRUE(dialog && dialog->objectName() == "frmRegDom");
    dialog->findChild<QPushButton*>("cmdOpen")->click();
  });
  Choose("mnuRegDom");
  QDesktopServices::unsetUrlHandler("https");
  EXPECT_EQ(catcher.opened, (QStringList{"https://korvane.example.invalid/",
                                         "https://korvane.example.invalid/register-domain"}));
}

}  // namespace

#include "frmMain_test.moc"
