// Address assignment: ValidLease, the pool search, requests and releases.
#include <gtest/gtest.h>

#include <random>

#include "dhcp_world.h"

namespace {

constexpr double kDay = 86400;

Client Named(const std::string& name, int macLast = 0x55) {
  Client c;
  c.hostName = name;
  c.mac[5] = static_cast<char>(macLast);
  return c;
}

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
  // Own address 10.0.0.15 lies inside the pool 10.0.0.10 - 10.0.0.20.
  DhcpValidLease() {
    w.ifs[0].IPaddr = "10.0.0.15";
    w.AddLease("busy.example.com", "10.0.0.11", 3600);
    w.AddLease("old.example.com", "10.0.0.12", -60);
  }
  DhcpWorld w;
};

TEST_P(DhcpValidLease, AppliesTheChecksWithTheirReuseSenses) {
  const ValidCase& p = GetParam();
  EXPECT_EQ(w.server.ValidLease(w.ifs[0], p.address, p.name, p.reuse), p.expected) << p.what;
}

INSTANTIATE_TEST_SUITE_P(
    Rules, DhcpValidLease,
    testing::Values(
        ValidCase{"free address", "10.0.0.13", "pc.example.com.", false, true},
        ValidCase{"empty address", "", "pc.example.com.", true, false},
        ValidCase{"zero address", "0.0.0.0", "pc.example.com.", true, false},
        ValidCase{"own address", "10.0.0.15", "pc.example.com.", true, false},
        ValidCase{"below the pool", "10.0.0.9", "pc.example.com.", true, false},
        ValidCase{"above the pool", "10.0.0.21", "pc.example.com.", true, false},
        ValidCase{"first of the pool", "10.0.0.10", "pc.example.com.", false, true},
        ValidCase{"last of the pool", "10.0.0.20", "pc.example.com.", false, true},
        ValidCase{"other net", "10.0.1.13", "pc.example.com.", true, false},
        ValidCase{"active lease, reuse", "10.0.0.11", "pc.example.com.", true, false},
        ValidCase{"active lease, no reuse", "10.0.0.11", "pc.example.com.", false, false},
        ValidCase{"expired lease, no reuse", "10.0.0.12", "pc.example.com.", false, false},
        ValidCase{"expired lease, reuse", "10.0.0.12", "pc.example.com.", true, true},
        ValidCase{"server's own name", "10.0.0.13", "dns.example.com.", true, false},
        ValidCase{"server's name without dot", "10.0.0.13", "dns.example.com", true, true},
        ValidCase{"name with active lease, no reuse", "10.0.0.13", "busy.example.com.", false, false},
        ValidCase{"name with active lease, reuse", "10.0.0.13", "busy.example.com.", true, false},
        ValidCase{"name with expired lease, no reuse", "10.0.0.13", "old.example.com.", false, true},
        ValidCase{"name with expired lease, reuse", "10.0.0.13", "old.example.com.", true, false}));

TEST(DhcpValidLeaseNames, EmptyNamesNeverCollide) {
  DhcpWorld w;
  ASSERT_EQ(w.Lease(Client{}), "10.0.0.10");
  EXPECT_TRUE(w.server.ValidLease(w.ifs[0], "10.0.0.13", "", false));
  EXPECT_TRUE(w.server.ValidLease(w.ifs[0], "10.0.0.13", "", true));
}

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
  EXPECT_TRUE(w.server.ValidLease(w.ifs[0], "10.0.0.13", "pc.example.com.", true));
  EXPECT_EQ(w.Offer(Named("pc")), "10.0.0.10");
  add("", true);
  EXPECT_FALSE(w.server.ValidLease(w.ifs[0], "10.0.0.13", "pc.example.com.", true));
  EXPECT_EQ(w.Offer(Named("pc2", 2)), "");
}

// --- The pool search ------------------------------------------------------

TEST(DhcpPool, NeverLeasedAddressesComeBeforeExpiredOnes) {
  DhcpWorld w;
  w.ifs[0].ScopeTo = "10.0.0.12";
  w.AddLease("a.example.com", "10.0.0.10", -kDay);
  EXPECT_EQ(w.Offer(Named("pc1", 1)), "10.0.0.11");

  DhcpWorld full;
  full.ifs[0].ScopeTo = "10.0.0.12";
  full.AddLease("a.example.com", "10.0.0.12", -kDay);
  full.AddLease("b.example.com", "10.0.0.11", -kDay);
  full.AddLease("c.example.com", "10.0.0.10", -kDay);
  EXPECT_EQ(full.Offer(Named("pc1", 1)), "10.0.0.10");
  // The old lease of the reused address went, the offer is recorded as expired.
  std::vector<clLease> leases = full.AllLeases();
  ASSERT_EQ(leases.size(), 3u);
  EXPECT_EQ(leases[2].ClientName, "pc1.example.com.");
  EXPECT_EQ(leases[2].IPaddr, "10.0.0.10");
  EXPECT_EQ(leases[2].Expires, full.clock.Now() - kDay);
}

TEST(DhcpPool, OwnAddressIsNeverOffered) {
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
}

TEST(DhcpPool, WalkCarriesPastTheLastOctet) {
  DhcpWorld w;
  w.ifs[0].ScopeFrom = "10.0.0.254";
  w.ifs[0].ScopeTo = "10.0.1.2";
  w.ifs[0].Subnet = "255.255.0.0";
  w.AddLease("a.example.com", "10.0.0.254", kDay);
  w.AddLease("b.example.com", "10.0.0.255", kDay);
  EXPECT_EQ(w.Offer(Named("pc1")), "10.0.1.0");
}

TEST(DhcpPool, RequestedAddressIsOfferedWhenValidElseTheSearchDecides) {
  DhcpWorld w;
  Client c = Named("pc1");
  c.requestedIP = "10.0.0.17";
  EXPECT_EQ(w.Offer(c), "10.0.0.17");
  EXPECT_EQ(w.AllLeases().back().Expires, w.clock.Now());
  Client d = Named("pc2", 2);
  d.requestedIP = "10.0.0.17";  // held by pc1's offer, which is not active: reusable
  EXPECT_EQ(w.Offer(d), "10.0.0.17");
  Client e = Named("pc3", 3);
  e.requestedIP = "10.0.0.99";  // outside the pool
  EXPECT_EQ(w.Offer(e), "10.0.0.10");
}

// The indexed search must choose what the literal upward walk with
// ValidLease chooses, whatever the table holds.
TEST(DhcpPool, SearchAgreesWithTheLiteralWalk) {
  std::mt19937 random(20240611);
  for (int round = 0; round < 150; ++round) {
    DhcpWorld w;
    auto pick = [&](int n) { return static_cast<int>(random() % n); };
    w.ifs[0].ScopeFrom = "10.0.0." + std::to_string(240 + pick(10));
    w.ifs[0].ScopeTo = "10.0." + std::to_string(pick(2)) + "." + std::to_string(pick(16) + 240 * pick(2));
    w.ifs[0].IPaddr = "10.0.0." + std::to_string(240 + pick(16));
    w.server.SetSocket(1, &w.sender, w.ifs[0].IPaddr);
    int leases = pick(30);
    for (int i = 0; i < leases; ++i) {
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

TEST(DhcpPool, FullPoolOffersNothingUntilAReleaseFreesAnAddressForPassTwo) {
  DhcpWorld w;
  for (int i = 0; i < 11; ++i)
    EXPECT_EQ(w.Lease(Named("pc" + std::to_string(i), i)), "10.0.0." + std::to_string(10 + i));
  EXPECT_EQ(w.Offer(Named("late", 99)), "");
  w.Receive(Message(modDHCP::kRelease, Named("pc3", 3)), "10.0.0.13");
  EXPECT_EQ(w.Offer(Named("late", 99)), "10.0.0.13");
}

// --- The decisions on identities and names --------------------------------

TEST(DhcpIdentity, TwoNamelessClientsBothKeepTheirLeases) {
  DhcpWorld w;
  Client a, b;
  b.mac[5] = 0x66;
  EXPECT_EQ(w.Lease(a), "10.0.0.10");
  EXPECT_EQ(w.Lease(b), "10.0.0.11");
  std::vector<clLease> active = w.server.ActiveLeases();
  ASSERT_EQ(active.size(), 2u);
  EXPECT_EQ(active[0].ClientID, std::string("\x01\x00\x11\x22\x33\x44\x55", 7));
  EXPECT_EQ(active[1].ClientID, std::string("\x01\x00\x11\x22\x33\x44\x66", 7));
  // Each client renewing keeps its own address.
  a.ciaddr = "10.0.0.10";
  std::optional<std::string> reply = w.Exchange(modDHCP::kRequest, a, "10.0.0.10");
  ASSERT_TRUE(reply);
  EXPECT_EQ(YourAddress(*reply), "10.0.0.10");
  EXPECT_EQ(w.server.ActiveLeases().size(), 2u);
}

TEST(DhcpIdentity, OptionSixtyOneWinsOverTheHardwareAddress) {
  DhcpWorld w;
  Client a = Named("pc1");
  a.clientID = "id-one";
  EXPECT_EQ(w.Lease(a), "10.0.0.10");
  Client moved = a;  // same identifier, other card
  moved.mac[5] = 0x77;
  moved.hostName = "pc1b";
  EXPECT_EQ(w.Lease(moved), "10.0.0.10");
  ASSERT_EQ(w.AllLeases().size(), 1u);
  EXPECT_EQ(w.AllLeases()[0].ClientID, "id-one");
}

TEST(DhcpIdentity, SameNameUnderAnotherIdentityIsRefusedWhileActive) {
  DhcpWorld w;
  EXPECT_EQ(w.Lease(Named("pc1", 1)), "10.0.0.10");
  EXPECT_EQ(w.Offer(Named("pc1", 2)), "");
  w.clock.Advance(2 * kDay);  // the lease expires: pass 1 now ignores the name
  EXPECT_EQ(w.Offer(Named("pc1", 2)), "10.0.0.11");
  // and the offer evicted the old lease of that name
  ASSERT_EQ(w.AllLeases().size(), 1u);
  EXPECT_EQ(w.AllLeases()[0].IPaddr, "10.0.0.11");
}

// --- Requests and releases -------------------------------------------------

TEST(DhcpRequest, OutsideThePoolIsRefusedAndThePreviousLeaseIsGone) {
  DhcpWorld w;
  Client c = Named("pc1");
  ASSERT_EQ(w.Lease(c), "10.0.0.10");
  c.requestedIP = "192.168.7.7";
  c.serverID = "10.0.0.1";
  std::optional<std::string> reply = w.Exchange(modDHCP::kRequest, c);
  ASSERT_TRUE(reply);
  EXPECT_EQ(ReplyType(*reply), modDHCP::kNak);
  EXPECT_EQ(YourAddress(*reply), "0.0.0.0");
  EXPECT_EQ(w.log.lines.back(), "Sending DHCP Negative to pc1 for 192.168.7.7");
  EXPECT_TRUE(w.server.Leases().empty());
}

TEST(DhcpRequest, AddressHeldByAnotherActiveLeaseIsRefused) {
  DhcpWorld w;
  ASSERT_EQ(w.Lease(Named("pc1", 1)), "10.0.0.10");
  Client other = Named("pc2", 2);
  other.requestedIP = "10.0.0.10";
  other.serverID = "10.0.0.1";
  std::optional<std::string> reply = w.Exchange(modDHCP::kRequest, other);
  ASSERT_TRUE(reply);
  EXPECT_EQ(ReplyType(*reply), modDHCP::kNak);
  ASSERT_EQ(w.server.ActiveLeases().size(), 1u);
  EXPECT_EQ(w.server.ActiveLeases()[0].ClientName, "pc1.example.com.");
}

TEST(DhcpRelease, EndsTheFirstLeaseOfTheIdentityAndKeepsItInTheTable) {
  DhcpWorld w;
  Client c = Named("pc1");
  ASSERT_EQ(w.Lease(c), "10.0.0.10");
  ASSERT_EQ(w.Lease(Named("pc2", 2)), "10.0.0.11");
  int refreshes = w.refreshes, changes = w.changes;
  w.clock.Advance(100);
  w.Receive(Message(modDHCP::kRelease, c), "10.0.0.10");
  EXPECT_EQ(w.log.lines.back(), "DHCP Release from 10.0.0.10");
  EXPECT_EQ(w.refreshes, refreshes + 1);
  EXPECT_EQ(w.changes, changes + 1);
  std::vector<clLease> all = w.AllLeases();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].IPaddr, "10.0.0.10");
  EXPECT_EQ(all[0].Expires, w.clock.Now());
  EXPECT_EQ(w.server.ActiveLeases().size(), 1u);
  // The released address is reused only in pass 2.
  EXPECT_EQ(w.Offer(Named("pc3", 3)), "10.0.0.12");
}

TEST(DhcpDelete, RemovesEveryLeaseOfTheIdentity) {
  DhcpWorld w;
  w.AddLease("a.example.com", "10.0.0.10", kDay, "\x01\x02");
  w.AddLease("b.example.com", "10.0.0.11", -kDay, "\x01\x02");
  w.AddLease("c.example.com", "10.0.0.12", kDay, "\x03");
  w.server.DeleteClient("\x01\x02");
  ASSERT_EQ(w.AllLeases().size(), 1u);
  EXPECT_EQ(w.AllLeases()[0].ClientName, "c.example.com.");
}

// --- A client's whole life, and the DNS view of it ------------------------

TEST(DhcpScenario, DiscoverOfferRequestAckRenewRelease) {
  DhcpWorld w;
  Client c = Named("laptop");
  c.clientID = std::string("\x01\x00\x11\x22\x33\x44\x55", 7);

  std::optional<std::string> offer = w.Exchange(modDHCP::kDiscover, c);
  ASSERT_TRUE(offer);
  EXPECT_EQ(ReplyType(*offer), modDHCP::kOffer);
  EXPECT_EQ(w.sender.sent.back().host, "255.255.255.255");
  EXPECT_EQ(w.sender.sent.back().port, 68);
  EXPECT_EQ(w.sender.sent.back().from, "10.0.0.1");
  std::string address = YourAddress(*offer);
  EXPECT_EQ(address, "10.0.0.10");
  EXPECT_TRUE(w.server.ActiveLeases().empty()) << "an offer is not a lease yet";
  EXPECT_TRUE(w.server.LeasesNamed("laptop.example.com.").at(0).Expires <= w.clock.Now());

  c.requestedIP = address;
  c.serverID = "10.0.0.1";
  std::optional<std::string> ack = w.Exchange(modDHCP::kRequest, c);
  ASSERT_TRUE(ack);
  EXPECT_EQ(ReplyType(*ack), modDHCP::kAck);
  EXPECT_EQ(YourAddress(*ack), address);
  std::vector<LeaseView> named = w.server.LeasesNamed("laptop.example.com.");
  ASSERT_EQ(named.size(), 1u);
  EXPECT_EQ(named[0].IPaddr, address);
  EXPECT_EQ(named[0].Expires, w.clock.Now() + 86400);
  std::vector<LeaseView> byAddress = w.server.LeasesOfAddress(address);
  ASSERT_EQ(byAddress.size(), 1u);
  EXPECT_EQ(byAddress[0].ClientName, "laptop.example.com.");
  EXPECT_GE(w.changes, 2);

  w.clock.Advance(43200);
  c.ciaddr = address;
  c.serverID.reset();
  c.requestedIP.reset();
  std::optional<std::string> renewed = w.Exchange(modDHCP::kRequest, c, address);
  ASSERT_TRUE(renewed);
  EXPECT_EQ(w.sender.sent.back().host, address);
  EXPECT_EQ(w.server.LeasesNamed("laptop.example.com.").at(0).Expires, w.clock.Now() + 86400);

  w.clock.Advance(86401);  // expired without renewal: still in the table, not active
  EXPECT_TRUE(w.server.ActiveLeases().empty());
  EXPECT_LT(w.server.LeasesOfAddress(address).at(0).Expires, w.clock.Now());
  EXPECT_TRUE(w.errors.errors.empty());
}

}  // namespace
