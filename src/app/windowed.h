// The program's two faces: the windowed one (main window, tray, message
// boxes) and the headless one (log lines on standard output).
#pragma once

#include "app/application.h"
#include "app/command_line.h"

namespace korvane {

namespace modMain {

// True when DISPLAY or WAYLAND_DISPLAY names a display to open.
bool DisplayNamed();

// Each runs the server until it is closed and returns the exit status.
// RunWindowed falls back to a headless run (the program is started again
// with --headless) when the display named cannot be opened.
int RunWindowed(int& argc, char** argv, const Settings& settings, const CommandLine& line);
int RunHeadless(int& argc, char** argv, const Settings& settings, const CommandLine& line);

}  // namespace modMain

}  // namespace korvane
