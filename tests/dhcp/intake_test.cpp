// Reading DHCP messages: buffering, header fields, options, dispatch.
#include <gtest/gtest.h>

#include "dhcp_world.h"

namespace {

Client Named(const std::string& name) {
  Client c;
  c.hostName = name;
  return c;
}

TEST(DhcpIntake, ShortMessageStaysBufferedUntilTheNextDatagramCompletesIt) {
  DhcpWorld w;
  std::string whole = Message(modDHCP::kDiscover, Named("pc1"));
  w.Receive(whole.substr(0, 240));
  EXPECT_EQ(w.server.DHCPBuffers(1).size(), 240u);
  EXPECT_TRUE(w.log.lines.empty());
  w.Receive(whole.substr(240));
  EXPECT_EQ(w.server.DHCPBuffers(1), "");
  EXPECT_EQ(w.log.lines.front(), "DHCP Discovery from pc1");
  ASSERT_EQ(w.sender.sent.size(), 1u);
}

// Options that end before the end option, cut at every place: nothing is
// answered until the rest arrives, then exactly one offer goes out.
TEST(DhcpIntake, OptionsCutShortWaitForTheRestAtEveryCut) {
  std::string whole = Message(modDHCP::kDiscover, Named("pc1"));
  for (std::size_t cut = 241; cut < whole.size(); ++cut) {
    DhcpWorld w;
    w.Receive(whole.substr(0, cut));
    EXPECT_EQ(w.server.DHCPBuffers(1).size(), cut) << cut;
    EXPECT_TRUE(w.sender.sent.empty()) << cut;
    w.Receive(whole.substr(cut));
    EXPECT_EQ(w.sender.sent.size(), 1u) << cut;
    EXPECT_EQ(w.server.DHCPBuffers(1), "") << cut;
  }
}

TEST(DhcpIntake, OptionLengthBeyondTheMessageKeepsTheBuffer) {
  DhcpWorld w;
  std::string m = MessageBody(modDHCP::kDiscover, Client{}) + "\x0c\x40" + "abc";
  w.Receive(m);
  EXPECT_EQ(w.server.DHCPBuffers(1), m);
  EXPECT_TRUE(w.sender.sent.empty());
}

TEST(DhcpIntake, EndlessPaddingIsDroppedOnceTheBufferIsFull) {
  DhcpWorld w;
  w.Receive(MessageBody(modDHCP::kDiscover, Client{}));
  for (int i = 0; i < 70; ++i) w.Receive(std::string(1000, '\0'));
  EXPECT_LT(w.server.DHCPBuffers(1).size(), 1000u);
  w.Receive(Message(modDHCP::kDiscover, Client{}));
  EXPECT_EQ(w.sender.sent.size(), 1u);
}

TEST(DhcpIntake, WrongMagicCookieAndPadOptionsAreReadAllTheSame) {
  DhcpWorld w;
  Client c = Named("pc1");
  c.cookie = "XXXX";
  std::string m = MessageBody(modDHCP::kDiscover, c, std::string("\0\0\0", 3) + Option(99, "zz")) + '\xff';
  w.Receive(m);
  ASSERT_EQ(w.sender.sent.size(), 1u);
  EXPECT_EQ(YourAddress(w.sender.sent[0].bytes), "10.0.0.10");
}

struct NameCase {
  std::string option;
  std::string clientName;
  std::string leaseName;
};

void PrintTo(const NameCase& c, std::ostream* os) { *os << "name " << testing::PrintToString(c.option); }

class DhcpHostName : public testing::TestWithParam<NameCase> {};

TEST_P(DhcpHostName, IsCutAtNulAndDotAndLowerCased) {
  DhcpWorld w;
  ASSERT_EQ(w.Offer(Named(GetParam().option)), "10.0.0.10");
  EXPECT_EQ(w.log.lines.front(), "DHCP Discovery from " + GetParam().clientName);
  ASSERT_EQ(w.AllLeases().size(), 1u);
  EXPECT_EQ(w.AllLeases()[0].ClientName, GetParam().leaseName);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DhcpHostName,
    testing::Values(NameCase{"PC1.Example.com", "pc1", "pc1.example.com."},
                    NameCase{std::string("abc\0def.x", 9), "abc", "abc.example.com."},
                    NameCase{"", "", ".example.com."}, NameCase{"Solo", "solo", "solo.example.com."}));

TEST(DhcpIntake, WithoutHostNameTheLeaseNameIsEmpty) {
  DhcpWorld w;
  ASSERT_EQ(w.Offer(Client{}), "10.0.0.10");
  EXPECT_EQ(w.log.lines.front(), "DHCP Discovery from ");
  EXPECT_EQ(w.AllLeases()[0].ClientName, "");
}

class DhcpIgnoredType : public testing::TestWithParam<int> {};

TEST_P(DhcpIgnoredType, IsDroppedSilentlyAndEmptiesTheBuffer) {
  DhcpWorld w;
  w.Receive(Message(GetParam(), Named("pc1")));
  EXPECT_EQ(w.server.DHCPBuffers(1), "");
  EXPECT_TRUE(w.log.lines.empty());
  EXPECT_TRUE(w.sender.sent.empty());
  EXPECT_TRUE(w.server.Leases().empty());
}

// -1: no option 53 at all.
INSTANTIATE_TEST_SUITE_P(Types, DhcpIgnoredType, testing::Values(-1, 0, 2, 5, 6, 8, 200));

TEST(DhcpIntake, ReplyOperationIsDroppedAndEmptiesTheBuffer) {
  DhcpWorld w;
  std::string m = Message(modDHCP::kDiscover, Named("pc1"));
  m[0] = 2;
  w.Receive(m);
  EXPECT_EQ(w.server.DHCPBuffers(1), "");
  EXPECT_TRUE(w.log.lines.empty());
}

TEST(DhcpIntake, SocketWithoutInterfaceDropsTheMessage) {
  DhcpWorld w;
  RecordingSender other;
  w.server.SetSocket(2, &other, "10.9.9.9");
  w.Receive(Message(modDHCP::kDiscover, Named("pc1")), "0.0.0.0", 2);
  EXPECT_EQ(w.server.DHCPBuffers(2), "");
  EXPECT_TRUE(other.sent.empty());
  EXPECT_TRUE(w.log.lines.empty());
  EXPECT_TRUE(w.errors.errors.empty());
}

TEST(DhcpIntake, SocketIndexBeyondTenIsReported) {
  DhcpWorld w;
  w.Receive(Message(modDHCP::kDiscover, Named("pc1")), "0.0.0.0", 11);
  ASSERT_EQ(w.errors.errors.size(), 1u);
  EXPECT_EQ(w.errors.errors[0].tag, "modDHCP Arrival");
}

TEST(DhcpIntake, LongHardwareAddressRunsIntoSnameAndIsTheIdentity) {
  DhcpWorld w;
  Client c;
  c.mac = std::string("ABCDEFGHIJKLMNOPQRST");  // 20 bytes
  std::optional<std::string> reply = w.Exchange(modDHCP::kDiscover, c);
  ASSERT_TRUE(reply);
  EXPECT_EQ(static_cast<unsigned char>((*reply)[2]), 20);
  EXPECT_EQ(reply->substr(28, 16), "ABCDEFGHIJKLMNOP");
  EXPECT_EQ(reply->substr(44, 4), std::string(4, '\0'));
  EXPECT_EQ(w.AllLeases()[0].ClientID, "\x01" + c.mac);
}

TEST(DhcpIntake, DiscoveryLogShowsTheRequestedAddress) {
  DhcpWorld w;
  Client c = Named("pc1");
  c.requestedIP = "10.0.0.15";
  EXPECT_EQ(w.Offer(c), "10.0.0.15");
  EXPECT_EQ(w.log.lines[0], "DHCP Discovery from pc1 (Looking for 10.0.0.15)");
  EXPECT_EQ(w.log.lines[1], "Sending DHCP Offer to pc1 for 10.0.0.15");
}

struct RequestCase {
  const char* what;
  std::string ciaddr;
  std::string sender;
  std::optional<std::string> serverID;
  std::string logLine;  // "" = dropped without a word
};

void PrintTo(const RequestCase& c, std::ostream* os) { *os << c.what; }

class DhcpRequestDispatch : public testing::TestWithParam<RequestCase> {};

TEST_P(DhcpRequestDispatch, DecidesRenewalLeaseRequestOrDrop) {
  const RequestCase& p = GetParam();
  DhcpWorld w;
  Client c = Named("pc1");
  ASSERT_EQ(w.Lease(c), "10.0.0.10");
  w.log.lines.clear();
  w.sender.sent.clear();
  c.ciaddr = p.ciaddr;
  c.serverID = p.serverID;
  c.requestedIP = "10.0.0.10";
  w.Receive(Message(modDHCP::kRequest, c), p.sender);
  if (p.logLine.empty()) {
    EXPECT_TRUE(w.log.lines.empty()) << p.what;
    EXPECT_TRUE(w.sender.sent.empty()) << p.what;
    ASSERT_EQ(w.server.ActiveLeases().size(), 1u) << "the lease must stand";
    return;
  }
  ASSERT_FALSE(w.log.lines.empty()) << p.what;
  EXPECT_EQ(w.log.lines[0], p.logLine) << p.what;
  ASSERT_EQ(w.sender.sent.size(), 1u) << p.what;
  EXPECT_EQ(ReplyType(w.sender.sent[0].bytes), modDHCP::kAck) << p.what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DhcpRequestDispatch,
    testing::Values(
        RequestCase{"renewal by unicast", "10.0.0.10", "10.0.0.10", std::nullopt,
                    "DHCP Renewal Request from pc1 for 10.0.0.10"},
        RequestCase{"our server identifier", "0.0.0.0", "0.0.0.0", "10.0.0.1",
                    "DHCP Lease Request from pc1 for 10.0.0.10"},
        RequestCase{"foreign server identifier", "0.0.0.0", "0.0.0.0", "10.0.0.2", ""},
        RequestCase{"no server identifier", "0.0.0.0", "0.0.0.0", std::nullopt, ""},
        RequestCase{"ciaddr set but another sender", "10.0.0.10", "10.0.0.99", std::nullopt, ""}));

TEST(DhcpIntake, DeclineIsOnlyLogged) {
  DhcpWorld w;
  Client c = Named("pc1");
  ASSERT_EQ(w.Lease(c), "10.0.0.10");
  int changes = w.changes;
  w.log.lines.clear();
  w.Receive(Message(modDHCP::kDecline, c));
  EXPECT_EQ(w.log.lines, std::vector<std::string>{"DHCP Decline from pc1"});
  EXPECT_EQ(w.server.ActiveLeases().size(), 1u);
  EXPECT_EQ(w.changes, changes);
}

}  // namespace
