// The options dialog's rules, apart from its widgets: what each field shows,
// how an entry is cleaned when the operator leaves it, the checks before the
// options are taken, and the options the fields make.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store/options.h"

namespace korvane {

namespace modMain {

// The dialog's fields as they stand.
struct OptionsForm {
  std::string name;                  // txtName
  std::string hosts;                 // txtHosts
  int32_t hostsTTL = 3600;           // ttlHosts, seconds
  std::string bind;                  // comBind
  bool autoCNAME = false;            // chkCNAME
  int32_t cacheTTL = 0;              // ttlMin, seconds
  bool writeLog = false;             // chkLog
  bool recursionOut = false;         // chkRecur
  std::vector<std::string> servers;  // List, in order
};

// The field that takes the focus when a check fails.
enum class OptionsField { kNone, kName, kAdd };

struct OptionsCheck {
  std::string message;  // "" when the fields may be taken
  OptionsField focus = OptionsField::kNone;
  bool ok() const { return message.empty(); }
};

OptionsForm FormFromOptions(const Options& options);

// The first check that fails, with its message and the field to go to.
OptionsCheck ValidateOptions(const OptionsForm& form);

// `current` with the fields the dialog shows replaced by the form's, each
// cleaned as on leaving its box; every other option stays as it is. What
// comes out is what the options file reads back.
Options OptionsFromForm(const Options& current, const OptionsForm& form);

// The hosts path as the options file can hold it: no control characters
// (a line break would start a new setting), no blanks at either end.
std::string CleanHostsPath(std::string_view path);

// Adds the typed address to the servers after cleaning it; an unreadable
// address or one already listed is not added. True when it was added.
bool AddServer(std::vector<std::string>& servers, std::string_view typed);

// The bind addresses offered: all addresses (""), the machine's own, loopback.
std::vector<std::string> BindChoices(const std::vector<std::string>& localIPs);

// Where the hosts file browser starts: the folder before the path's last "/"
// ("/" for a file in the root) and the name after it; both empty when the
// path holds no "/".
struct BrowseStart {
  std::string folder;
  std::string file;
};
BrowseStart HostsBrowseStart(std::string_view path);

}  // namespace modMain

}  // namespace korvane
