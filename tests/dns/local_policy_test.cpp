// Which questions may go to other servers: private reverse names and bare
// names stay local, and only clients of this network (or of RecursionFrom)
// have names resolved elsewhere. Local data answers everyone.
#include "dns/local_names.h"
#include "dns_world.h"

using namespace korvane;

namespace {

TEST(LocalNames, PrivateReverseZonesAndBareNames) {
  const struct {
    std::string name;
    int type;
    LocalName reverse, bare;
  } cases[] = {
      {"5.1.168.192.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"168.192.in-addr.arpa.", 6, LocalName::kEmptyZone, LocalName::kNo},
      {"192.in-addr.arpa.", 6, LocalName::kNo, LocalName::kNo},
      {"7.0.0.10.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"10.in-addr.arpa.", 2, LocalName::kEmptyZone, LocalName::kNo},
      {"x.10.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"010.in-addr.arpa.", 12, LocalName::kNo, LocalName::kNo},
      {"1.0.16.172.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"1.0.31.172.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"1.0.32.172.in-addr.arpa.", 12, LocalName::kNo, LocalName::kNo},
      {"1.0.15.172.in-addr.arpa.", 12, LocalName::kNo, LocalName::kNo},
      {"1.1.254.169.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"1.1.64.100.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"1.1.127.100.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"1.1.128.100.in-addr.arpa.", 12, LocalName::kNo, LocalName::kNo},
      {"1.0.0.127.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"1.2.3.0.in-addr.arpa.", 12, LocalName::kNoSuchName, LocalName::kNo},
      {"1.2.0.192.in-addr.arpa.", 12, LocalName::kNo, LocalName::kNo},
      {"in-addr.arpa.", 2, LocalName::kNo, LocalName::kNo},
      {"8.8.8.8.in-addr.arpa.", 12, LocalName::kNo, LocalName::kNo},
      {"printer.", 1, LocalName::kNo, LocalName::kNoSuchName},
      {"printer.", 15, LocalName::kNo, LocalName::kNoSuchName},
      {"printer.", 255, LocalName::kNo, LocalName::kNoSuchName},
      {"com.", 2, LocalName::kNo, LocalName::kNo},
      {"com.", 6, LocalName::kNo, LocalName::kNo},
      {".", 2, LocalName::kNo, LocalName::kNo},
      {"printer.lan.", 1, LocalName::kNo, LocalName::kNo},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PrivateReverseName(c.name), c.reverse) << c.name;
    EXPECT_EQ(BareName(c.name, c.type), c.bare) << c.name;
  }
  Options options;
  EXPECT_EQ(KeptLocal("printer.", 1, options), LocalName::kNoSuchName);
  EXPECT_EQ(KeptLocal("1.0.0.10.in-addr.arpa.", 12, options), LocalName::kNoSuchName);
  options.FORWARDBARENAMES = options.FORWARDPRIVATEREVERSE = true;
  EXPECT_EQ(KeptLocal("printer.", 1, options), LocalName::kNo);
  EXPECT_EQ(KeptLocal("1.0.0.10.in-addr.arpa.", 12, options), LocalName::kNo);
}

struct PolicyCase {
  const char* name;
  std::string client, question;
  int type;
  bool rd;
  int rcode;       // of the answer, when it comes at once
  bool upstream;   // the question went to another server instead
};

class Policy : public DnsWorld, public ::testing::WithParamInterface<PolicyCase> {
 protected:
  Policy() {
    Forwarding({"192.0.2.53"});
    Perm("own.example.com.", 1, modIP::IPToData("10.0.0.9"));
    Perm("9.0.0.10.in-addr.arpa.", 12, "own.example.com.");
    Cached("cached.example.org.", 1, modIP::IPToData("10.2.2.2"), 600);
    Perm("bare.example.com.", 5, "printer.");
  }
};

TEST_P(Policy, DecidesWhatGoesOut) {
  const PolicyCase& c = GetParam();
  if (std::string(c.name).find("Opened") != std::string::npos)
    options.RECURSIONFROM = {"203.0.113.0/24"};
  if (std::string(c.name).find("Any") != std::string::npos) options.RECURSIONFROM = {"any"};
  if (std::string(c.name).find("Forwarded") != std::string::npos)
    options.FORWARDBARENAMES = options.FORWARDPRIVATEREVERSE = true;
  engine.OnDnsDatagram(c.client, 5353, Query(7, c.question, c.type, c.rd), "10.0.0.1");
  EXPECT_EQ(TakeUpstream().size(), c.upstream ? 1u : 0u);
  if (c.upstream) return;
  DnsMessage answer = LastAnswer();
  EXPECT_EQ(answer.Header.RCode, c.rcode);
  if (c.rcode == 5) {
    EXPECT_TRUE(answer.Records.empty());
    EXPECT_TRUE(Logged("-> Header: Refused - will not answer this client or this query type."));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Policy,
    ::testing::Values(
        PolicyCase{"LocalClient", "10.0.0.5", "www.example.org.", 1, true, 0, true},
        PolicyCase{"Loopback", "127.0.0.1", "www.example.org.", 1, true, 0, true},
        PolicyCase{"Stranger", "203.0.113.9", "www.example.org.", 1, true, 5, false},
        PolicyCase{"NeighbourNetwork", "10.0.1.5", "www.example.org.", 1, true, 5, false},
        PolicyCase{"StrangerOpened", "203.0.113.9", "www.example.org.", 1, true, 0, true},
        PolicyCase{"StrangerAny", "198.51.100.1", "www.example.org.", 1, true, 0, true},
        PolicyCase{"StrangerOwnRecord", "203.0.113.9", "own.example.com.", 1, true, 0, false},
        PolicyCase{"StrangerCached", "203.0.113.9", "cached.example.org.", 1, true, 0, false},
        PolicyCase{"StrangerNoRecursion", "203.0.113.9", "www.example.org.", 1, false, 0, false},
        PolicyCase{"PrivateReverse", "10.0.0.5", "8.0.0.10.in-addr.arpa.", 12, true, 3, false},
        PolicyCase{"PrivateReverseOwn", "10.0.0.5", "9.0.0.10.in-addr.arpa.", 12, true, 0, false},
        PolicyCase{"PrivateZoneApex", "10.0.0.5", "168.192.in-addr.arpa.", 6, true, 0, false},
        PolicyCase{"PublicReverse", "10.0.0.5", "8.8.8.8.in-addr.arpa.", 12, true, 0, true},
        PolicyCase{"PrivateReverseForwarded", "10.0.0.5", "8.0.0.10.in-addr.arpa.", 12, true,
                   0, true},
        PolicyCase{"PrivateReverseNoRecursion", "10.0.0.5", "8.0.0.10.in-addr.arpa.", 12, false,
                   0, false},
        PolicyCase{"BareName", "10.0.0.5", "printer.", 1, true, 3, false},
        PolicyCase{"BareAliasTarget", "10.0.0.5", "bare.example.com.", 1, true, 3, false},
        PolicyCase{"BareNameForwarded", "10.0.0.5", "printer.", 1, true, 0, true},
        PolicyCase{"TopLevelDomain", "10.0.0.5", "org.", 2, true, 0, true},
        PolicyCase{"StrangerBareName", "203.0.113.9", "printer.", 1, true, 3, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(DnsWorld, AnAliasAnsweredLocallyToAStrangerIsNotResolvedFurther) {
  options.AUTOCNAME = true;
  Forwarding({"192.0.2.53"});
  Perm("alias.example.com.", 5, "www.example.org.");
  engine.OnDnsDatagram("203.0.113.9", 5353, Query(7, "alias.example.com.", 5), "10.0.0.1");
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(Data(LastAnswer(), 2), Strs{"www.example.org."});
}

}  // namespace
