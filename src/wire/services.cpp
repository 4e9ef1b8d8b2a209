#include "wire/services.h"

#include <chrono>
#include <cstdio>

namespace korvane {

DateTime SystemClock::Now() const {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

void StderrErrorReporter::Report(const std::string& tag, const std::string& additional, int number,
                                 const std::string& description) {
  std::fprintf(stderr, "korvane: error %d (%s) in %s%s%s\n", number, description.c_str(),
               tag.c_str(), additional.empty() ? "" : ": ", additional.c_str());
}

ErrorReporter& DefaultErrorReporter() {
  static StderrErrorReporter reporter;
  return reporter;
}

}  // namespace korvane
