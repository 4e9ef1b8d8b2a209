// This machine's own IPv4 addresses (LocalIPs).
#pragma once

#include <string>
#include <vector>

#include "app/prompts.h"
#include "wire/ip_network.h"

struct ifaddrs;

namespace korvane {

namespace modIdentify {

// The IPv4 addresses of the interfaces that are up, loopback excluded, in
// interface order. When the interfaces cannot be read: the message box
// "Network interfaces could not be read." and an empty list.
std::vector<std::string> ReadLocalIPs(MessageBoxes& boxes);

// The same selection from an interface list as getifaddrs gives it.
std::vector<std::string> IPv4AddressesOf(const ifaddrs* interfaces);

// The networks of those addresses, by their interfaces' masks; empty when
// the interfaces cannot be read.
std::vector<modIP::Network> ReadLocalNetworks();
std::vector<modIP::Network> LocalNetworksOf(const ifaddrs* interfaces);

}  // namespace modIdentify

}  // namespace korvane
