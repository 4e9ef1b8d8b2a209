// The lease table's indexes and address searches against a plain model.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "dhcp/lease_table.h"

namespace {

TEST(LeaseTableAddress, CanonicalFormOnly) {
  EXPECT_EQ(CanonicalAddress("10.0.0.1"), 0x0A000001u);
  EXPECT_EQ(CanonicalAddress("255.255.255.255"), 0xFFFFFFFFu);
  EXPECT_EQ(CanonicalAddress("0.0.0.0"), 0u);
  for (const char* text : {"", "10.0.0", "10.0.0.01", "10.0.0.256", "10.0.0.1.", " 10.0.0.1",
                           "10..0.1", "1000.0.0.1", "a.b.c.d"})
    EXPECT_EQ(CanonicalAddress(text), std::nullopt) << text;
  EXPECT_EQ(DottedAddress(0xC0A80001u), "192.168.0.1");
}

TEST(LeaseTableIndexes, KeepTableOrderThroughRemovals) {
  LeaseTable table;
  auto a = table.Append({1, "10.0.0.1", "x.", "id"});
  auto b = table.Append({2, "10.0.0.2", "x.", "id"});
  auto c = table.Append({3, "10.0.0.1", "y.", "other"});
  EXPECT_EQ(*table.WithClientID("id").begin(), a);
  EXPECT_EQ(table.WithAddress("10.0.0.1"), (LeaseTable::Ids{a, c}));
  table.Erase(a);
  EXPECT_EQ(*table.WithClientID("id").begin(), b);
  EXPECT_EQ(table.WithName("x."), (LeaseTable::Ids{b}));
  auto d = table.Append({4, "10.0.0.9", "x.", "id"});
  EXPECT_EQ(table.WithName("x."), (LeaseTable::Ids{b, d}));
  std::vector<DateTime> order;
  for (const clLease& lease : table) order.push_back(lease.Expires);
  EXPECT_EQ(order, (std::vector<DateTime>{2, 3, 4}));
  EXPECT_TRUE(table.WithAddress("10.0.0.7").empty());
}

// Random appends, erasures, releases and clock moves over two small windows
// (one at the top of the address space); every search is checked against a
// brute-force scan of a plain model.
TEST(LeaseTableSearch, AgreesWithABruteForceModel) {
  std::mt19937 random(7);
  LeaseTable table;
  std::map<LeaseTable::Id, clLease> model;
  auto pick = [&](int n) { return static_cast<int>(random() % n); };
  auto addressAt = [](int slot) -> std::uint32_t {
    return slot < 20 ? 0x0A000000u + slot : 0xFFFFFFFFu - (slot - 20);
  };
  DateTime now = 1000;
  for (int step = 0; step < 3000; ++step) {
    int action = pick(10);
    if (action < 4 || model.empty()) {
      int slot = pick(40);
      std::string ip = pick(10) == 0 ? "010.0.0.1" : DottedAddress(addressAt(slot));
      clLease lease{now + (pick(5) - 2) * 10.0, ip, "n" + std::to_string(pick(5)), "i"};
      model[table.Append(lease)] = lease;
    } else if (action < 7) {
      auto it = std::next(model.begin(), pick(static_cast<int>(model.size())));
      table.Erase(it->first);
      model.erase(it);
    } else if (action < 8) {
      auto it = std::next(model.begin(), pick(static_cast<int>(model.size())));
      it->second.Expires = now + (pick(5) - 2) * 10.0;
      table.SetExpires(it->first, it->second.Expires);
    } else {
      now += (pick(7) - 3) * 7.0;
    }

    for (std::uint64_t from : {std::uint64_t(0x0A000000u + pick(22)),
                               std::uint64_t(0xFFFFFFFFu - pick(22))}) {
      std::uint64_t to = std::min<std::uint64_t>(from + pick(25), 0xFFFFFFFFu);
      std::map<std::string, bool> activeAt;  // leased addresses: any lease active?
      for (const auto& [id, lease] : model) activeAt[lease.IPaddr] |= lease.Expires > now;
      std::optional<std::uint32_t> unleased, withoutActive;
      for (std::uint64_t a = from; a <= to && !(unleased && withoutActive); ++a) {
        auto found = activeAt.find(DottedAddress(static_cast<std::uint32_t>(a)));
        if (found == activeAt.end() && !unleased) unleased = static_cast<std::uint32_t>(a);
        if ((found == activeAt.end() || !found->second) && !withoutActive)
          withoutActive = static_cast<std::uint32_t>(a);
      }
      ASSERT_EQ(table.LowestUnleased(from, to), unleased) << "step " << step;
      ASSERT_EQ(table.LowestWithoutActive(from, to, now), withoutActive) << "step " << step;
    }
  }
}

}  // namespace
