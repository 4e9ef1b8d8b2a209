// The lease table's indexes and address searches against a plain model.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "dhcp/lease_table.h"

using namespace korvane;

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

// Random appends, erasures, releases and clock moves over two small windows
// (one at the top of the address space); every index and search is checked
// against a brute-force scan of a plain model.
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
      std::string ip = pick(10) == 0 ? "010.0.0.1" : DottedAddress(addressAt(pick(40)));
      clLease lease{now + (pick(5) - 2) * 10.0, ip, "n" + std::to_string(pick(5)), "i" + std::to_string(pick(3))};
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

    std::string ip = DottedAddress(addressAt(pick(40))), name = "n" + std::to_string(pick(5)),
                id = "i" + std::to_string(pick(3));
    LeaseTable::Ids atAddress, named, ofId;
    for (const auto& [key, lease] : model) {
      if (lease.IPaddr == ip) atAddress.insert(key);
      if (lease.ClientName == name) named.insert(key);
      if (lease.ClientID == id) ofId.insert(key);
    }
    ASSERT_EQ(table.WithAddress(ip), atAddress) << "step " << step;
    ASSERT_EQ(table.WithName(name), named) << "step " << step;
    ASSERT_EQ(table.WithClientID(id), ofId) << "step " << step;
    std::optional<DateTime> nextExpiry;
    for (const auto& [key, lease] : model)
      if (lease.Expires > now && (!nextExpiry || lease.Expires < *nextExpiry)) nextExpiry = lease.Expires;
    ASSERT_EQ(table.NextExpiryAfter(now), nextExpiry) << "step " << step;

    for (std::uint64_t from : {std::uint64_t(0x0A000000u + pick(22)),
                               std::uint64_t(0xFFFFFFFFu - pick(22))}) {
      std::uint64_t to = std::min<std::uint64_t>(from + pick(25), 0xFFFFFFFFu);
      std::map<std::string, bool> activeAt;  // leased addresses: any lease active?
      for (const auto& [key, lease] : model) activeAt[lease.IPaddr] |= lease.Expires > now;
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
  std::vector<DateTime> inTable, inModel;  // iteration keeps the order of appending
  for (const clLease& lease : table) inTable.push_back(lease.Expires);
  for (const auto& [key, lease] : model) inModel.push_back(lease.Expires);
  EXPECT_EQ(inTable, inModel);
}

}  // namespace
