#include "app/windowed.h"

#include <QApplication>
#include <QIcon>
#include <QSessionManager>

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/frmAbout.h"
#include "app/frmMain.h"
#include "app/gui_prompts.h"
#include "app/resources.h"
#include "app/signal_watcher.h"
#include "app/stall_probe.h"

namespace korvane {

namespace modMain {

namespace {

// The command line as given, before QApplication takes its own options out.
std::vector<std::string> startArguments;
QtMessageHandler qtHandler = nullptr;

// Qt ends the process from inside QApplication's constructor when the
// platform plugin cannot start (a display that is named but cannot be
// opened). Before it does, the program starts itself again, headless.
void RestartHeadlessOnFatal(QtMsgType type, const QMessageLogContext& context,
                            const QString& message) {
  if (type != QtFatalMsg) {
    if (qtHandler) qtHandler(type, context, message);
    return;
  }
  std::fprintf(stderr, "korvane: %s\nkorvane: the display cannot be opened; running headless\n",
               qPrintable(message.section('\n', 0, 0)));
  startArguments.push_back("--headless");
  std::vector<char*> arguments;
  for (std::string& argument : startArguments) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  execv("/proc/self/exe", arguments.data());
  std::fprintf(stderr, "korvane: could not start again headless\n");
  std::_Exit(1);
}

// SIGINT and SIGTERM close in order, SIGHUP reads korvane.ini and the records again.
std::unique_ptr<SignalWatcher> WatchSignals(Application& korvane,
                                            std::function<void(CloseReason)> close) {
  auto watcher = std::make_unique<SignalWatcher>();
  watcher->SetHandler([&korvane, close](int number) {
    if (number == SIGHUP) {
      korvane.ReloadConfiguration();
      return;
    }
    close(number == SIGINT ? CloseReason::kUser : CloseReason::kTerminationSignal);
  });
  return watcher;
}

}  // namespace

bool DisplayNamed() {
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"}) {
    const char* value = std::getenv(variable);
    if (value && *value) return true;
  }
  return false;
}

int RunWindowed(int& argc, char** argv, const Settings& settings, const CommandLine& line) {
  startArguments.assign(argv, argv + argc);
  qtHandler = qInstallMessageHandler(RestartHeadlessOnFatal);
  QApplication app(argc, argv);
  qInstallMessageHandler(qtHandler);
  LoadResources();
  app.setWindowIcon(QIcon(":/korvane.svg"));
  app.setQuitOnLastWindowClosed(false);
  GuiMessageBoxes boxes;
  SystemTextEditor editor;
  Application korvane(settings, boxes, editor);
  frmMain window(korvane, boxes, editor);
  boxes.SetParent(&window);
  std::optional<int> closedWith;
  QObject::connect(&window, &frmMain::Closed, &app, [&closedWith](bool saved) {
    closedWith = saved ? ExitStatus::kClean : ExitStatus::kFailed;
    QCoreApplication::exit(*closedWith);
  });
  // Logging off or shutting down the desktop closes without the question.
  QObject::connect(&app, &QGuiApplication::commitDataRequest, &window,
                   [&window](QSessionManager&) { window.CloseFor(CloseReason::kSessionEnded); });
  auto watcher = WatchSignals(korvane, [&window](CloseReason why) { window.CloseFor(why); });

  window.show();
  window.ShowSplash();
  // Both windows paint before the slow loading.
  QCoreApplication::processEvents();
  korvane.Start();
  // The splash and the first paints are the start-up, not stalls.
  std::unique_ptr<StallProbe> probe;
  if (line.stallProbe) probe = std::make_unique<StallProbe>(stderr, frmAbout::kSplashMs + 500);
  // A signal that came while a start-up box was open has closed it all.
  return closedWith ? *closedWith : app.exec();
}

int RunHeadless(int& argc, char** argv, const Settings& settings, const CommandLine& line) {
  QCoreApplication app(argc, argv);
  HeadlessMessageBoxes boxes;
  SystemTextEditor editor;
  Application korvane(settings, boxes, editor);
  int closedStatus = ExitStatus::kClean;
  auto watcher = WatchSignals(korvane, [&korvane, &closedStatus](CloseReason why) {
    closedStatus = korvane.Close(why) ? ExitStatus::kClean : ExitStatus::kFailed;
    QCoreApplication::exit(closedStatus);
  });
  // A headless server that cannot serve DNS ends, so that a supervisor sees it.
  QObject::connect(
      &korvane, &Application::DnsServiceFailed, &app,
      [&korvane] {
        korvane.Close(CloseReason::kFailedStart);
        QCoreApplication::exit(ExitStatus::kFailed);
      },
      Qt::QueuedConnection);
  korvane.Start();
  // A termination signal while the files loaded: closed already.
  if (korvane.Closed()) return closedStatus;
  std::unique_ptr<StallProbe> probe;
  if (line.stallProbe) probe = std::make_unique<StallProbe>(stderr, 0);
  return app.exec();
}

}  // namespace modMain

}  // namespace korvane
