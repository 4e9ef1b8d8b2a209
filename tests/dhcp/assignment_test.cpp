// Address assignment: ValidLease, the pool search, requests and releases.
#include <gtest/gtest.h>

#include <random>

#include "dhcp_world.h"

using namespace korvane;

namespace {

constexpr double kDay = 86400;

void AddRecord(DhcpWorld& w, const std::string& name, bool permanent) {
  clDNSRecord r;
  r.Name = name;
  r.Permanent = permanent;
  r.RecType = RecordType::kA;
  w.records.Append(r);
}

// Active leases: busy's at .11 and a nameless client's at .14; old's at .12
// has expired. The own address .15 lies inside the pool.
TEST(DhcpValidLease, AppliesTheChecksWithTheirReuseSenses) {
  DhcpWorld w;
  w.StageLease("busy.example.com", "10.0.0.11", 3600);
  w.StageLease("old.example.com", "10.0.0.12", -60);
  w.LoadStaged();
  Client nameless;
  nameless.requestedIP = "10.0.0.14";
  ASSERT_EQ(w.Lease(nameless), "10.0.0.14");
  w.ifs[0].IPaddr = "10.0.0.15";
  w.server.SetSocket(1, &w.sender, "10.0.0.15");
  AddRecord(w, "pc.example.com.", true);  // a client's name may equal a record's
  AddRecord(w, "", false);                // cached
  const std::string pc = "pc.example.com.";
  struct {
    const char* what;
    std::string address, name;
    bool reuse, expected;
  } cases[] = {
      {"free address", "10.0.0.13", pc, false, true},
      {"empty address", "", pc, true, false},
      {"zero address", "0.0.0.0", pc, true, false},
      {"own address", "10.0.0.15", pc, true, false},
      {"below the pool", "10.0.0.9", pc, true, false},
      {"above the pool", "10.0.0.21", pc, true, false},
      {"first of the pool", "10.0.0.10", pc, false, true},
      {"last of the pool", "10.0.0.20", pc, false, true},
      {"other net", "10.0.1.13", pc, true, false},
      {"active lease, reuse", "10.0.0.11", pc, true, false},
      {"active lease, no reuse", "10.0.0.11", pc, false, false},
      {"expired lease, no reuse", "10.0.0.12", pc, false, false},
      {"expired lease, reuse", "10.0.0.12", pc, true, true},
      {"server's own name", "10.0.0.13", "dns.example.com.", true, false},
      {"server's name without dot", "10.0.0.13", "dns.example.com", true, true},
      {"active name, no reuse", "10.0.0.13", "busy.example.com.", false, false},
      {"active name, reuse", "10.0.0.13", "busy.example.com.", true, false},
      {"expired name, no reuse", "10.0.0.13", "old.example.com.", false, true},
      {"expired name, reuse", "10.0.0.13", "old.example.com.", true, false},
      {"empty name, no reuse", "10.0.0.13", "", false, true},
      {"empty name, reuse", "10.0.0.13", "", true, true},
  };
  for (const auto& c : cases)
    EXPECT_EQ(w.server.ValidLease(w.ifs[0], c.address, c.name, c.reuse), c.expected) << c.what;
  // A permanent record without a name stops all assignment.
  AddRecord(w, "", true);
  EXPECT_FALSE(w.server.ValidLease(w.ifs[0], "10.0.0.13", pc, false));
  EXPECT_EQ(w.Offer(Named("pc2", 2)), "");
}

// --- The pool search ------------------------------------------------------

TEST(DhcpPool, PoolOfOnlyTheOwnAddressOffersNothingButRefreshes) {
  DhcpWorld w;
  w.ifs[0].ScopeFrom = w.ifs[0].ScopeTo = "10.0.0.1";
  EXPECT_EQ(w.Offer(Named("c")), "");
  EXPECT_EQ(w.refreshes, 1);
  EXPECT_EQ(w.log.lines, Lines{"DHCP Discovery from c"});
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

// A valid requested address is offered as it is; the search's offers are
// recorded as long expired, and replace the old lease of their address.
TEST(DhcpPool, RequestedAddressIsOfferedWhenValidElseTheSearchDecides) {
  DhcpWorld w;
  Client c = Named("pc1"), d = Named("pc2", 2), e = Named("pc3", 3);
  c.requestedIP = d.requestedIP = "10.0.0.17";  // pc1's offer is not active: pc2 may take it
  e.requestedIP = "10.0.0.99";                  // outside the pool
  EXPECT_EQ(w.Offer(c), "10.0.0.17");
  EXPECT_EQ(w.log.lines, (Lines{"DHCP Discovery from pc1 (Looking for 10.0.0.17)",
                                "Sending DHCP Offer to pc1 for 10.0.0.17"}));
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

TEST(DhcpIdentity, TwoNamelessClientsWithoutOptionSixtyOneBothKeepTheirLeases) {
  // No option 61 and an empty one identify a client alike: by its card.
  for (std::optional<std::string> id : {std::optional<std::string>(), std::optional<std::string>("")}) {
    DhcpWorld w;
    Client a, b;
    a.clientID = b.clientID = id;
    b.mac[5] = 0x66;
    EXPECT_EQ(w.Lease(a), "10.0.0.10");
    EXPECT_EQ(w.Lease(b), "10.0.0.11");
    EXPECT_EQ(w.Table(), (Lines{" 10.0.0.10 86400", " 10.0.0.11 86400"}));
    EXPECT_EQ(w.Ids(), (Lines{"01001122334455", "01001122334466"}));
  }
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

TEST(DhcpRequest, RefusalAlsoEndsTheClientsOwnLease) {
  DhcpWorld w;
  ASSERT_EQ(w.Lease(Named("pc1", 1)), "10.0.0.10");
  ASSERT_EQ(w.Lease(Named("pc2", 2)), "10.0.0.11");
  EXPECT_EQ(ReplyType(w.Request(Named("pc2", 2), "10.0.0.10").value()), modDHCP::kNak);
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
  const Lines leased{"laptop.example.com. 10.0.0.10 86400"};
  EXPECT_EQ(w.Describe(w.server.LeasesNamed("laptop.example.com.")), leased);
  EXPECT_EQ(w.Describe(w.server.LeasesOfAddress("10.0.0.10")), leased);
  EXPECT_EQ(w.Describe(w.server.ActiveLeases()), leased);
  EXPECT_GE(w.changes, 2);

  w.clock.Advance(kDay / 2);  // the renewal comes by unicast from ciaddr
  c.ciaddr = "10.0.0.10";
  ASSERT_TRUE(w.Exchange(modDHCP::kRequest, c, "10.0.0.10"));
  EXPECT_EQ(w.sender.sent.back().host, "10.0.0.10");
  EXPECT_EQ(w.Table(), leased);

  w.clock.Advance(kDay + 1);  // expired without renewal: still in the table, not active
  EXPECT_TRUE(w.server.ActiveLeases().empty());
  EXPECT_EQ(w.Table(), Lines{"laptop.example.com. 10.0.0.10 -1"});
  EXPECT_TRUE(w.errors.errors.empty());
}

}  // namespace
