#include "wire/ip.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/fakes.h"
#include "wire/dns_codec.h"

using namespace modIP;

namespace {

TEST(IPToData, LenientParsing) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {" 192.168.000.001 ", Bytes({192, 168, 0, 1})},
      {"10.1", Bytes({10, 1, 0, 0})},
      {"300.1.2.3", Bytes({255, 1, 2, 3})},
      {"1.2.3.4.5.6", Bytes({1, 2, 3, 4})},
      {"..7.8", Bytes({7, 8, 0, 0})},
      {"1 0. 2 .3.4", Bytes({10, 2, 3, 4})},
      {"-5.+6.7x.x7", Bytes({5, 6, 7, 0})},
      {"1..2", Bytes({1, 0, 2, 0})},
      {"abc", Bytes({0, 0, 0, 0})},
      {"", Bytes({0, 0, 0, 0})},
      {"-", Bytes({0, 0, 0, 0})},
      {std::string(400, '9') + ".1", Bytes({255, 1, 0, 0})}};
  for (const auto& [text, data] : cases) EXPECT_EQ(IPToData(text), data) << text;
}

TEST(OctetValue, RoundsHalfToEvenAndClamps) {
  const std::vector<std::pair<std::string, int>> cases = {
      {"2.5", 2}, {"3.5", 4}, {"2.51", 3}, {"-7.5", 8}, {"254.5", 254}, {"255.5", 255},
      {"256", 255}, {"12abc", 12}, {".5", 0}, {".6", 1}, {"x1", 0}, {"+", 0}};
  for (const auto& [text, value] : cases) EXPECT_EQ(OctetValue(text), value) << text;
}

TEST(DataToIP, Table) {
  EXPECT_EQ(DataToIP(""), "0.0.0.0");
  EXPECT_EQ(DataToIP(Bytes({192, 168, 0, 1})), "192.168.0.1");
  EXPECT_EQ(DataToIP(Bytes({1, 2})), "1.2.0.0");
  EXPECT_EQ(DataToIP(Bytes({255, 0, 10, 200, 99})), "255.0.10.200");
}

TEST(CleanIP, Table) {
  EXPECT_EQ(CleanIP(" 192.168.000.001 "), "192.168.0.1");
  EXPECT_EQ(CleanIP("abc"), "");
  EXPECT_EQ(CleanIP("0.0.0.0"), "");
  EXPECT_EQ(CleanIP("10.1"), "10.1.0.0");
}

TEST(IPToBin, Table) {
  EXPECT_EQ(IPToBin("255.255.255.0"), "11111111111111111111111100000000");
  EXPECT_EQ(IPToBin("128.1.64.3"), "10000000000000010100000000000011");
  EXPECT_EQ(IPToBin(""), std::string(32, '0'));
}

TEST(NextIP, CarriesAndWraps) {
  EXPECT_EQ(NextIP("10.0.0.1"), "10.0.0.2");
  EXPECT_EQ(NextIP("10.0.0.255"), "10.0.1.0");
  EXPECT_EQ(NextIP("10.255.255.255"), "11.0.0.0");
  EXPECT_EQ(NextIP("255.255.255.255"), "0.0.0.0");
}

struct NetCase {
  const char* a;
  const char* b;
  const char* mask;
  bool same;
};

TEST(SameNet, Table) {
  const std::vector<NetCase> cases = {
      {"10.0.0.1", "10.0.1.1", "255.255.255.0", false},
      {"10.0.0.1", "10.0.1.1", "255.255.0.0", true},
      {"10.0.0.1", "10.0.0.200", "255.255.255.0", true},
      {"192.168.1.1", "192.168.1.129", "255.255.255.128", false},
      {"192.168.1.1", "192.168.1.126", "255.255.255.128", true},
      // A mask with gaps counts up to its last 1.
      {"10.1.0.1", "10.2.0.1", "255.0.255.0", false},
      {"1.2.3.4", "200.9.9.9", "0.0.0.0", true},
      {"1.2.3.4", "1.2.3.5", "255.255.255.255", false},
      {"1.2.3.4", "1.2.3.4", "255.255.255.255", true}};
  for (const auto& c : cases) EXPECT_EQ(SameNet(c.a, c.b, c.mask), c.same) << c.a << " " << c.b << " " << c.mask;
}

TEST(ValidIP, Table) {
  const std::vector<std::tuple<const char*, const char*, bool>> cases = {
      {"192.168.0.0", "255.255.255.0", false},
      {"192.168.0.255", "255.255.255.0", false},
      {"192.168.0.1", "255.255.255.0", true},
      {"192.168.0.254", "255.255.255.0", true},
      {"192.168.0.127", "255.255.255.128", false},
      {"192.168.0.128", "255.255.255.128", false},
      {"192.168.0.129", "255.255.255.128", true},
      {"10.0.255.255", "255.255.0.0", false},
      {"10.0.0.255", "255.255.0.0", true},
      {"127.0.0.1", "255.0.0.0", false},
      {"127.0.0.1", "0.0.0.0", false},
      {"10.0.0.5", "255.255.255.255", false},
      {"", "255.255.255.0", false},
      {"abc", "255.255.255.0", false}};
  for (const auto& [address, mask, valid] : cases)
    EXPECT_EQ(ValidIP(address, mask), valid) << address << " " << mask;
}

TEST(ReverseNames, IPToArpa) {
  EXPECT_EQ(modDNS::IPToArpa("1.2.3.4"), "4.3.2.1.in-addr.arpa.");
  EXPECT_EQ(modDNS::IPToArpa("10.1"), "0.0.1.10.in-addr.arpa.");
}

TEST(ReverseNames, ArpaToData) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"4.3.2.1.in-addr.arpa.", Bytes({1, 2, 3, 4})},
      {"2.1.in-addr.arpa.", Bytes({0, 0, 1, 2})},
      {"1.in-addr.arpa.", Bytes({0, 0, 0, 1})},
      {"5.4.3.2.1.in-addr.arpa.", Bytes({2, 3, 4, 5})},
      {"999.x.in-addr.arpa.", Bytes({0, 0, 0, 255})},
      {".in-addr.arpa.", Bytes({0, 0, 0, 0})},
      {"in-addr.arpa.", Bytes({0, 0, 0, 0})},
      {"4.3.2.1.IN-ADDR.ARPA.", Bytes({0, 0, 0, 0})},
      {"4.3.2.1.in-addr.arpa", Bytes({0, 0, 0, 0})},
      {"", Bytes({0, 0, 0, 0})}};
  for (const auto& [name, data] : cases) EXPECT_EQ(modDNS::ArpaToData(name), data) << name;
}

TEST(ReverseNames, RoundTrip) {
  for (const char* ip : {"1.2.3.4", "192.168.0.1", "0.0.0.0", "255.255.255.255", "10.0.200.7"})
    EXPECT_EQ(modDNS::ArpaToIP(modDNS::IPToArpa(ip)), ip);
}

}  // namespace
