// The help pages and the icon compiled into the program (korvane.qrc).
#pragma once

namespace korvane {

// Registers them; a static library's resources are not registered by
// themselves. Safe to call more than once.
void LoadResources();

}  // namespace korvane
