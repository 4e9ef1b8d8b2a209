#include "wire/ip_network.h"

#include <gtest/gtest.h>

#include <string>

using namespace korvane;
using namespace modIP;

namespace {

TEST(Networks, ParseKeepsOnlyWellFormedTextAndClearsHostBits) {
  const struct {
    std::string text;
    std::string parsed;  // "" when refused
  } cases[] = {
      {"192.168.1.0/24", "192.168.1.0/24"},
      {"10.1.2.3/8", "10.0.0.0/8"},
      {"10.1.2.3", "10.1.2.3/32"},
      {"0.0.0.0/0", "0.0.0.0/0"},
      {"100.127.255.255/10", "100.64.0.0/10"},
      {"255.255.255.255/32", "255.255.255.255/32"},
      {"10.0.0.0/33", ""},
      {"10.0.0.0/", ""},
      {"10.0.0.0/8x", ""},
      {"10.0.0/8", ""},
      {"10.0.0.256", ""},
      {"10.0.0.1.2", ""},
      {"1000.0.0.1", ""},
      {" 10.0.0.1", ""},
      {"any", ""},
      {"", ""},
  };
  for (const auto& c : cases) {
    std::optional<Network> network = ParseNetwork(c.text);
    EXPECT_EQ(network ? network->Text() : "", c.parsed) << c.text;
  }
}

TEST(Networks, ContainsByPrefixAndMaskCountsUpToItsLastOneBit) {
  const Network lan = *ParseNetwork("192.168.1.0/24");
  EXPECT_TRUE(lan.Contains("192.168.1.200"));
  EXPECT_FALSE(lan.Contains("192.168.2.1"));
  EXPECT_FALSE(lan.Contains("not an address"));
  EXPECT_TRUE(ParseNetwork("0.0.0.0/0")->Contains("203.0.113.7"));
  EXPECT_FALSE(ParseNetwork("203.0.113.7")->Contains("203.0.113.8"));

  EXPECT_EQ(NetworkOf(*ParseAddress("10.1.2.3"), 0xFFFF0000u).Text(), "10.1.0.0/16");
  // A mask with a gap counts as if set up to its last 1 bit.
  EXPECT_EQ(NetworkOf(*ParseAddress("10.1.2.3"), 0xFF00FF00u).Text(), "10.1.2.0/24");
  EXPECT_EQ(NetworkOf(*ParseAddress("10.1.2.3"), 0).Text(), "0.0.0.0/0");

  EXPECT_TRUE(IsLoopback(*ParseAddress("127.8.9.10")));
  EXPECT_FALSE(IsLoopback(*ParseAddress("128.0.0.1")));
  EXPECT_EQ(AddressText(*ParseAddress("1.20.255.0")), "1.20.255.0");
}

}  // namespace
