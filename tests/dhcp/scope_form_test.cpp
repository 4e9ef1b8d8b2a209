#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dhcp/scope_form.h"
#include "store/record.h"
#include "wire/ip.h"

using namespace korvane;
using namespace korvane::modDHCP;

namespace {

using F = ScopeField;

const std::vector<std::string> kLocal = {"10.1.0.5", "192.168.0.5", "192.168.0.6", "172.16.0.1"};

clPermRec Pool(const char* from, const char* to, const char* mask) {
  return {RecordType::kDHCP, "lab.example", "",
          modIP::IPToData(from) + modIP::IPToData(to) + modIP::IPToData(mask) + std::string(8, '\0'), 600, 0};
}

struct ScopeRow {
  std::array<std::string, 4> ip;
  int32_t ttl;
  std::string message;
  F focus;
};

TEST(ScopeForm, ChecksInOrder) {
  const ScopeRow rows[] = {
      {{"", "192.168.0.200", "255.255.255.0", ""}, 60, "Please enter IP-Addresses!", F::kFrom},
      {{"192.168.0.100", "", "255.255.255.0", ""}, 60, "Please enter IP-Addresses!", F::kTo},
      {{"192.168.0.100", "192.168.0.200", " ", ""}, 60, "Please enter IP-Addresses!", F::kMask},
      {{"192.168.0.100", "192.168.0.200", "255.255.0.255", ""}, 60, "Invalid subnet mask!", F::kMask},
      {{"192.168.0.100", "192.168.0.200", "255.255.256.0", ""}, 60, "Invalid subnet mask!", F::kMask},
      {{"192.168.0.100", "192.168.1.200", "255.255.255.0", ""}, 60, "IP-Addresses must be on the same subnet!",
       F::kTo},
      {{"192.168.0.0", "192.168.0.200", "255.255.255.0", ""}, 60, "Invalid from IP-Address!", F::kFrom},
      {{"192.168.0.300", "192.168.0.200", "255.255.255.0", ""}, 60, "Invalid from IP-Address!", F::kFrom},
      {{"192.168.0.100", "192.168.0.255", "255.255.255.0", ""}, 60, "Invalid to IP-Address!", F::kTo},
      {{"192.168.0.5", "192.168.0.5", "255.255.255.255", ""}, 60, "Invalid from IP-Address!", F::kFrom},
      {{"10.9.0.10", "10.9.0.20", "255.255.255.0", ""}, 60, "This computer has no interface on that subnet!",
       F::kFrom},
      {{"172.16.0.10", "172.16.0.20", "255.255.255.0", ""}, 60, "DHCP-Record for this interface already exists!",
       F::kFrom},
      {{"192.168.0.100", "192.168.0.200", "255.255.255.0", "192.168.0.255"}, 60,
       "Invalid default gateway IP-Address!", F::kGateway},
      {{"192.168.0.100", "192.168.0.200", "255.255.255.0", "192.168.0"}, 60, "Invalid default gateway IP-Address!",
       F::kGateway},
      {{"192.168.0.100", "192.168.0.200", "255.255.255.0", "10.1.0.1"}, 60,
       "Default gateway must be on the same subnet!", F::kGateway},
      {{"192.168.0.100", "192.168.0.200", "255.255.255.0", ""}, 0, "The TTL for DHCP-Records cannot be zero!",
       F::kTTL},
      {{"192.168.0.200", "192.168.0.100", "255.255.255.0", "192.168.0.1"}, 60, "", F::kNone},
      {{"10.1.0.10", "10.1.0.20", "255.255.0.0", ""}, 60, "", F::kNone},
  };
  const std::vector<clPermRec> others = {Pool("172.16.0.100", "172.16.0.200", "255.255.255.0")};
  for (const ScopeRow& row : rows) {
    SCOPED_TRACE(row.ip[0] + " " + row.ip[1] + " " + row.ip[2] + " " + row.ip[3]);
    const ScopeCheck check = CheckScope({"lab.example", row.ip, row.ttl}, others, kLocal);
    EXPECT_EQ(check.message, row.message);
    EXPECT_EQ(check.focus, row.focus);
    EXPECT_FALSE(check.information);
  }
}

TEST(ScopeForm, TheEntryOfAReversedRangeWithoutGateway) {
  ScopeForm form{"Lab.Example", {"192.168.0.200", "192.168.0.100", "255.255.255.0", ""}, 3600};
  EXPECT_TRUE(SwapReversedRange(form));
  EXPECT_FALSE(SwapReversedRange(form));
  EXPECT_EQ(form.ip[0], "192.168.0.100");
  const clPermRec entry = ScopeEntry(form, kLocal);
  EXPECT_EQ(entry.RecType, RecordType::kDHCP);
  EXPECT_EQ(entry.Domain, "lab.example");
  EXPECT_EQ(entry.TTL, 3600);
  // The last machine address in the network is the interface.
  EXPECT_EQ(entry.Data, modIP::IPToData("192.168.0.100") + modIP::IPToData("192.168.0.200") +
                            modIP::IPToData("255.255.255.0") + modIP::IPToData("0.0.0.0") +
                            modIP::IPToData("192.168.0.6"));
  const ScopeForm shown = ScopeFormOf(entry, "lab.example");
  EXPECT_EQ(shown.ip, (std::array<std::string, 4>{"192.168.0.100", "192.168.0.200", "255.255.255.0", ""}));
  EXPECT_EQ(shown.ttl, 3600);
}

}  // namespace
