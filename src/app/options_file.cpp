#include "app/options_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string_view>

#include "store/files.h"
#include "wire/text.h"
#include "wire/clean_name.h"
#include "wire/ip.h"
#include "wire/ip_network.h"

namespace korvane {

namespace modMain {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// "a.b.c.d/n" entries (or "any") separated by blanks or commas, each
// normalised; the entries that are neither are left out and returned.
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

void LoadOptions(const std::string& path, Options& options, ErrorReporter& errors, LogSink* log) {
  options = Options{};
  std::optional<std::string> content = ReadWholeFile(path);
  if (!content) {
    const ErrorInfo why = errno == ENOENT ? ErrorInfo{ErrorNumber::kFileNotFound, "File not found"}
                                          : ErrorOfErrno(errno);
    errors.Report("modMain LoadOptions", path, why.number, why.description);
    return;
  }
  const std::string fileName = std::filesystem::path(path).filename().string();
  std::istringstream file(*content);
  int lineNumber = 0;
  for (std::string line; std::getline(file, line);) {
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t colon = line.find(':');
    std::string key = text::Upper(text::TrimBlanks(std::string_view(line).substr(0, colon)));
    std::string raw = colon == std::string::npos
                          ? ""
                          : std::string(text::TrimBlanks(std::string_view(line).substr(colon + 1)));
    std::string value = text::Upper(raw);
    if (key == "NAME") {
      options.NAME = CleanName(value);
    } else if (key == "HOSTS") {
      options.HOSTS = raw;  // file names are case-sensitive here
    } else if (key == "HOSTSTTL") {
      options.HOSTSTTL = LeadingNumber(value);
    } else if (key == "CACHETTL") {
      options.CACHETTL = LeadingNumber(value);
    } else if (key == "DNSBIND") {
      options.DNSBIND = modIP::CleanIP(value);
    } else if (key == "AUTOCNAME") {
      options.AUTOCNAME = !value.empty() && value[0] == 'Y';
    } else if (key == "WRITELOG") {
      options.WRITELOG = !value.empty() && value[0] == 'Y';
    } else if (key == "RECURSIONOUT") {
      options.RECURSIONOUT = !value.empty() && value[0] == 'Y';
    } else if (key == "NS") {
      std::string server = modIP::CleanIP(value);
      if (!server.empty()) options.NS.push_back(server);
    } else if (key == "CACHESIZE") {
      options.CACHESIZE = LeadingNumber(value);
    } else if (key == "RECURSIONFROM") {
      for (const std::string& word : AddNetworks(raw, options.RECURSIONFROM))
        if (log)
          log->AddLine(fileName + ":" + std::to_string(lineNumber) + ": RecursionFrom: " + word +
                       " is no network, left out");
    } else if (key == "FORWARDPRIVATEREVERSE") {
      options.FORWARDPRIVATEREVERSE = !value.empty() && value[0] == 'Y';
    } else if (key == "FORWARDBARENAMES") {
      options.FORWARDBARENAMES = !value.empty() && value[0] == 'Y';
    }
  }
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
