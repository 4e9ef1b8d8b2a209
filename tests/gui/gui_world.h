// The main window over the whole application in a temporary program folder:
// the application world of tests/app plus the window, found by the names of
// its controls and menu entries.
#pragma once

#include <QAction>
#include <QApplication>
#include <QMenu>

#include <memory>
#include <ostream>
#include <string>

#include "app/app_world.h"
#include "app/frmMain.h"
#include "app/log_view.h"
#include "controls/ColList.h"

// Readable failures for Qt's strings.
inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }

class GuiWorld : public AppWorld {
 protected:
  ~GuiWorld() override {
    window.reset();
    RunEvents();
  }
  // Starts the application and opens the window over it.
  void Open(const std::string& options, const std::string& records) {
    Create(options, records);
    window = std::make_unique<modMain::frmMain>(*app, boxes, editor);
    app->Start();
    window->show();
    RunEvents();
  }
  QAction* Entry(const char* name) const {
    QAction* action = window->findChild<QAction*>(name);
    EXPECT_TRUE(action) << name;
    return action;
  }
  void Choose(const char* name) {
    if (QAction* action = Entry(name)) action->trigger();
    RunEvents();
  }
  std::unique_ptr<modMain::frmMain> window;
};
