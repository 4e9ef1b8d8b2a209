// The error reporter: writes "support.txt" (error, program, system, recent
// log lines, configuration files) and tells the operator where it is.
// Errors are raised deep inside the engines, so the error box is never shown
// in place: it is posted to the prompt queue and shown once the handler that
// failed has returned.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "app/log.h"
#include "app/prompts.h"
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
                  const Clock& clock, const Log& log, MessageBoxes& boxes, TextEditor& editor,
                  PromptQueue& prompts);

  // Rewrites the report at once; for a number other than 0 then posts the
  // error box (or, when the report could not be written, the box that asks
  // to mail the error itself). Yes in the error box opens the report in the
  // text editor. While one of its boxes is posted or open it only rewrites
  // the report.
  void Report(const std::string& tag, const std::string& additional, int number,
              const std::string& description) override;

  // The report on demand, for a menu handler: no error section, then, in
  // place, the question whether to open it (nothing while an error box is
  // posted or open).
  void MenuDump();
  // True while one of its boxes is posted or open.
  bool BoxPending() const { return boxPending_; }

  // The report's whole text (lines ended by CR LF).
  std::string ReportText(const std::string& tag, const std::string& additional, int number,
                         const std::string& description) const;
  std::string ReportPath() const { return folder_ + "/support.txt"; }

  void SetSystemFactsSource(std::function<SystemFacts()> source) { systemFacts_ = std::move(source); }

 private:
  struct Box {
    std::string text;
    MessageButtons buttons;
  };
  // Writes the report; false when it could not be written.
  bool Write(const std::string& tag, const std::string& additional, int number,
             const std::string& description);
  // The lines that say where the report is, with the empty line after them.
  std::string Where() const;
  // The box that tells of an error: where the report is, or, when it could
  // not be written, what to mail instead.
  Box ErrorBox(bool written, const std::string& tag, int number,
               const std::string& description) const;
  void ShowErrorBox(const Box& box);

  std::string folder_;
  std::string programName_;
  const Options& options_;
  const Clock& clock_;
  const Log& log_;
  MessageBoxes& boxes_;
  TextEditor& editor_;
  PromptQueue& prompts_;
  std::function<SystemFacts()> systemFacts_ = ReadSystemFacts;
  bool boxPending_ = false;
  // When each fault (tag and number) was last reported.
  std::map<std::string, DateTime> lastReported_;
};

}  // namespace modMain

}  // namespace korvane
