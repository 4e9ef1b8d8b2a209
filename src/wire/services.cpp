#include "wire/services.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>

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

ErrorInfo ErrorOf(const std::exception& error) {
  if (dynamic_cast<const std::bad_alloc*>(&error)) return {ErrorNumber::kOutOfMemory, "Out of memory"};
  return {ErrorNumber::kInternal, error.what()};
}

ErrorInfo ErrorOfErrno(int errnum) {
  int number = ErrorNumber::kDeviceIO;
  switch (errnum) {
    case ENOENT: case ENOTDIR: number = ErrorNumber::kPathNotFound; break;
    case EACCES: case EPERM: case EROFS: number = ErrorNumber::kPermissionDenied; break;
    case ENOSPC: case EDQUOT: number = ErrorNumber::kDiskFull; break;
    case ENOMEM: number = ErrorNumber::kOutOfMemory; break;
    default: break;
  }
  return {number, std::strerror(errnum)};
}

void ReportException(ErrorReporter& errors, const std::string& tag, const std::exception& error,
                     const std::string& additional) {
  ErrorInfo info = ErrorOf(error);
  errors.Report(tag, additional, info.number, info.description);
}

}  // namespace korvane
