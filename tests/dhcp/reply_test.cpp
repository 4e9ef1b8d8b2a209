// The replies byte for byte.
#include <gtest/gtest.h>

#include "dhcp_world.h"

using namespace korvane;

namespace {

std::string Zeros(std::size_t n) { return std::string(n, '\0'); }

// The fixed part of a reply to the test client (xid 12 34 56 78, Ethernet
// address 00:11:22:33:44:55).
std::string ReplyHeader(const std::string& ciaddr, const std::string& yiaddr) {
  return Bytes({2, 1, 6, 0, 0x12, 0x34, 0x56, 0x78}) + Zeros(4) + ciaddr + yiaddr + Zeros(8) +
         Bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55}) + Zeros(10) + Zeros(192) + Bytes({99, 130, 83, 99});
}

// Options 1 and 54 of the test interface; option 15 and the end.
const std::string kSubnetAndServer = Bytes({1, 4, 255, 255, 255, 0, 54, 4, 10, 0, 0, 1});
const std::string kDomainAndEnd = Bytes({15, 11}) + "example.com" + Bytes({255});

TEST(DhcpReply, OfferWithoutGatewayOrClientIdentifier) {
  DhcpWorld w;
  std::optional<std::string> reply = w.Exchange(modDHCP::kDiscover, Named("PC1"));
  ASSERT_TRUE(reply);
  EXPECT_EQ(*reply, ReplyHeader(Zeros(4), Bytes({10, 0, 0, 10})) + Bytes({53, 1, 2}) + kSubnetAndServer +
                        Bytes({51, 4, 0, 1, 81, 128, 6, 4, 10, 0, 0, 1, 12, 3}) + "pc1" + kDomainAndEnd);
  EXPECT_EQ(w.sender.sent[0].host, "255.255.255.255");
  EXPECT_EQ(w.sender.sent[0].port, 68);
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Offer to pc1 for 10.0.0.10");
}

TEST(DhcpReply, AcknowledgementWithGatewayBoundDnsAndClientIdentifier) {
  DhcpWorld w;
  w.ifs[0].Gateway = "10.0.0.254";
  w.ifs[0].TTL = 3600;
  w.options.DNSBIND = "10.0.0.53";
  Client c = Named("pc1");
  c.clientID = Bytes({1, 0, 0x11, 0x22, 0x33, 0x44, 0x55});
  std::optional<std::string> reply = w.Request(c, "10.0.0.12");
  ASSERT_TRUE(reply);
  EXPECT_EQ(*reply, ReplyHeader(Zeros(4), Bytes({10, 0, 0, 12})) + Bytes({53, 1, 5}) +
                        Bytes({61, 7, 1, 0, 0x11, 0x22, 0x33, 0x44, 0x55}) + kSubnetAndServer +
                        Bytes({51, 4, 0, 0, 14, 16, 6, 4, 10, 0, 0, 53, 3, 4, 10, 0, 0, 254}) +
                        Bytes({12, 3}) + "pc1" + kDomainAndEnd);
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Acknowledgement to pc1 for 10.0.0.12");
}

TEST(DhcpReply, NegativeCarriesAllOptionsWithoutAddress) {
  DhcpWorld w;
  std::optional<std::string> reply = w.Request(Client{}, "10.0.0.99");  // no name, no identifier
  ASSERT_TRUE(reply);
  EXPECT_EQ(*reply, ReplyHeader(Zeros(4), Zeros(4)) + Bytes({53, 1, 6}) + kSubnetAndServer +
                        Bytes({51, 4, 0, 1, 81, 128, 6, 4, 10, 0, 0, 1, 12, 0}) + kDomainAndEnd);
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Negative to  for 10.0.0.99");
}

TEST(DhcpReply, RenewalIsAnsweredByUnicastWithCiaddr) {
  DhcpWorld w;
  Client c;
  c.ciaddr = "10.0.0.14";
  std::optional<std::string> reply = w.Exchange(modDHCP::kRequest, c, "10.0.0.14");
  ASSERT_TRUE(reply);
  EXPECT_EQ(w.sender.sent[0].host, "10.0.0.14");
  EXPECT_EQ(reply->substr(0, 240), ReplyHeader(Bytes({10, 0, 0, 14}), Bytes({10, 0, 0, 14})));
}

TEST(DhcpReply, SendFailureIsLoggedAndTheLeaseStands) {
  DhcpWorld w;
  w.sender.fail = true;
  w.Request(Named("pc1"), "10.0.0.12");
  EXPECT_EQ(w.log.lines.back(), "Socket Error sending DHCP messages.");
  EXPECT_EQ(w.Table(), Lines{"pc1.example.com. 10.0.0.12 86400"});
  EXPECT_TRUE(w.errors.errors.empty());
}

}  // namespace
