#include "app/identify.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace korvane {

namespace modIdentify {

std::vector<std::string> IPv4AddressesOf(const ifaddrs* interfaces) {
  std::vector<std::string> addresses;
  for (const ifaddrs* entry = interfaces; entry; entry = entry->ifa_next) {
    if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET) continue;
    if (!(entry->ifa_flags & IFF_UP) || (entry->ifa_flags & IFF_LOOPBACK)) continue;
    const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
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

}  // namespace modIdentify

}  // namespace korvane
