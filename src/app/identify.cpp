#include "app/identify.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace korvane {

namespace modIdentify {

namespace {

// An IPv4 address of an interface that is up and not loopback.
const sockaddr_in* LocalAddressOf(const ifaddrs* entry) {
  if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET) return nullptr;
  if (!(entry->ifa_flags & IFF_UP) || (entry->ifa_flags & IFF_LOOPBACK)) return nullptr;
  return reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
}

}  // namespace

std::vector<std::string> IPv4AddressesOf(const ifaddrs* interfaces) {
  std::vector<std::string> addresses;
  for (const ifaddrs* entry = interfaces; entry; entry = entry->ifa_next) {
    const sockaddr_in* address = LocalAddressOf(entry);
    if (!address) continue;
    char text[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, &address->sin_addr, text, sizeof text)) addresses.emplace_back(text);
  }
  return addresses;
}

std::vector<std::string> ReadLocalIPs(MessageBoxes& boxes) {
  ifaddrs* interfaces = nullptr;
  if (getifaddrs(&interfaces) != 0) {
    boxes.Show("Network interfaces could not be read.", MessageButtons::OK, MessageIcon::None);
    return {};
  }
  std::vector<std::string> addresses = IPv4AddressesOf(interfaces);
  freeifaddrs(interfaces);
  return addresses;
}

std::vector<modIP::Network> LocalNetworksOf(const ifaddrs* interfaces) {
  std::vector<modIP::Network> networks;
  for (const ifaddrs* entry = interfaces; entry; entry = entry->ifa_next) {
    const sockaddr_in* address = LocalAddressOf(entry);
    if (!address) continue;
    uint32_t mask = 0xFFFFFFFFu;
    if (entry->ifa_netmask && entry->ifa_netmask->sa_family == AF_INET)
      mask = ntohl(reinterpret_cast<const sockaddr_in*>(entry->ifa_netmask)->sin_addr.s_addr);
    networks.push_back(modIP::NetworkOf(ntohl(address->sin_addr.s_addr), mask));
  }
  return networks;
}

std::vector<modIP::Network> ReadLocalNetworks() {
  ifaddrs* interfaces = nullptr;
  if (getifaddrs(&interfaces) != 0) return {};
  std::vector<modIP::Network> networks = LocalNetworksOf(interfaces);
  freeifaddrs(interfaces);
  return networks;
}

}  // namespace modIdentify

}  // namespace korvane
