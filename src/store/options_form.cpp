#include "store/options_form.h"

#include <algorithm>

#include "wire/text.h"
#include "wire/clean_name.h"
#include "wire/ip.h"

namespace korvane {

namespace modMain {

OptionsForm FormFromOptions(const Options& options) {
  OptionsForm form;
  form.name = options.NAME;
  form.hosts = options.HOSTS;
  form.hostsTTL = options.HOSTSTTL;
  form.bind = options.DNSBIND;
  form.autoCNAME = options.AUTOCNAME;
  form.cacheTTL = options.CACHETTL;
  form.writeLog = options.WRITELOG;
  form.recursionOut = options.RECURSIONOUT;
  form.servers = options.NS;
  return form;
}

OptionsCheck ValidateOptions(const OptionsForm& form) {
  if (CleanName(form.name).empty()) return {"Please enter server name!", OptionsField::kName};
  bool anyServer = std::any_of(form.servers.begin(), form.servers.end(),
                               [](const std::string& server) { return !modIP::CleanIP(server).empty(); });
  if (form.recursionOut && !anyServer)
    return {"Please add at least one external DNS server\nIP Address to use external record resolution!",
            OptionsField::kAdd};
  return {};
}

Options OptionsFromForm(const Options& current, const OptionsForm& form) {
  Options options = current;
  options.NAME = CleanName(form.name);
  options.HOSTS = CleanHostsPath(form.hosts);
  // A TTL control never goes below 0; a negative CacheTTL would not read
  // back (it is not written).
  options.HOSTSTTL = std::max(0, form.hostsTTL);
  options.DNSBIND = modIP::CleanIP(form.bind);
  options.AUTOCNAME = form.autoCNAME;
  options.CACHETTL = std::max(0, form.cacheTTL);
  options.WRITELOG = form.writeLog;
  options.RECURSIONOUT = form.recursionOut;
  options.NS.clear();
  for (const std::string& server : form.servers) {
    std::string clean = modIP::CleanIP(server);
    if (!clean.empty()) options.NS.push_back(clean);
  }
  return options;
}

std::string CleanHostsPath(std::string_view path) {
  std::string kept;
  for (char c : path) {
    unsigned char byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) kept.push_back(c);
  }
  return std::string(text::TrimBlanks(kept));
}

bool AddServer(std::vector<std::string>& servers, std::string_view typed) {
  std::string server = modIP::CleanIP(typed);
  if (server.empty() || std::find(servers.begin(), servers.end(), server) != servers.end()) return false;
  servers.push_back(server);
  return true;
}

std::vector<std::string> BindChoices(const std::vector<std::string>& localIPs) {
  std::vector<std::string> choices{""};
  choices.insert(choices.end(), localIPs.begin(), localIPs.end());
  choices.push_back("127.0.0.1");
  return choices;
}

BrowseStart HostsBrowseStart(std::string_view path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  std::string folder(path.substr(0, slash));
  return {folder.empty() ? "/" : folder, std::string(path.substr(slash + 1))};
}

}  // namespace modMain

}  // namespace korvane
