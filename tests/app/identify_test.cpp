#include "app/identify.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "app/prompt_recorders.h"

using namespace korvane;

namespace {

// A hand-made interface list in getifaddrs' form.
class FakeInterfaces {
 public:
  void AddIPv4(const char* name, const char* address, unsigned flags,
               const char* mask = nullptr) {
    Add(name, V4(address), flags);
    if (mask) entries_.back().ifa_netmask = V4(mask);
  }
  void AddIPv6(const char* name, const char* address, unsigned flags) {
    auto& a = v6_.emplace_back();
    a.sin6_family = AF_INET6;
    inet_pton(AF_INET6, address, &a.sin6_addr);
    Add(name, reinterpret_cast<sockaddr*>(&a), flags);
  }
  void AddWithoutAddress(const char* name, unsigned flags) { Add(name, nullptr, flags); }
  const ifaddrs* First() const { return entries_.empty() ? nullptr : &entries_.front(); }

 private:
  void Add(const char* name, sockaddr* address, unsigned flags) {
    ifaddrs& entry = entries_.emplace_back();
    entry.ifa_name = const_cast<char*>(name);
    entry.ifa_flags = flags;
    entry.ifa_addr = address;
    if (entries_.size() > 1) entries_[entries_.size() - 2].ifa_next = &entry;
  }
  sockaddr* V4(const char* address) {
    auto& a = v4_.emplace_back();
    a.sin_family = AF_INET;
    inet_pton(AF_INET, address, &a.sin_addr);
    return reinterpret_cast<sockaddr*>(&a);
  }
  std::deque<ifaddrs> entries_;  // a deque keeps the links valid
  std::deque<sockaddr_in> v4_;
  std::deque<sockaddr_in6> v6_;
};

TEST(LocalIPs, UpIPv4NonLoopbackInInterfaceOrder) {
  FakeInterfaces list;
  list.AddIPv4("lo", "127.0.0.1", IFF_UP | IFF_LOOPBACK);
  list.AddIPv6("eth0", "fe80::1", IFF_UP);
  list.AddIPv4("eth0", "192.168.1.5", IFF_UP | IFF_BROADCAST);
  list.AddIPv4("wlan0", "10.0.0.9", IFF_BROADCAST);  // down
  list.AddWithoutAddress("tun0", IFF_UP);
  list.AddIPv4("eth1", "10.1.1.1", IFF_UP);
  list.AddIPv4("eth1", "10.1.1.2", IFF_UP);
  EXPECT_EQ(modIdentify::IPv4AddressesOf(list.First()),
            (std::vector<std::string>{"192.168.1.5", "10.1.1.1", "10.1.1.2"}));
  EXPECT_TRUE(modIdentify::IPv4AddressesOf(nullptr).empty());
}

TEST(LocalIPs, NetworksByTheInterfacesMasks) {
  FakeInterfaces list;
  list.AddIPv4("lo", "127.0.0.1", IFF_UP | IFF_LOOPBACK, "255.0.0.0");
  list.AddIPv4("eth0", "192.168.1.5", IFF_UP, "255.255.255.0");
  list.AddIPv4("wlan0", "10.0.0.9", 0, "255.0.0.0");  // down
  list.AddIPv4("eth1", "10.1.1.1", IFF_UP, "255.255.0.0");
  list.AddIPv4("ppp0", "10.9.9.9", IFF_UP);  // no mask: the address alone
  std::vector<std::string> networks;
  for (const modIP::Network& network : modIdentify::LocalNetworksOf(list.First()))
    networks.push_back(network.Text());
  EXPECT_EQ(networks, (std::vector<std::string>{"192.168.1.0/24", "10.1.0.0/16", "10.9.9.9/32"}));
}

TEST(LocalIPs, ThisMachinesListHasNoLoopbackAndNoBox) {
  RecordingBoxes boxes;
  std::vector<std::string> addresses = modIdentify::ReadLocalIPs(boxes);
  EXPECT_TRUE(boxes.shown.empty());
  for (const std::string& address : addresses) {
    in_addr parsed{};
    EXPECT_EQ(inet_pton(AF_INET, address.c_str(), &parsed), 1) << address;
    EXPECT_NE(address.rfind("127.", 0), 0u) << address;
  }
}

}  // namespace
