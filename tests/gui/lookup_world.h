// The look-up window over the whole application: opened from the menu,
// its fields filled and its question sent as the operator would.
#pragma once

#include <QLabel>
#include <QTest>

#include <string>

#include "gui/gui_world.h"
#include "tools/frmQuery.h"

inline const std::string kLookUpRecords =
    "example.test. 3600 SOA ns.example.test. hostmaster.example.test. 1 3600 600 86400 60\n"
    "example.test. 3600 NS ns.example.test.\n"
    "ns.example.test. 3600 A 10.1.2.1\n"
    "www.example.test. 3600 A 10.1.2.3\n";

class LookUpWorld : public GuiWorld {
 protected:
  void OpenTool(const std::string& options = "") {
    Open(options, kLookUpRecords);
    Choose("mnuQuery");
    tool = window->LookUp();
    ASSERT_TRUE(tool);
    ASSERT_TRUE(tool->isVisible());
  }
  // Fills the fields and presses Start (or Enter in the name field).
  void Start(const char* type, const std::string& name, const std::string& server = "127.0.0.1",
             bool enter = false) {
    tool->comType()->setCurrentIndex(tool->comType()->findText(type));
    tool->txtName()->setText(QString::fromStdString(name));
    tool->txtServer()->setText(QString::fromStdString(server));
    if (enter)
      QTest::keyClick(tool->txtName(), Qt::Key_Return);
    else
      tool->cmdStart()->click();
  }
  // Start, then the answer once the query has ended.
  std::string Ask(const char* type, const std::string& name, const std::string& server = "127.0.0.1") {
    Start(type, name, server);
    RunEventsUntil([&] { return !tool->Waiting(); });
    return Answer();
  }
  std::string Answer() const { return tool->txtAnswer()->toPlainText().toStdString(); }
  std::string Label(const char* name) const {
    return tool->findChild<QLabel*>(name)->text().toStdString();
  }
  // The query fields are enabled exactly when no query is out.
  void ExpectIdle(bool idle) const {
    EXPECT_EQ(tool->findChild<QWidget*>("Frame1")->isEnabled(), idle);
    EXPECT_EQ(tool->cmdStart()->isEnabled(), idle);
    EXPECT_EQ(tool->cmdStop()->isEnabled(), !idle);
    EXPECT_EQ(tool->Waiting(), !idle);
  }

  modQuery::frmQuery* tool = nullptr;
};

