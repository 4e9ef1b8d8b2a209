#include "app/support_report.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstdio>
#include <exception>

#include "app/version.h"
#include "store/files.h"
#include "wire/datetime.h"

namespace korvane {

namespace modMain {

namespace {

constexpr size_t kReportLogLines = 50;

// Numbers as the reports have always printed them: a blank where a minus
// sign would stand.
std::string PrintedNumber(int number) {
  return number < 0 ? std::to_string(number) : " " + std::to_string(number);
}

std::string ErrorLines(const std::string& tag, int number, const std::string& description) {
  std::string text = "Error:" + PrintedNumber(number) + " " + description + "\n";
  if (!tag.empty()) text += "Module: " + tag + "\n";
  return text;
}

// Splits at LF, dropping a CR before it; a last line without an ending
// still counts.
std::vector<std::string> FileLines(const std::string& content) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < content.size()) {
    size_t end = content.find('\n', start);
    if (end == std::string::npos) end = content.size();
    std::string line = content.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::move(line));
    start = end + 1;
  }
  return lines;
}

std::string Unquoted(std::string value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
      value.back() == value.front()) {
    value = value.substr(1, value.size() - 2);
  }
  std::string plain;
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    plain += value[i];
  }
  return plain;
}

}  // namespace

std::optional<std::string> DistributionName(const std::string& osRelease) {
  std::optional<std::string> pretty, name, version;
  for (const std::string& line : FileLines(osRelease)) {
    size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    std::string key = line.substr(0, equals);
    std::string value = Unquoted(line.substr(equals + 1));
    if (key == "PRETTY_NAME") pretty = value;
    else if (key == "NAME") name = value;
    else if (key == "VERSION") version = value;
  }
  if (pretty && !pretty->empty()) return pretty;
  if (!name || name->empty()) return std::nullopt;
  return version && !version->empty() ? *name + " " + *version : *name;
}

SystemFacts ReadSystemFacts() {
  SystemFacts facts;
  struct utsname system{};
  if (uname(&system) == 0) facts.version = system.release;
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    if (std::optional<std::string> text = ReadWholeFile(path)) {
      facts.build = DistributionName(*text);
      break;
    }
  }
  return facts;
}

SupportReporter::SupportReporter(std::string folder, std::string programName,
                                 const Options& options, const Clock& clock, const Log& log,
                                 MessageBoxes& boxes, TextEditor& editor, PromptQueue& prompts)
    : folder_(std::move(folder)),
      programName_(std::move(programName)),
      options_(options),
      clock_(clock),
      log_(log),
      boxes_(boxes),
      editor_(editor),
      prompts_(prompts) {}

std::string SupportReporter::ReportText(const std::string& tag, const std::string& additional,
                                        int number, const std::string& description) const {
  std::string text;
  auto line = [&text](const std::string& content) {
    text += content;
    text += "\r\n";
  };

  line("Korvane - Support Info");
  line("------------------------------");
  line("");

  if (number > 0) {
    line("Error Description");
    line("-----------------");
    line("Number     :" + PrintedNumber(number));
    line("Description: " + description);
    line("Module     : " + tag);
    line("Additional : " + additional);
    line("");
  }

  line("Application Information");
  line("-----------------------");
  line("Path      : " + folder_ + "/" + programName_);
  line("Version   : " + VersionText());
  if (std::optional<DateTime> installed = FileModificationTime(folder_))
    line("Installed : " + FormatDateTime(*installed));
  else
    line("** Error getting Application info!");
  line("");

  line("System Information");
  line("------------------");
  SystemFacts facts = systemFacts_ ? systemFacts_() : SystemFacts{};
  line("OS Platform: " + facts.platform);
  if (facts.version && facts.build) {
    line("OS Version : " + *facts.version);
    line("OS Build   : " + *facts.build);
    line("Date/Time  : " + FormatDateTime(clock_.Now()));
  } else {
    if (facts.version) line("OS Version : " + *facts.version);
    line("** Error getting system info!");
  }
  line("");

  line("Recent Log Entries");
  line("------------------");
  const auto& window = log_.ListDNS();
  if (window.empty()) line("** No log entries!");
  for (size_t i = window.size() - std::min(window.size(), kReportLogLines); i < window.size(); ++i)
    line(window[i]);
  line("");

  for (const std::string& path : {folder_ + "/korvane.ini", folder_ + "/named.perm",
                                  folder_ + "/named.root", options_.HOSTS}) {
    std::string heading = "File: " + path;
    line(heading);
    line(std::string(heading.size(), '-'));
    // An empty path would name the working folder; it names no file.
    std::optional<std::string> content = path.empty() ? std::nullopt : ReadWholeFile(path);
    if (!content) {
      line("** Error opening file!");
    } else {
      for (const std::string& fileLine : FileLines(*content)) line(fileLine);
    }
    line("");
  }
  return text;
}

bool SupportReporter::Write(const std::string& tag, const std::string& additional, int number,
                            const std::string& description) {
  try {
    return WriteFileAtomically(ReportPath(), ReportText(tag, additional, number, description));
  } catch (const std::exception&) {
    return false;
  }
}

std::string SupportReporter::Where() const {
  return "A support file containing information about your\n"
         "system and configuration was created as\n"
         "'" + ReportPath() + "'\n"
         "\n";
}

SupportReporter::Box SupportReporter::ErrorBox(bool written, const std::string& tag, int number,
                                               const std::string& description) const {
  const std::string head =
      "An error has occured in Korvane!\n\n" + ErrorLines(tag, number, description) + "\n";
  if (!written) {
    return {head + "Please e-mail " + kSupportAddress + " and state\n"
                   "the above error information along with any\n"
                   "other information you think may be useful.",
            MessageButtons::OK};
  }
  return {head + Where() +
                 "Please e-mail this file to " + kSupportAddress + " and\n"
                 "state any other information you think may be useful.\n"
                 "\n"
                 "Review the support file with text editor now ?",
          MessageButtons::YesNo};
}

void SupportReporter::ShowErrorBox(const Box& box) {
  boxPending_ = true;
  MessageAnswer answer = boxes_.Show(box.text, box.buttons, MessageIcon::Critical, false, true);
  boxPending_ = false;
  if (box.buttons == MessageButtons::YesNo && answer == MessageAnswer::Yes) editor_.Open(ReportPath());
}

void SupportReporter::Report(const std::string& tag, const std::string& additional, int number,
                             const std::string& description) {
  if (number != 0) {
    // Hostile datagrams can raise the same fault many times a second; one
    // report a minute per fault says all there is to say.
    const DateTime now = clock_.Now();
    const std::string fault = tag + '\n' + std::to_string(number);
    auto last = lastReported_.find(fault);
    if (last != lastReported_.end() && now >= last->second && now - last->second < kRepeatSeconds)
      return;
    lastReported_[fault] = now;
  }
  const bool written = Write(tag, additional, number, description);
  // One error box at a time; the report is current all the same.
  if (boxPending_ || (written && number == 0)) return;
  boxPending_ = true;
  prompts_.Post([this, box = ErrorBox(written, tag, number, description)] { ShowErrorBox(box); });
}

void SupportReporter::MenuDump() {
  const bool written = Write("", "", 0, "");
  if (boxPending_) return;
  if (!written) ShowErrorBox(ErrorBox(false, "", 0, ""));
  std::string text = Where() + "E-Mail this file to " + kSupportAddress + " and\n"
                     "state your question, suggestion or problem.\n"
                     "\n"
                     "Review the support file with text editor now ?";
  boxPending_ = true;
  MessageAnswer answer = boxes_.Show(text, MessageButtons::YesNo, MessageIcon::Question);
  boxPending_ = false;
  if (answer == MessageAnswer::Yes) editor_.Open(ReportPath());
}

}  // namespace modMain

}  // namespace korvane
