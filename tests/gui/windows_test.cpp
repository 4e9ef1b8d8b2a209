// The smaller windows: About and its splash, the help window, the message
// boxes, the status bar's fields.
#include <gtest/gtest.h>

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTextBrowser>
#include <QTest>
#include <QTimer>

#include <memory>

#include "app/frmAbout.h"
#include "app/frmMain_status.h"
#include "app/gui_prompts.h"
#include "app/help.h"
#include "app/version.h"
#include "gui/gui_world.h"

namespace {

using WindowsTest = GuiWorld;

TEST_F(WindowsTest, AboutShowsTheVersionAndTheSplashGoesWhenItLosesTheFocus) {
  Open("", "");
  modMain::frmAbout about;
  EXPECT_EQ(about.findChild<QLabel*>("lblVersion")->text().toStdString(),
            "Version " + modMain::VersionText());
  EXPECT_EQ(about.findChild<QLabel*>("lblTitle")->text(), "Korvane");
  EXPECT_FALSE(about.IsSplash());

  window->ShowSplash();
  auto* splash = window->findChild<modMain::frmAbout*>("frmAbout");
  ASSERT_TRUE(splash);
  QPointer<modMain::frmAbout> watched = splash;
  EXPECT_TRUE(splash->IsSplash());
  EXPECT_FALSE(splash->isModal());
  splash->activateWindow();
  RunEventsUntil([&] { return splash->isActiveWindow(); });
  window->activateWindow();
  RunEventsUntil([&] { return watched.isNull(); });
  EXPECT_TRUE(watched.isNull());
}

TEST_F(WindowsTest, TheAboutEntryEndsTheSplashAndShowsAboutModal) {
  Open("", "");
  window->ShowSplash();
  QPointer<modMain::frmAbout> splash = window->findChild<modMain::frmAbout*>("frmAbout");
  bool modal = false;
  QTimer::singleShot(0, [&] {
    QWidget* shown = QApplication::activeModalWidget();
    modal = shown && shown->objectName() == "frmAbout";
    if (shown) shown->close();
  });
  Choose("mnuAbout");
  RunEvents();
  EXPECT_TRUE(modal);
  EXPECT_TRUE(splash.isNull());
}

TEST_F(WindowsTest, HelpOpensAtItsTopicWithDHCPAsTopic200) {
  EXPECT_EQ(HelpPage("200"), QUrl("qrc:/help/dhcp.html"));
  EXPECT_EQ(HelpPage("options"), QUrl("qrc:/help/options.html"));
  EXPECT_EQ(HelpPage("no such topic"), QUrl("qrc:/help/index.html"));
  Open("", "");
  Choose("mnuHelpDHCP");
  auto* browser = window->findChild<QTextBrowser*>("txtHelp");
  ASSERT_TRUE(browser);
  EXPECT_TRUE(browser->isVisible());
  EXPECT_TRUE(browser->toPlainText().contains("DHCP configuration"));
  // The help buttons of the dialogs reuse the same window.
  ShowHelp(window.get(), "options");
  EXPECT_EQ(window->findChildren<QTextBrowser*>().size(), 1);
  EXPECT_TRUE(browser->toPlainText().startsWith("Contents"));
  EXPECT_TRUE(browser->toPlainText().contains("korvane.ini"));
}

TEST(MessageBoxesTest, ButtonsIconsDefaultAndTopmostAsAsked) {
  struct Case {
    MessageButtons buttons;
    MessageIcon icon;
    bool defaultNo, topmost;
    QMessageBox::StandardButtons expected;
    QMessageBox::StandardButton byDefault;
    QMessageBox::Icon shownIcon;
  } cases[] = {
      {MessageButtons::OK, MessageIcon::Exclamation, false, false, QMessageBox::Ok,
       QMessageBox::Ok, QMessageBox::Warning},
      {MessageButtons::OKCancel, MessageIcon::Information, false, false,
       QMessageBox::Ok | QMessageBox::Cancel, QMessageBox::Ok, QMessageBox::Information},
      {MessageButtons::YesNo, MessageIcon::Question, true, false,
       QMessageBox::Yes | QMessageBox::No, QMessageBox::No, QMessageBox::Question},
      {MessageButtons::YesNo, MessageIcon::Critical, false, true,
       QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes, QMessageBox::Critical},
  };
  for (const Case& c : cases) {
    std::unique_ptr<QMessageBox> box(
        GuiMessageBoxes::Build("line 1\nline 2", c.buttons, c.icon, c.defaultNo, c.topmost, nullptr));
    EXPECT_EQ(box->windowTitle(), "Korvane");
    EXPECT_EQ(box->text(), "line 1\nline 2");
    EXPECT_EQ(box->standardButtons(), c.expected);
    EXPECT_EQ(box->defaultButton(), box->button(c.byDefault));
    EXPECT_EQ(box->icon(), c.shownIcon);
    EXPECT_EQ(box->windowFlags().testFlag(Qt::WindowStaysOnTopHint), c.topmost);
  }
}

TEST(MessageBoxesTest, TheAnswerIsTheButtonPressedAndClosingTheBoxIsTheCautiousOne) {
  GuiMessageBoxes boxes;
  for (auto [press, expected] : {std::pair{QMessageBox::Yes, MessageAnswer::Yes},
                                 std::pair{QMessageBox::No, MessageAnswer::No},
                                 std::pair{QMessageBox::NoButton, MessageAnswer::No}}) {
    QTimer::singleShot(0, [press = press] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      ASSERT_TRUE(box);
      if (press == QMessageBox::NoButton)
        box->reject();
      else
        box->button(press)->click();
    });
    EXPECT_EQ(boxes.Show("Exit Korvane ?", MessageButtons::YesNo, MessageIcon::Question, false, false),
              expected);
  }
}

TEST(StatusFieldsTest, RatesOverTheSampleSpanAndThePoolsInUse) {
  modMain::StatusSample before, now;
  before.seconds = 10;
  before.dns = {100, 10, 20, 30};
  now.seconds = 12;
  now.running = true;
  now.dns = {2100, 410, 1020, 30};
  now.pending = 7;
  now.pools = {{"10.0.0.1", 3, 51}, {"10.1.0.1", 0, 10}};
  EXPECT_EQ(modMain::StatusFields(before, now),
            (QStringList{"Running", "1000 queries/s",
                         "Answers/s: cache 500, own 200, others 0", "Pending 7",
                         "Leases 10.0.0.1 3/51, 10.1.0.1 0/10"}));
  // A first sample, no pools, paused.
  modMain::StatusSample first;
  EXPECT_EQ(modMain::StatusFields(first, first),
            (QStringList{"Paused", "0 queries/s", "Answers/s: cache 0, own 0, others 0",
                         "Pending 0", "No DHCP pools"}));
}

}  // namespace
