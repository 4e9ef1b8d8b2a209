#include "tools/query.h"

#include <algorithm>
#include <optional>

#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/ip_network.h"
#include "wire/text.h"

namespace korvane {

namespace modQuery {

namespace {

constexpr std::size_t kMaxNameBytes = 255;
constexpr std::size_t kMaxLabel = 63;
constexpr std::string_view kArpa = ".in-addr.arpa.";

// Four numbers 0-255 joined by dots and nothing else, normalised; nullopt
// otherwise. The lenient conversions would turn "1.2.3" into 1.2.3.0: a
// question about an address nobody meant.
std::optional<std::string> StrictAddress(std::string_view text) {
  const std::optional<uint32_t> address = modIP::ParseAddress(text);
  if (!address) return std::nullopt;
  return modIP::AddressText(*address);
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Why `name` (with its final ".") cannot be asked, or "".
std::string NameProblem(std::string_view name) {
  if (name.find_first_of(" \t") != std::string_view::npos) return "A name cannot hold blanks.";
  if (name == ".") return "";
  std::size_t wireBytes = 1, at = 0;
  while (at < name.size()) {
    const std::size_t dot = name.find('.', at);
    const std::size_t label = dot - at;
    if (label == 0) return "The name has an empty label (a dot at its start or two dots in a row).";
    if (label > kMaxLabel) return "A label of the name is longer than 63 characters.";
    wireBytes += label + 1;
    at = dot + 1;
  }
  if (wireBytes > kMaxNameBytes) return "The name is longer than 255 bytes.";
  return "";
}

CheckedQuery Refuse(std::string message) {
  CheckedQuery refused;
  refused.Message = std::move(message);
  return refused;
}

}  // namespace

const std::array<QueryType, 7>& QueryTypes() {
  static const std::array<QueryType, 7> types = {{
      {"<all>", 255, "All types", "Domain Name:"},
      {"A", 1, "Host Address ( Name to IP-Address )", "Domain Name:"},
      {"MX", 15, "E-Mail Server", "Domain Name:"},
      {"PTR", kPtrType, "Pointer ( IP-Address to Name )", "IP Address:"},
      {"CNAME", 5, "Canonical NAME ( Alias )", "Domain Name:"},
      {"NS", 2, "Authoritative DNS Server", "Domain Name:"},
      {"SOA", 6, "Start of Authority", "Domain Name:"},
  }};
  return types;
}

CheckedQuery CheckQuery(std::string_view name, int type, std::string_view server) {
  name = text::TrimBlanks(name);
  if (name.empty()) return {};
  CheckedQuery query;
  const std::optional<std::string> address = StrictAddress(text::TrimBlanks(server));
  if (!address || *address == "0.0.0.0")
    return Refuse("The server must be an IP address such as 127.0.0.1.");
  query.Server = *address;
  query.Question = name.back() == '.' ? std::string(name) : std::string(name) + ".";
  if (type == kPtrType) {
    // A reverse name typed out is taken as it stands.
    if (!EndsWith(text::Upper(query.Question), text::Upper(kArpa))) {
      const std::optional<std::string> ip = StrictAddress(name);
      if (!ip) return Refuse("Enter an IP address such as 192.168.0.1 for a PTR look-up.");
      query.Question = modDNS::IPToArpa(*ip);
    }
  }
  if (std::string problem = NameProblem(query.Question); !problem.empty())
    return Refuse(std::move(problem));
  query.Ask = true;
  return query;
}

int32_t NextQueryId(int32_t last) { return last >= 65535 || last < 0 ? 1 : last + 1; }

std::string BuildQuery(int32_t id, std::string_view question, int type) {
  std::string query = modDNS::MakeShort(id);
  query += '\x01';  // recursion desired, opcode 0
  query += '\0';
  query += modDNS::MakeShort(1);
  query.append(6, '\0');
  query += modDNS::ZipName(query, question);
  query += '\0';
  query += static_cast<char>(type & 255);
  query += modDNS::MakeShort(1);
  return query;
}

bool IsThisServer(std::string_view server, std::string_view dnsBind,
                  const std::vector<std::string>& localIPs) {
  if (server == kDefaultServer) return true;
  if (!dnsBind.empty() && modIP::CleanIP(dnsBind) == server) return true;
  return std::find(localIPs.begin(), localIPs.end(), server) != localIPs.end();
}

std::string TimeoutText(std::string_view server) {
  return "No answer from " + std::string(server) + " within " + std::to_string(kTimeoutSeconds) +
         " seconds.";
}

std::string RoundTripText(std::string_view server, int port, int64_t milliseconds) {
  std::string where(server);
  if (port != kDnsPort) where += " port " + std::to_string(port);
  return "Answered by " + where + " in " + std::to_string(milliseconds) + " ms.";
}

}  // namespace modQuery

}  // namespace korvane
