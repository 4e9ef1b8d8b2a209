// The error reporter: writes "support.txt" (error, program, system, recent
// log lines, configuration files) and tells the operator where it is.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "app/log.h"
#include "app/ui.h"
#include "store/options.h"
#include "wire/services.h"

namespace korvane {

namespace modMain {

inline constexpr const char* kSupportAddress = "support@korvane.example";

struct SystemFacts {
  std::string platform = "Linux";
  std::optional<std::string> version;  // kernel release; nullopt when unreadable
  std::optional<std::string> build;    // distribution name and version; nullopt when unknown
};

// Reads uname and os-release.
SystemFacts ReadSystemFacts();
// The distribution from an os-release text: PRETTY_NAME, else NAME and
// VERSION; nullopt when it names none.
std::optional<std::string> DistributionName(const std::string& osRelease);

class SupportReporter : public ErrorReporter {
 public:
  // The same fault (tag and number) raised again within this many seconds
  // is not reported again.
  static constexpr double kRepeatSeconds = 60;

  // `folder` is the program folder, `programName` the executable's name.
  // Every reference must outlive the reporter.
  SupportReporter(std::string folder, std::string programName, const Options& options,
                  const Clock& clock, const Log& log, MessageBoxes& boxes, TextEditor& editor);

  // Rewrites the report; for a number other than 0 then shows the error box
  // (or, when the report could not be written, the box that asks to mail the
  // error itself). While one of its boxes is open it only rewrites the report.
  void Report(const std::string& tag, const std::string& additional, int number,
              const std::string& description) override;

  // The report on demand: no error section, then the question whether to
  // open it.
  void MenuDump();

  // The report's whole text (lines ended by CR LF).
  std::string ReportText(const std::string& tag, const std::string& additional, int number,
                         const std::string& description) const;
  std::string ReportPath() const { return folder_ + "/support.txt"; }

  void SetSystemFactsSource(std::function<SystemFacts()> source) { systemFacts_ = std::move(source); }

 private:
  MessageAnswer ShowBox(const std::string& text, MessageButtons buttons, MessageIcon icon);

  std::string folder_;
  std::string programName_;
  const Options& options_;
  const Clock& clock_;
  const Log& log_;
  MessageBoxes& boxes_;
  TextEditor& editor_;
  std::function<SystemFacts()> systemFacts_ = ReadSystemFacts;
  bool boxOpen_ = false;
  // When each fault (tag and number) was last reported.
  std::map<std::string, DateTime> lastReported_;
};

}  // namespace modMain

}  // namespace korvane
