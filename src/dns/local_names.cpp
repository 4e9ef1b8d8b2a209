#include "dns/local_names.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include "store/record.h"
#include "wire/ip_network.h"
#include "wire/zone_names.h"

namespace korvane {

namespace {

constexpr std::string_view kReverseSuffix = ".in-addr.arpa.";
constexpr int kDnsPort = 53;  // the port other servers are asked on

int Octet(std::string_view label) {
  if (label.empty() || label.size() > 3 || (label.size() > 1 && label[0] == '0')) return -1;
  int value = 0;
  for (char c : label) {
    if (c < '0' || c > '9') return -1;
    value = value * 10 + (c - '0');
  }
  return value <= 255 ? value : -1;
}

// The zones by their first octet and the range of their second (-1: the
// zone is the first octet alone).
struct PrivateZone {
  int first, secondLow, secondHigh;
};
constexpr PrivateZone kZones[] = {
    {10, -1, -1}, {127, -1, -1}, {0, -1, -1},        {172, 16, 31},
    {192, 168, 168}, {169, 254, 254}, {100, 64, 127},
};

}  // namespace

LocalName PrivateReverseName(const std::string& name) {
  if (!dnsnames::EndsWith(name, kReverseSuffix) || name.size() == kReverseSuffix.size())
    return LocalName::kNo;
  // The labels before "in-addr.arpa.", nearest the root first.
  std::vector<std::string_view> labels;
  std::string_view rest(name.data(), name.size() - kReverseSuffix.size());
  while (!rest.empty()) {
    std::size_t dot = rest.rfind('.');
    labels.push_back(dot == std::string_view::npos ? rest : rest.substr(dot + 1));
    rest = dot == std::string_view::npos ? std::string_view() : rest.substr(0, dot);
  }
  const int first = Octet(labels[0]);
  const int second = labels.size() > 1 ? Octet(labels[1]) : -1;
  for (const PrivateZone& zone : kZones) {
    if (zone.first != first) continue;
    std::size_t depth = zone.secondLow < 0 ? 1 : 2;
    if (depth == 2 && (second < zone.secondLow || second > zone.secondHigh)) continue;
    return labels.size() == depth ? LocalName::kEmptyZone : LocalName::kNoSuchName;
  }
  return LocalName::kNo;
}

LocalName BareName(const std::string& name, int type) {
  if (name.size() < 2 || name.find('.') != name.size() - 1) return LocalName::kNo;
  if (type == RecordType::kNS || type == RecordType::kSOA) return LocalName::kNo;
  return LocalName::kNoSuchName;
}

LocalName KeptLocal(const std::string& name, int type, const Options& options) {
  if (!options.FORWARDPRIVATEREVERSE) {
    LocalName reverse = PrivateReverseName(name);
    if (reverse != LocalName::kNo) return reverse;
  }
  return options.FORWARDBARENAMES ? LocalName::kNo : BareName(name, type);
}

bool IsThisServer(const std::string& address, const std::string& dnsBind,
                  const std::vector<std::string>& localIPs, int servicePort) {
  if (servicePort != kDnsPort) return false;
  if (!dnsBind.empty()) return address == dnsBind;
  std::optional<uint32_t> ip = modIP::ParseAddress(address);
  return (ip && (modIP::IsLoopback(*ip) || *ip == 0)) ||
         std::find(localIPs.begin(), localIPs.end(), address) != localIPs.end();
}

std::string ForwardingLoopLine(const std::string& server) {
  return "Forwarding loop: " + server + " is this server.";
}

}  // namespace korvane
