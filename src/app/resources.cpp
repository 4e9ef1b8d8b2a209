#include "app/resources.h"

#include <QtGlobal>

// Q_INIT_RESOURCE must stand outside any namespace.
static void InitKorvaneResources() { Q_INIT_RESOURCE(korvane); }

namespace korvane {

void LoadResources() {
  static const bool loaded = [] {
    InitKorvaneResources();
    return true;
  }();
  (void)loaded;
}

}  // namespace korvane
