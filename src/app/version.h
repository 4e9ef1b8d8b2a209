// The program's version as the About window and the support report show it.
#pragma once

#include <cstdio>
#include <string>

namespace korvane::modMain {

// "1.00.00": major, then minor and revision with two digits each.
inline std::string VersionText() {
  char text[32];
  std::snprintf(text, sizeof text, "%d.%02d.%02d", KORVANE_VERSION_MAJOR, KORVANE_VERSION_MINOR,
                KORVANE_VERSION_PATCH);
  return text;
}

}  // namespace korvane::modMain
