#include "app/options_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "store/files.h"
#include "store/load_report.h"
#include "wire/text.h"
#include "wire/clean_name.h"
#include "wire/ip.h"
#include "wire/ip_network.h"

namespace korvane {

namespace modMain {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// "a.b.c.d/n" entries (or "any") separated by blanks or commas, each
// normalised; an entry that is neither is left out and returned.
std::vector<std::string> AddNetworks(const std::string& value, std::vector<std::string>& networks) {
  std::string list = value;
  for (char& c : list)
    if (c == ',' || c == '\t') c = ' ';
  std::vector<std::string> leftOut;
  for (const std::string& word : text::SplitWords(list)) {
    std::optional<modIP::Network> network = modIP::ParseNetwork(word);
    std::string entry = text::Upper(word) == "ANY" ? "any" : network ? network->Text() : "";
    if (entry.empty())
      leftOut.push_back(word);
    else if (std::find(networks.begin(), networks.end(), entry) == networks.end())
      networks.push_back(entry);
  }
  return leftOut;
}

}  // namespace

// The record files' reader takes no exponent ("5E3" is 5 there) and stops
// adding digits past 1e15; the options have always read both.
int32_t LeadingNumber(const std::string& text) {
  size_t i = 0;
  std::string number;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) number += text[i++];
  size_t digitsStart = number.size();
  while (i < text.size() && IsDigit(text[i])) number += text[i++];
  if (i < text.size() && text[i] == '.') {
    number += text[i++];
    while (i < text.size() && IsDigit(text[i])) number += text[i++];
  }
  bool hasDigits = false;
  for (size_t k = digitsStart; k < number.size(); ++k) hasDigits = hasDigits || IsDigit(number[k]);
  if (!hasDigits) return 0;
  // An exponent counts only when digits follow it ("5E" is 5).
  if (i < text.size() && (text[i] == 'E' || text[i] == 'e')) {
    size_t j = i + 1;
    std::string exponent = "e";
    if (j < text.size() && (text[j] == '+' || text[j] == '-')) exponent += text[j++];
    if (j < text.size() && IsDigit(text[j])) {
      while (j < text.size() && IsDigit(text[j])) exponent += text[j++];
      number += exponent;
    }
  }
  return text::RoundToInt32(std::strtod(number.c_str(), nullptr));
}

namespace {

// Says how a setting was read when that is not what it says, or why it was
// not used at all.
class SettingReport {
 public:
  SettingReport(FileReport& report, std::size_t line, const std::string& key, const std::string& raw)
      : report_(report), line_(line), raw_(raw), setting_(raw.empty() ? key : key + " " + raw) {}
  void Number() {
    std::string_view value = raw_;
    if (!value.empty() && (value[0] == '-' || value[0] == '+')) value.remove_prefix(1);
    if (!value.empty() && value[0] == '.') value.remove_prefix(1);
    if (value.empty() || !IsDigit(value[0])) report_.Cut(line_, setting_ + " is not a number, read as 0");
  }
  // The switch as read: on exactly when the value begins with "Y".
  bool Switch(const std::string& value) {
    if (!value.empty() && value[0] != 'Y' && value[0] != 'N')
      report_.Cut(line_, setting_ + " is read as NO (only a value that begins with Y is YES)");
    return !value.empty() && value[0] == 'Y';
  }
  // The address as read; "" when none is.
  std::string Address(const std::string& value, std::string_view whenNone) {
    std::string address = modIP::CleanIP(value);
    if (address.empty() && !value.empty())
      report_.Cut(line_, setting_ + " is not an address, " + std::string(whenNone));
    else if (!address.empty() && !modIP::IsDottedQuad(value))
      report_.Cut(line_, setting_ + " is not an IPv4 address, read as " + address);
    return address;
  }
  // The networks of a list as read.
  void Networks(const std::string& value, std::vector<std::string>& networks) {
    for (const std::string& word : AddNetworks(value, networks))
      report_.Cut(line_, word + " is not a network (a.b.c.d/n or any), left out");
  }

 private:
  FileReport& report_;
  std::size_t line_;
  std::string raw_;
  std::string setting_;
};

}  // namespace

namespace {

class NullLog : public LogSink {
 public:
  void AddLine(const std::string&) override {}
};

// One "Key: value" setting into `options`; false when the key is unknown.
bool ApplySetting(const std::string& key, const std::string& value, const std::string& raw,
                  Options& options, SettingReport& setting) {
  if (key == "NAME") {
    options.NAME = CleanName(value);
  } else if (key == "HOSTS") {
    options.HOSTS = raw;  // file names are case-sensitive here
  } else if (key == "HOSTSTTL") {
    setting.Number();
    options.HOSTSTTL = LeadingNumber(value);
  } else if (key == "CACHETTL") {
    setting.Number();
    options.CACHETTL = LeadingNumber(value);
  } else if (key == "DNSBIND") {
    options.DNSBIND = setting.Address(value, "the DNS service listens on all addresses");
  } else if (key == "AUTOCNAME") {
    options.AUTOCNAME = setting.Switch(value);
  } else if (key == "WRITELOG") {
    options.WRITELOG = setting.Switch(value);
  } else if (key == "RECURSIONOUT") {
    options.RECURSIONOUT = setting.Switch(value);
  } else if (key == "NS") {
    std::string server = setting.Address(value, "server left out");
    if (!server.empty()) options.NS.push_back(server);
  } else if (key == "CACHESIZE") {
    setting.Number();
    options.CACHESIZE = LeadingNumber(value);
  } else if (key == "RECURSIONFROM") {
    setting.Networks(raw, options.RECURSIONFROM);
  } else if (key == "FORWARDPRIVATEREVERSE") {
    options.FORWARDPRIVATEREVERSE = setting.Switch(value);
  } else if (key == "FORWARDBARENAMES") {
    options.FORWARDBARENAMES = setting.Switch(value);
  } else {
    return false;
  }
  return true;
}

}  // namespace

int LoadOptions(const std::string& path, Options& options, ErrorReporter& errors, LogSink* log) {
  options = Options{};
  std::optional<std::string> content = ReadWholeFile(path);
  if (!content) {
    const ErrorInfo why = errno == ENOENT ? ErrorInfo{ErrorNumber::kFileNotFound, "File not found"}
                                          : ErrorOfErrno(errno);
    errors.Report("modMain LoadOptions", path, why.number, why.description);
    return 0;
  }
  NullLog none;
  FileReport report(log ? *log : none, "korvane.ini");
  text::LineReader lines(*content);
  std::size_t number = 0;
  for (std::string_view line; lines.Next(line);) {
    ++number;
    const size_t colon = line.find(':');
    const std::string written(text::TrimBlanks(line.substr(0, colon)));
    const std::string key = text::Upper(written);
    const std::string raw = colon == std::string::npos ? "" : std::string(text::TrimBlanks(line.substr(colon + 1)));
    // Blank lines and comments were always passed over as unknown keys.
    if (key.empty() || key[0] == ';' || key[0] == '#') continue;
    SettingReport setting(report, number, written + ":", raw);
    if (ApplySetting(key, text::Upper(raw), raw, options, setting))
      report.Took();
    else
      report.Skipped(number, colon == std::string::npos ? "no ':'" : "unknown setting " + written);
  }
  report.Summary("setting");
  return report.warnings();
}

std::string OptionsFileText(const Options& options) {
  std::string text;
  auto line = [&text](const std::string& content) { text += content + "\n"; };
  if (!options.NAME.empty()) line("Name: " + options.NAME);
  if (!options.HOSTS.empty()) line("Hosts: " + options.HOSTS);
  line("HostsTTL: " + std::to_string(options.HOSTSTTL));
  if (!options.DNSBIND.empty()) line("DNSBind: " + options.DNSBIND);
  if (options.AUTOCNAME) line("AutoCNAME: YES");
  if (options.WRITELOG) line("WriteLog: YES");
  if (options.CACHETTL > 0) line("CacheTTL: " + std::to_string(options.CACHETTL));
  if (options.RECURSIONOUT) line("RecursionOut: YES");
  for (const std::string& server : options.NS) line("NS: " + server);
  if (options.CACHESIZE != Options::kDefaultCacheSize)
    line("CacheSize: " + std::to_string(options.CACHESIZE));
  if (!options.RECURSIONFROM.empty()) {
    std::string networks;
    for (const std::string& network : options.RECURSIONFROM)
      networks += (networks.empty() ? "" : " ") + network;
    line("RecursionFrom: " + networks);
  }
  if (options.FORWARDPRIVATEREVERSE) line("ForwardPrivateReverse: YES");
  if (options.FORWARDBARENAMES) line("ForwardBareNames: YES");
  return text;
}

bool SaveOptions(const std::string& path, const Options& options) {
  return WriteFileAtomically(path, OptionsFileText(options));
}

}  // namespace modMain

}  // namespace korvane
