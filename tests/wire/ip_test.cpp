#include "wire/ip.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/fakes.h"
#include "wire/dns_codec.h"

using namespace korvane;

using namespace modIP;

namespace {

TEST(AddressTexts, Table) {
  using Function = std::string (*)(std::string_view);
  const std::string zero = Bytes({0, 0, 0, 0});
  struct Case {
    Function function;
    std::string in, out;
  } cases[] = {
      {IPToData, " 192.168.000.001 ", Bytes({192, 168, 0, 1})},
      {IPToData, "10.1", Bytes({10, 1, 0, 0})},
      {IPToData, "300.1.2.3", Bytes({255, 1, 2, 3})},
      {IPToData, "1.2.3.4.5.6", Bytes({1, 2, 3, 4})},
      {IPToData, "..7.8", Bytes({7, 8, 0, 0})},
      {IPToData, "1 0. 2 .3.4", Bytes({10, 2, 3, 4})},
      {IPToData, "-5.+6.7x.x7", Bytes({5, 6, 7, 0})},
      {IPToData, "1..2", Bytes({1, 0, 2, 0})},
      {IPToData, "abc", zero}, {IPToData, "", zero}, {IPToData, "-", zero},
      {IPToData, std::string(400, '9') + ".1", Bytes({255, 1, 0, 0})},
      {DataToIP, "", "0.0.0.0"},
      {DataToIP, Bytes({192, 168, 0, 1}), "192.168.0.1"},
      {DataToIP, Bytes({1, 2}), "1.2.0.0"},
      {DataToIP, Bytes({255, 0, 10, 200, 99}), "255.0.10.200"},
      {CleanIP, " 192.168.000.001 ", "192.168.0.1"},
      {CleanIP, "abc", ""}, {CleanIP, "0.0.0.0", ""},
      {IPToBin, "255.255.255.0", "11111111111111111111111100000000"},
      {IPToBin, "128.1.64.3", "10000000000000010100000000000011"},
      {IPToBin, "", std::string(32, '0')},
      {NextIP, "10.0.0.1", "10.0.0.2"}, {NextIP, "10.0.0.255", "10.0.1.0"},
      {NextIP, "10.255.255.255", "11.0.0.0"}, {NextIP, "255.255.255.255", "0.0.0.0"},
      {modDNS::IPToArpa, "1.2.3.4", "4.3.2.1.in-addr.arpa."},
      {modDNS::IPToArpa, "10.1", "0.0.1.10.in-addr.arpa."},
      {modDNS::ArpaToIP, "7.200.0.10.in-addr.arpa.", "10.0.200.7"},
      {modDNS::ArpaToData, "4.3.2.1.in-addr.arpa.", Bytes({1, 2, 3, 4})},
      {modDNS::ArpaToData, "2.1.in-addr.arpa.", Bytes({0, 0, 1, 2})},
      {modDNS::ArpaToData, "1.in-addr.arpa.", Bytes({0, 0, 0, 1})},
      {modDNS::ArpaToData, "5.4.3.2.1.in-addr.arpa.", Bytes({2, 3, 4, 5})},
      {modDNS::ArpaToData, "999.x.in-addr.arpa.", Bytes({0, 0, 0, 255})},
      {modDNS::ArpaToData, ".in-addr.arpa.", zero}, {modDNS::ArpaToData, "in-addr.arpa.", zero},
      {modDNS::ArpaToData, "4.3.2.1.IN-ADDR.ARPA.", zero},
      {modDNS::ArpaToData, "4.3.2.1.in-addr.arpa", zero}, {modDNS::ArpaToData, "", zero}};
  for (const Case& c : cases) EXPECT_EQ(c.function(c.in), c.out) << '"' << c.in << '"';
}

TEST(OctetValue, RoundsHalfToEvenAndClamps) {
  const std::vector<std::pair<std::string, int>> cases = {
      {"2.5", 2}, {"3.5", 4}, {"2.51", 3}, {"-7.5", 8}, {"254.5", 254}, {"255.5", 255},
      {"256", 255}, {"12abc", 12}, {".5", 0}, {".6", 1}, {"x1", 0}, {"+", 0}};
  for (const auto& [text, value] : cases) EXPECT_EQ(OctetValue(text), value) << text;
}

TEST(SameNet, Table) {
  const std::vector<std::tuple<const char*, const char*, const char*, bool>> cases = {
      {"10.0.0.1", "10.0.1.1", "255.255.255.0", false},
      {"10.0.0.1", "10.0.1.1", "255.255.0.0", true},
      {"10.0.0.1", "10.0.0.200", "255.255.255.0", true},
      {"192.168.1.1", "192.168.1.129", "255.255.255.128", false},
      {"192.168.1.1", "192.168.1.126", "255.255.255.128", true},
      {"10.1.0.1", "10.2.0.1", "255.0.255.0", false},  // a mask with gaps counts up to its last 1
      {"1.2.3.4", "200.9.9.9", "0.0.0.0", true},
      {"1.2.3.4", "1.2.3.5", "255.255.255.255", false},
      {"1.2.3.4", "1.2.3.4", "255.255.255.255", true}};
  for (const auto& [a, b, mask, same] : cases) EXPECT_EQ(SameNet(a, b, mask), same) << a << " " << b << " " << mask;
}

TEST(ValidIP, Table) {
  const std::vector<std::tuple<const char*, const char*, bool>> cases = {
      {"192.168.0.0", "255.255.255.0", false},   {"192.168.0.255", "255.255.255.0", false},
      {"192.168.0.1", "255.255.255.0", true},    {"192.168.0.254", "255.255.255.0", true},
      {"192.168.0.127", "255.255.255.128", false}, {"192.168.0.128", "255.255.255.128", false},
      {"192.168.0.129", "255.255.255.128", true}, {"10.0.255.255", "255.255.0.0", false},
      {"10.0.0.255", "255.255.0.0", true},       {"127.0.0.1", "255.0.0.0", false},
      {"127.0.0.1", "0.0.0.0", false},           {"10.0.0.5", "255.255.255.255", false},
      {"", "255.255.255.0", false},              {"abc", "255.255.255.0", false}};
  for (const auto& [address, mask, valid] : cases)
    EXPECT_EQ(ValidIP(address, mask), valid) << address << " " << mask;
}

}  // namespace
