// What a lease-list view reads from the server: the active leases with
// their identities, the table's version and the next expiry.
#include <gtest/gtest.h>

#include <functional>

#include "dhcp_world.h"

using namespace korvane;

namespace {

constexpr double kDay = 86400;

// A row as a view would show it, with the identity in hexadecimal.
Lines Rows(const DhcpWorld& w) {
  Lines rows;
  for (const clLease& l : w.server.ActiveLeases())
    rows.push_back(l.ClientName + " " + l.IPaddr + " " + FormatDateTime(l.Expires) + " " +
                   modDHCP::HWToHex(l.ClientID));
  return rows;
}

TEST(DhcpLeaseList, RowsInTableOrderAndDeleteByTheirIdentity) {
  DhcpWorld w;
  Client withID = Named("pc1", 1), pending = Named("pc3", 3), released = Named("pc4", 4);
  withID.clientID = Bytes({1, 0xAB});
  ASSERT_EQ(w.Lease(withID), "10.0.0.10");
  w.clock.Advance(60);
  ASSERT_EQ(w.Lease(Named("pc2", 2)), "10.0.0.11");
  ASSERT_EQ(w.Offer(pending), "10.0.0.12");  // an offer is no row
  ASSERT_EQ(w.Lease(released), "10.0.0.13");
  w.Receive(Message(modDHCP::kRelease, released), "10.0.0.13");
  std::string first = FormatDateTime(w.clock.Now() - 60 + kDay), second = FormatDateTime(w.clock.Now() + kDay);
  ASSERT_EQ(Rows(w), (Lines{"pc1.example.com. 10.0.0.10 " + first + " 01AB",
                            "pc2.example.com. 10.0.0.11 " + second + " 01001122334402"}));

  std::uint64_t version = w.server.LeasesVersion();
  int changes = w.changes, refreshes = w.refreshes;
  w.server.DeleteClient(w.server.ActiveLeases().at(0).ClientID);
  EXPECT_EQ(Rows(w), Lines{"pc2.example.com. 10.0.0.11 " + second + " 01001122334402"});
  EXPECT_GT(w.server.LeasesVersion(), version);
  EXPECT_EQ(w.changes, changes + 1);
  EXPECT_EQ(w.refreshes, refreshes + 1);
}

// The version moves exactly when the table does; time alone does not move it.
TEST(DhcpLeaseList, VersionTellsWhetherTheTableChanged) {
  Client leased = Named("pc1", 1);
  Client reply = Named("pc2", 2);
  struct {
    const char* what;
    std::function<void(DhcpWorld&)> act;
    bool changes;
  } cases[] = {
      {"a reply from another server", [&](DhcpWorld& w) {
         std::string m = Message(modDHCP::kOffer, reply);
         m[0] = 2;
         w.Receive(m);
       }, false},
      {"a cut message", [&](DhcpWorld& w) { w.Receive(MessageBody(modDHCP::kDiscover, reply)); }, false},
      {"a decline", [&](DhcpWorld& w) { w.Receive(Message(modDHCP::kDecline, leased)); }, false},
      {"a request for another server", [&](DhcpWorld& w) {
         Client c = leased;
         c.requestedIP = "10.0.0.10";
         c.serverID = "10.0.0.2";
         w.Receive(Message(modDHCP::kRequest, c));
       }, false},
      {"a release of no lease", [&](DhcpWorld& w) { w.Receive(Message(modDHCP::kRelease, reply)); }, false},
      {"deleting no lease", [&](DhcpWorld& w) { w.server.DeleteClient("nobody"); }, false},
      {"a day passes", [&](DhcpWorld& w) { w.clock.Advance(2 * kDay); }, false},
      {"a save", [&](DhcpWorld& w) { w.server.Save(); }, false},
      {"a discover", [&](DhcpWorld& w) { w.Offer(reply); }, true},
      {"a renewal", [&](DhcpWorld& w) { w.Request(leased, "10.0.0.10"); }, true},
      {"a release", [&](DhcpWorld& w) { w.Receive(Message(modDHCP::kRelease, leased)); }, true},
      {"a delete", [&](DhcpWorld& w) { w.server.DeleteClient(w.server.Leases().begin()->ClientID); }, true},
      {"a load", [&](DhcpWorld& w) { w.server.Load(); }, true},
  };
  for (const auto& c : cases) {
    DhcpWorld w;
    ASSERT_EQ(w.Lease(leased), "10.0.0.10");
    std::uint64_t version = w.server.LeasesVersion();
    c.act(w);
    EXPECT_EQ(w.server.LeasesVersion() != version, c.changes) << c.what;
  }
}

TEST(DhcpLeaseList, NextExpiryIsTheEarliestActiveLeaseEnd) {
  DhcpWorld w;
  const DateTime start = w.clock.Now();
  EXPECT_EQ(w.server.NextExpiry(), std::nullopt) << "no lease";
  ASSERT_EQ(w.Offer(Named("pc1", 1)), "10.0.0.10");
  EXPECT_EQ(w.server.NextExpiry(), std::nullopt) << "an offer is already expired";

  ASSERT_EQ(w.Lease(Named("pc1", 1)), "10.0.0.10");
  w.clock.Advance(100);
  ASSERT_EQ(w.Lease(Named("pc2", 2)), "10.0.0.11");
  w.clock.Advance(100);
  ASSERT_EQ(w.Lease(Named("pc3", 3)), "10.0.0.12");
  EXPECT_EQ(w.server.NextExpiry(), start + kDay);

  w.Receive(Message(modDHCP::kRelease, Named("pc1", 1)), "10.0.0.10");
  EXPECT_EQ(w.server.NextExpiry(), start + 100 + kDay) << "a released lease is over";

  w.clock.Set(start + 100 + kDay);  // the moment pc2's lease ends it is no longer active
  EXPECT_EQ(Rows(w).size(), 1u);
  EXPECT_EQ(w.server.NextExpiry(), start + 200 + kDay);

  w.clock.Advance(2 * kDay);
  EXPECT_TRUE(Rows(w).empty());
  EXPECT_EQ(w.server.NextExpiry(), std::nullopt);
  w.clock.Set(start + 300);  // a clock set back makes leases active again
  EXPECT_EQ(w.server.NextExpiry(), start + 100 + kDay);
}

TEST(DhcpLeaseList, NextExpiryOfLoadedLeases) {
  DhcpWorld w;
  w.StageLease("a.example.com", "10.0.0.10", 500);
  w.StageLease("b.example.com", "10.0.0.11", -500);
  w.StageLease("c.example.com", "10.0.0.12", 300);
  w.StageLease("d.example.com", "0.0.0.0", 200);  // no address, still a row
  w.LoadStaged();
  EXPECT_EQ(w.server.NextExpiry(), w.clock.Now() + 200);
  w.server.DeleteClient(w.server.ActiveLeases().back().ClientID);
  EXPECT_EQ(w.server.NextExpiry(), w.clock.Now() + 300);
}

}  // namespace

namespace {

// How full each pool is: its active leases (offers and run-out leases do
// not count, nor addresses outside it) against its size.
TEST(DhcpLeaseList, PoolsInUseCountTheActiveLeasesInsideEachPool) {
  DhcpWorld w;
  w.ifs.push_back({"10.1.0.1", "10.1.0.100", "10.1.0.199", "255.255.255.0", "0.0.0.0", 600, "b."});
  w.ifs.push_back({"10.2.0.1", "bad", "10.2.0.9", "255.255.255.0", "0.0.0.0", 600, "c."});
  w.StageLease("a1.", "10.0.0.10", 600);
  w.StageLease("a2.", "10.0.0.11", -5);       // run out
  w.StageLease("a3.", "10.0.0.30", 600);      // outside every pool
  w.StageLease("b1.", "10.1.0.150", 600);
  w.StageLease("b2.", "10.1.0.199", 60);
  w.LoadStaged();
  ASSERT_EQ(w.Offer(Named("pc9", 9)), "10.0.0.12");  // an offer: not in use yet
  std::vector<std::string> uses;
  for (const PoolUse& pool : w.server.PoolsInUse())
    uses.push_back(pool.IPaddr + " " + std::to_string(pool.inUse) + "/" + std::to_string(pool.size));
  EXPECT_EQ(uses, (std::vector<std::string>{"10.0.0.1 1/11", "10.1.0.1 2/100", "10.2.0.1 0/0"}));
  w.clock.Advance(61);
  EXPECT_EQ(w.server.PoolsInUse()[1].inUse, 1u);
}

}  // namespace
