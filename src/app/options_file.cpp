#include "app/options_file.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <sstream>

#include "store/files.h"
#include "wire/clean_name.h"
#include "wire/ip.h"

namespace korvane {

namespace modMain {

namespace {

std::string Trim(const std::string& text) {
  size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

std::string Upper(std::string text) {
  for (char& c : text)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return text;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

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
  double value = std::strtod(number.c_str(), nullptr);
  if (std::isnan(value)) return 0;
  value = std::nearbyint(value);  // the default rounding mode: half to even
  if (value >= static_cast<double>(std::numeric_limits<int32_t>::max()))
    return std::numeric_limits<int32_t>::max();
  if (value <= static_cast<double>(std::numeric_limits<int32_t>::min()))
    return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

void LoadOptions(const std::string& path, Options& options, ErrorReporter& errors) {
  options = Options{};
  std::optional<std::string> content = ReadWholeFile(path);
  if (!content) {
    errors.Report("modMain LoadOptions", "", ErrorNumber::kFileNotFound, "File not found");
    return;
  }
  std::istringstream file(*content);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t colon = line.find(':');
    std::string key = Upper(Trim(line.substr(0, colon)));
    std::string raw = colon == std::string::npos ? "" : Trim(line.substr(colon + 1));
    std::string value = Upper(raw);
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
  return text;
}

bool SaveOptions(const std::string& path, const Options& options) {
  return WriteFileAtomically(path, OptionsFileText(options));
}

}  // namespace modMain

}  // namespace korvane
