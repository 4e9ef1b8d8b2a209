// Address assignment: ValidLease, the pool search, requests and releases.
#include <gtest/gtest.h>

#include <random>

#include "dhcp_world.h"

namespace {

constexpr double kDay = 86400;

// --- ValidLease, rule by rule ---------------------------------------------

struct ValidCase {
  const char* what;
  std::string address;
  std::string name;
  bool reuse;
  bool expected;
};

void PrintTo(const ValidCase& c, std::ostream* os) { *os << c.what; }

class DhcpValidLease : public testing::TestWithParam<ValidCase> {
 protected:
  // Active leases: busy at .11, a nameless client at .14; old's at .12 has
  // expired. Own address .15 lies inside the pool.
  DhcpValidLease() {
    w.StageLease("busy.example.com", "10.0.0.11", 3600);
    w.StageLease("old.example.com", "10.0.0.12", -60);
    w.LoadStaged();
    Client nameless;
    nameless.requestedIP = "10.0.0.14";
    EXPECT_EQ(w.Lease(nameless), "10.0.0.14");
    w.ifs[0].IPaddr = "10.0.0.15";
  }
  DhcpWorld w;
};

TEST_P(DhcpValidLease, AppliesTheChecksWithTheirReuseSenses) {
  const ValidCase& p = GetParam();
  EXPECT_EQ(w.server.ValidLease(w.ifs[0], p.address, p.name, p.reuse), p.expected);
}

const std::string kPc = "pc.example.com.";

INSTANTIATE_TEST_SUITE_P(
    Rules, DhcpValidLease,
    testing::Values(ValidCase{"free address", "10.0.0.13", kPc, false, true},
                    ValidCase{"empty address", "", kPc, true, false},
                    ValidCase{"zero address", "0.0.0.0", kPc, true, false},
                    ValidCase{"own address", "10.0.0.15", kPc, true, false},
                    ValidCase{"below the pool", "10.0.0.9", kPc, true, false},
                    ValidCase{"above the pool", "10.0.0.21", kPc, true, false},
                    ValidCase{"first of the pool", "10.0.0.10", kPc, false, true},
                    ValidCase{"last of the pool", "10.0.0.20", kPc, false, true},
                    ValidCase{"other net", "10.0.1.13", kPc, true, false},
                    ValidCase{"active lease, reuse", "10.0.0.11", kPc, true, false},
                    ValidCase{"active lease, no reuse", "10.0.0.11", kPc, false, false},
                    ValidCase{"expired lease, no reuse", "10.0.0.12", kPc, false, false},
                    ValidCase{"expired lease, reuse", "10.0.0.12", kPc, true, true},
                    ValidCase{"server's own name", "10.0.0.13", "dns.example.com.", true, false},
                    ValidCase{"server's name without dot", "10.0.0.13", "dns.example.com", true, true},
                    ValidCase{"active name, no reuse", "10.0.0.13", "busy.example.com.", false, false},
                    ValidCase{"active name, reuse", "10.0.0.13", "busy.example.com.", true, false},
                    ValidCase{"expired name, no reuse", "10.0.0.13", "old.example.com.", false, true},
                    ValidCase{"expired name, reuse", "10.0.0.13", "old.example.com.", true, false},
                    ValidCase{"empty name, no reuse", "10.0.0.13", "", false, true},
                    ValidCase{"empty name, reuse", "10.0.0.13", "", true, true}));

TEST(DhcpValidLeaseRecords, OnlyAPermanentRecordWithoutNameStopsAssignment) {
  DhcpWorld w;
  auto add = [&](const std::string& name, bool permanent) {
    clDNSRecord r;
    r.Name = name;
    r.Permanent = permanent;
    r.RecType = RecordType::kA;
    w.records.Append(r);
  };
  add("pc.example.com.", true);  // a client's name may equal a record's
  add("", false);                // cached
  EXPECT_EQ(w.Offer(Named("pc")), "10.0.0.10");
  add("", true);
  EXPECT_FALSE(w.server.ValidLease(w.ifs[0], "10.0.0.13", "pc.example.com.", true));
  EXPECT_EQ(w.Offer(Named("pc2", 2)), "");
}

// --- The pool search ------------------------------------------------------

TEST(DhcpPool, NeverLeasedAddressesComeBeforeExpiredOnes) {
  DhcpWorld w;
  w.ifs[0].ScopeTo = "10.0.0.12";
  w.StageLease("a.example.com", "10.0.0.12", -kDay);
  w.StageLease("c.example.com", "10.0.0.10", -kDay);
  w.LoadStaged();
  EXPECT_EQ(w.Offer(Named("pc1", 1)), "10.0.0.11");
  // Nothing unleased is left: the lowest expired address goes with its old lease.
  EXPECT_EQ(w.Offer(Named("pc2", 2)), "10.0.0.10");
  EXPECT_EQ(w.Table(), (Lines{"a.example.com. 10.0.0.12 -86400", "pc1.example.com. 10.0.0.11 -86400",
                              "pc2.example.com. 10.0.0.10 -86400"}));
}

TEST(DhcpPool, OwnAddressIsNeverOfferedAndAFullPoolWaitsForARelease) {
  DhcpWorld w;
  w.ifs[0].IPaddr = "10.0.0.10";
  w.server.SetSocket(1, &w.sender, "10.0.0.10");
  w.ifs[0].ScopeTo = "10.0.0.12";
  EXPECT_EQ(w.Lease(Named("a", 1)), "10.0.0.11");
  EXPECT_EQ(w.Lease(Named("b", 2)), "10.0.0.12");
  int refreshes = w.refreshes;
  EXPECT_EQ(w.Offer(Named("c", 3)), "");
  EXPECT_EQ(w.refreshes, refreshes + 1);
  EXPECT_EQ(w.log.lines.back(), "DHCP Discovery from c");
  w.Receive(Message(modDHCP::kRelease, Named("a", 1)), "10.0.0.11");
  EXPECT_EQ(w.Offer(Named("c", 3)), "10.0.0.11");
}

TEST(DhcpPool, WalkCarriesPastTheLastOctet) {
  DhcpWorld w;
  w.ifs[0].ScopeFrom = "10.0.0.254";
  w.ifs[0].ScopeTo = "10.0.1.2";
  w.ifs[0].Subnet = "255.255.0.0";
  w.StageLease("a.example.com", "10.0.0.254", kDay);
  w.StageLease("b.example.com", "10.0.0.255", kDay);
  w.LoadStaged();
  EXPECT_EQ(w.Offer(Named("pc1")), "10.0.1.0");
}

TEST(DhcpPool, RequestedAddressIsOfferedWhenValidElseTheSearchDecides) {
  DhcpWorld w;
  Client c = Named("pc1"), d = Named("pc2", 2), e = Named("pc3", 3);
  c.requestedIP = d.requestedIP = "10.0.0.17";  // pc1's offer is not active: pc2 may take it
  e.requestedIP = "10.0.0.99";                  // outside the pool
  EXPECT_EQ(w.Offer(c), "10.0.0.17");
  EXPECT_EQ(w.Offer(d), "10.0.0.17");
  EXPECT_EQ(w.Offer(e), "10.0.0.10");
  EXPECT_EQ(w.Table(), (Lines{"pc2.example.com. 10.0.0.17 0", "pc3.example.com. 10.0.0.10 -86400"}));
}

// The indexed search must choose what the literal upward walk with
// ValidLease chooses, whatever the table holds.
TEST(DhcpPool, SearchAgreesWithTheLiteralWalk) {
  std::mt19937 random(20240611);
  auto pick = [&](int n) { return static_cast<int>(random() % n); };
  for (int round = 0; round < 150; ++round) {
    DhcpWorld w;
    w.ifs[0].ScopeFrom = "10.0.0." + std::to_string(240 + pick(10));
    w.ifs[0].ScopeTo = "10.0." + std::to_string(pick(2)) + "." + std::to_string(pick(16) + 240 * pick(2));
    w.ifs[0].IPaddr = "10.0.0." + std::to_string(240 + pick(16));
    w.server.SetSocket(1, &w.sender, w.ifs[0].IPaddr);
    for (int i = pick(30); i > 0; --i) {
      std::string ip = "10.0." + std::to_string(pick(2)) + "." + std::to_string(pick(2) ? 240 + pick(16) : pick(10));
      w.StageLease("h" + std::to_string(pick(12)) + ".example.com", ip, (pick(3) - 1) * 1000.0 + 1);
    }
    w.LoadStaged();
    // A first search, then the clock moves either way, so that the search
    // must bring its view of expired leases forward or back.
    w.Offer(Named("warm", 0xBB));
    w.clock.Advance((pick(5) - 2) * 900.0);
    Client c = Named("h" + std::to_string(pick(14)), 0xAA);
    std::string name = *c.hostName + ".example.com.";

    std::string expected;
    for (bool reuse : {false, true}) {
      std::string ip = w.ifs[0].ScopeFrom;
      for (int step = 0; step < 300 && expected.empty(); ++step) {
        if (w.server.ValidLease(w.ifs[0], ip, name, reuse)) expected = ip;
        if (ip == w.ifs[0].ScopeTo) break;
        ip = modIP::NextIP(ip);
      }
      if (!expected.empty()) break;
    }
    EXPECT_EQ(w.Offer(c), expected) << "round " << round;
  }
}

// --- The decisions on identities and names --------------------------------

TEST(DhcpIdentity, TwoNamelessClientsBothKeepTheirLeases) {
  DhcpWorld w;
  Client a, b;
  b.mac[5] = 0x66;
  EXPECT_EQ(w.Lease(a), "10.0.0.10");
  EXPECT_EQ(w.Lease(b), "10.0.0.11");
  a.ciaddr = "10.0.0.10";  // a renews and keeps its own address
  std::optional<std::string> reply = w.Exchange(modDHCP::kRequest, a, "10.0.0.10");
  ASSERT_TRUE(reply);
  EXPECT_EQ(YourAddress(*reply), "10.0.0.10");
  EXPECT_EQ(w.Table(), (Lines{" 10.0.0.11 86400", " 10.0.0.10 86400"}));
  EXPECT_EQ(w.Ids(), (Lines{"01001122334466", "01001122334455"}));
}

TEST(DhcpIdentity, OptionSixtyOneWinsOverTheHardwareAddress) {
  DhcpWorld w;
  Client a = Named("pc1");
  a.clientID = "id-one";
  EXPECT_EQ(w.Lease(a), "10.0.0.10");
  a.mac[5] = 0x77;  // same identifier, other card and name
  a.hostName = "pc1b";
  EXPECT_EQ(w.Lease(a), "10.0.0.10");
  EXPECT_EQ(w.Table(), Lines{"pc1b.example.com. 10.0.0.10 86400"});
  EXPECT_EQ(w.Ids(), Lines{modDHCP::HWToHex("id-one")});
}

TEST(DhcpIdentity, SameNameUnderAnotherIdentityIsRefusedWhileActive) {
  DhcpWorld w;
  EXPECT_EQ(w.Lease(Named("pc1", 1)), "10.0.0.10");
  EXPECT_EQ(w.Offer(Named("pc1", 2)), "");
  w.clock.Advance(2 * kDay);  // the lease expires: pass 1 now ignores the name
  EXPECT_EQ(w.Offer(Named("pc1", 2)), "10.0.0.11");
  EXPECT_EQ(w.Table(), Lines{"pc1.example.com. 10.0.0.11 -86400"});  // the old lease went
}

// --- Requests and releases -------------------------------------------------

TEST(DhcpRequest, RefusedAddressesAreNakedAndTheClientsLeaseIsGone) {
  DhcpWorld w;
  ASSERT_EQ(w.Lease(Named("pc1", 1)), "10.0.0.10");
  ASSERT_EQ(w.Lease(Named("pc2", 2)), "10.0.0.11");
  // pc2 asks for pc1's active address, then for one outside the pool.
  for (const char* ip : {"10.0.0.10", "192.168.7.7"}) {
    std::optional<std::string> reply = w.Request(Named("pc2", 2), ip);
    ASSERT_TRUE(reply) << ip;
    EXPECT_EQ(ReplyType(*reply), modDHCP::kNak) << ip;
    EXPECT_EQ(YourAddress(*reply), "0.0.0.0") << ip;
  }
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Negative to pc2 for 192.168.7.7");
  EXPECT_EQ(w.Table(), Lines{"pc1.example.com. 10.0.0.10 86400"});
}

TEST(DhcpRelease, EndsTheLeaseOfTheIdentityAndKeepsItInTheTable) {
  DhcpWorld w;
  ASSERT_EQ(w.Lease(Named("pc1", 1)), "10.0.0.10");
  ASSERT_EQ(w.Lease(Named("pc2", 2)), "10.0.0.11");
  int refreshes = w.refreshes, changes = w.changes;
  w.clock.Advance(100);
  w.Receive(Message(modDHCP::kRelease, Named("pc1", 1)), "10.0.0.10");
  EXPECT_EQ(w.log.lines.back(), "DHCP Release from 10.0.0.10");
  EXPECT_EQ(w.refreshes, refreshes + 1);
  EXPECT_EQ(w.changes, changes + 1);
  EXPECT_EQ(w.Table(), (Lines{"pc1.example.com. 10.0.0.10 0", "pc2.example.com. 10.0.0.11 86300"}));
  EXPECT_EQ(w.Offer(Named("pc3", 3)), "10.0.0.12");  // a released address waits for pass 2
}

TEST(DhcpDelete, RemovesEveryLeaseOfTheIdentity) {
  DhcpWorld w;
  w.StageLease("a.example.com", "10.0.0.10", kDay, "\x01\x02");
  w.StageLease("b.example.com", "10.0.0.11", -kDay, "\x01\x02");
  w.StageLease("c.example.com", "10.0.0.12", kDay, "\x03");
  w.LoadStaged();
  w.server.DeleteClient("\x01\x02");
  EXPECT_EQ(w.Table(), Lines{"c.example.com. 10.0.0.12 86400"});
}

// --- A client's whole life, and the DNS view of it ------------------------

TEST(DhcpScenario, DiscoverOfferRequestAckRenewExpire) {
  DhcpWorld w;
  Client c = Named("laptop");
  c.clientID = Bytes({1, 0, 0x11, 0x22, 0x33, 0x44, 0x55});

  std::optional<std::string> offer = w.Exchange(modDHCP::kDiscover, c);
  ASSERT_TRUE(offer);
  EXPECT_EQ(ReplyType(*offer), modDHCP::kOffer);
  EXPECT_EQ(YourAddress(*offer), "10.0.0.10");
  EXPECT_EQ(w.sender.sent.back().from, "10.0.0.1");
  EXPECT_TRUE(w.server.ActiveLeases().empty()) << "an offer is not a lease yet";

  std::optional<std::string> ack = w.Request(c, "10.0.0.10");
  ASSERT_TRUE(ack);
  EXPECT_EQ(ReplyType(*ack), modDHCP::kAck);
  EXPECT_EQ(YourAddress(*ack), "10.0.0.10");
  std::vector<LeaseView> named = w.server.LeasesNamed("laptop.example.com.");
  ASSERT_EQ(named.size(), 1u);
  EXPECT_EQ(named[0].IPaddr, "10.0.0.10");
  EXPECT_EQ(named[0].Expires, w.clock.Now() + kDay);
  std::vector<LeaseView> byAddress = w.server.LeasesOfAddress("10.0.0.10");
  ASSERT_EQ(byAddress.size(), 1u);
  EXPECT_EQ(byAddress[0].ClientName, "laptop.example.com.");
  EXPECT_GE(w.changes, 2);

  w.clock.Advance(kDay / 2);  // the renewal comes by unicast from ciaddr
  c.ciaddr = "10.0.0.10";
  ASSERT_TRUE(w.Exchange(modDHCP::kRequest, c, "10.0.0.10"));
  EXPECT_EQ(w.sender.sent.back().host, "10.0.0.10");
  EXPECT_EQ(w.Table(), Lines{"laptop.example.com. 10.0.0.10 86400"});

  w.clock.Advance(kDay + 1);  // expired without renewal: still in the table, not active
  EXPECT_TRUE(w.server.ActiveLeases().empty());
  EXPECT_EQ(w.Table(), Lines{"laptop.example.com. 10.0.0.10 -1"});
  EXPECT_TRUE(w.errors.errors.empty());
}

}  // namespace
