// Reading DHCP messages: buffering, header fields, options, dispatch.
#include <gtest/gtest.h>

#include "dhcp_world.h"

namespace {

// Cut anywhere before its end option, a message is kept unread until the
// rest arrives; then it is read once.
TEST(DhcpIntake, MessageCutAnywhereWaitsForTheRest) {
  std::string whole = Message(modDHCP::kDiscover, Named("pc1"));
  for (std::size_t cut = 1; cut < whole.size(); ++cut) {
    DhcpWorld w;
    w.Receive(whole.substr(0, cut));
    EXPECT_EQ(w.server.DHCPBuffers(1).size(), cut) << cut;
    EXPECT_TRUE(w.log.lines.empty() && w.sender.sent.empty()) << cut;
    w.Receive(whole.substr(cut));
    EXPECT_EQ(w.server.DHCPBuffers(1), "") << cut;
    EXPECT_EQ(w.log.lines, (Lines{"DHCP Discovery from pc1", "Sending DHCP Offer to pc1 for 10.0.0.10"}));
    EXPECT_EQ(w.sender.sent.size(), 1u) << cut;
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
  w.Receive(MessageBody(modDHCP::kDiscover, c, std::string("\0\0\0", 3) + Option(99, "zz")) + '\xff');
  ASSERT_EQ(w.sender.sent.size(), 1u);
  EXPECT_EQ(YourAddress(w.sender.sent[0].bytes), "10.0.0.10");
}

struct NameCase {
  std::optional<std::string> option;
  std::string clientName, leaseName;
};

void PrintTo(const NameCase& c, std::ostream* os) { *os << testing::PrintToString(c.option); }

class DhcpHostName : public testing::TestWithParam<NameCase> {};

TEST_P(DhcpHostName, IsCutAtNulAndDotAndLowerCased) {
  DhcpWorld w;
  Client c;
  c.hostName = GetParam().option;
  ASSERT_EQ(w.Offer(c), "10.0.0.10");
  EXPECT_EQ(w.log.lines.front(), "DHCP Discovery from " + GetParam().clientName);
  EXPECT_EQ(w.Table(), Lines{GetParam().leaseName + " 10.0.0.10 -86400"});
}

INSTANTIATE_TEST_SUITE_P(Cases, DhcpHostName,
                         testing::Values(NameCase{"PC1.Example.com", "pc1", "pc1.example.com."},
                                         NameCase{std::string("abc\0def.x", 9), "abc", "abc.example.com."},
                                         NameCase{"", "", ".example.com."},
                                         NameCase{"Solo", "solo", "solo.example.com."},
                                         NameCase{std::nullopt, "", ""}));

struct IgnoredCase {
  const char* what;
  int type, op = 1, socket = 1;
};

void PrintTo(const IgnoredCase& c, std::ostream* os) { *os << c.what; }

class DhcpIgnored : public testing::TestWithParam<IgnoredCase> {};

TEST_P(DhcpIgnored, IsDroppedSilentlyAndEmptiesTheBuffer) {
  const IgnoredCase& p = GetParam();
  DhcpWorld w;
  w.server.SetSocket(2, &w.sender, "10.9.9.9");  // no interface holds this address
  std::string m = Message(p.type, Named("pc1"));
  m[0] = static_cast<char>(p.op);
  w.Receive(m, "0.0.0.0", p.socket);
  EXPECT_EQ(w.server.DHCPBuffers(p.socket), "");
  EXPECT_TRUE(w.log.lines.empty());
  EXPECT_TRUE(w.sender.sent.empty());
  EXPECT_TRUE(w.server.Leases().empty());
  EXPECT_TRUE(w.errors.errors.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DhcpIgnored,
    testing::Values(IgnoredCase{"no type option", -1}, IgnoredCase{"type 0", 0}, IgnoredCase{"offer", 2},
                    IgnoredCase{"ack", 5}, IgnoredCase{"nak", 6}, IgnoredCase{"inform", 8},
                    IgnoredCase{"type 200", 200}, IgnoredCase{"reply operation", 1, 2},
                    IgnoredCase{"socket without interface", 1, 1, 2}));

TEST(DhcpIntake, SocketIndexBeyondTenIsReported) {
  DhcpWorld w;
  w.Receive(Message(modDHCP::kDiscover, Named("pc1")), "0.0.0.0", 11);
  ASSERT_EQ(w.errors.errors.size(), 1u);
  EXPECT_EQ(w.errors.errors[0].tag, "modDHCP Arrival");
}

TEST(DhcpIntake, LongHardwareAddressRunsIntoSnameAndIsTheIdentity) {
  DhcpWorld w;
  Client c;
  c.mac = "ABCDEFGHIJKLMNOPQRST";  // 20 bytes
  std::optional<std::string> reply = w.Exchange(modDHCP::kDiscover, c);
  ASSERT_TRUE(reply);
  EXPECT_EQ(static_cast<unsigned char>((*reply)[2]), 20);
  EXPECT_EQ(reply->substr(28, 20), "ABCDEFGHIJKLMNOP" + std::string(4, '\0'));
  EXPECT_EQ(w.Ids(), Lines{modDHCP::HWToHex("\x01" + c.mac)});
}

TEST(DhcpIntake, DiscoveryLogShowsTheRequestedAddress) {
  DhcpWorld w;
  Client c = Named("pc1");
  c.requestedIP = "10.0.0.15";
  EXPECT_EQ(w.Offer(c), "10.0.0.15");
  EXPECT_EQ(w.log.lines, (Lines{"DHCP Discovery from pc1 (Looking for 10.0.0.15)",
                                "Sending DHCP Offer to pc1 for 10.0.0.15"}));
}

// A leased client sends a REQUEST or DECLINE; none of them may cost it its lease.
struct DispatchCase {
  const char* what;
  int type;
  std::string ciaddr, sender;
  std::optional<std::string> serverID;
  Lines log;  // empty: dropped without a word
};

void PrintTo(const DispatchCase& c, std::ostream* os) { *os << c.what; }

class DhcpDispatch : public testing::TestWithParam<DispatchCase> {};

TEST_P(DhcpDispatch, DecidesRenewalLeaseRequestDeclineOrDrop) {
  const DispatchCase& p = GetParam();
  DhcpWorld w;
  Client c = Named("pc1");
  ASSERT_EQ(w.Lease(c), "10.0.0.10");
  w.log.lines.clear();
  w.sender.sent.clear();
  c.ciaddr = p.ciaddr;
  c.serverID = p.serverID;
  // A renewal takes its address from the sender, not from option 50.
  if (p.ciaddr == "0.0.0.0") c.requestedIP = "10.0.0.10";
  w.Receive(Message(p.type, c), p.sender);
  EXPECT_EQ(w.log.lines, p.log);
  EXPECT_EQ(w.Table(), Lines{"pc1.example.com. 10.0.0.10 86400"});
  std::vector<int> types;  // only the two logged requests are answered, with an ACK
  for (const SentDatagram& d : w.sender.sent) types.push_back(ReplyType(d.bytes));
  EXPECT_EQ(types, p.log.size() == 2 ? std::vector<int>{modDHCP::kAck} : std::vector<int>{});
}

const std::string kAcked = "Sending DHCP Acknowledgement to pc1 for 10.0.0.10";
constexpr int kReq = modDHCP::kRequest;

INSTANTIATE_TEST_SUITE_P(
    Cases, DhcpDispatch,
    testing::Values(
        DispatchCase{"renewal by unicast", kReq, "10.0.0.10", "10.0.0.10", std::nullopt,
                     {"DHCP Renewal Request from pc1 for 10.0.0.10", kAcked}},
        DispatchCase{"our server identifier", kReq, "0.0.0.0", "0.0.0.0", "10.0.0.1",
                     {"DHCP Lease Request from pc1 for 10.0.0.10", kAcked}},
        DispatchCase{"foreign server identifier", kReq, "0.0.0.0", "0.0.0.0", "10.0.0.2", {}},
        DispatchCase{"no server identifier", kReq, "0.0.0.0", "0.0.0.0", std::nullopt, {}},
        DispatchCase{"ciaddr but another sender", kReq, "10.0.0.10", "10.0.0.99", std::nullopt, {}},
        DispatchCase{"decline", modDHCP::kDecline, "0.0.0.0", "0.0.0.0", std::nullopt,
                     {"DHCP Decline from pc1"}}));

}  // namespace
