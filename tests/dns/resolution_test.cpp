#include "dns_world.h"

using namespace korvane;

namespace {

class Resolution : public DnsWorld {
 protected:
  void OwnZone() {
    Perm("example.com.", 6, Soa("ns1.example.com", "hostmaster.example.com", 2024010101, 7200,
                                    900, 1209600, 300));
    Perm("example.com.", 2, "ns1.example.com.");
    Perm("www.example.com.", 1, modIP::IPToData("10.1.1.1"));
  }
  // SOA data "ns1.<zone> hostmaster.<zone>" with both zones a pointer to `at`.
  static std::string SoaRdata(int at, const std::string& numbers) {
    return Bytes({3, 'n', 's', '1', 0xC0, at, 10}) + "hostmaster" + Bytes({0xC0, at}) + numbers;
  }
};

// --- exact reply bytes --------------------------------------------------------

TEST_F(Resolution, AAnswerBytesUseAPointerToTheQuestion) {
  OwnZone();
  Ask(0x0102, "www.example.com.", 1);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(wsdns.sent[0].bytes, Head(0x0102, 0x85, 0x80, 1, 0, 0, "www.example.com.", 1) +
                                     RR(Ptr(12), 1, 3600, Bytes({10, 1, 1, 1})));
  EXPECT_EQ(wsdns.sent[0].host, "10.0.0.5");
  EXPECT_EQ(wsdns.sent[0].port, 5353);
  EXPECT_EQ(wsdns.sent[0].from, "10.0.0.1");
  EXPECT_TRUE(wsdns2.sent.empty());
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_EQ(log.lines, (Strs{"Request from 10.0.0.5 for A-record for www.example.com.",
                             "Sending reply to 10.0.0.5 about A-record for www.example.com.:",
                             "-> Answer: A-record for www.example.com. = 10.1.1.1"}));
}

TEST_F(Resolution, MxAnswerCarriesTheExchangerAddressInAdditional) {
  Perm("example.com.", 6, Soa("ns1.example.com", "h.example.com", 1, 2, 3, 4, 5));
  Perm("example.com.", 15, "mail.example.com.", 10);
  Perm("mail.example.com.", 1, modIP::IPToData("10.1.1.2"));
  Ask(5, "example.com.", 15);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  // The exchanger name "mail" sits at offset 43; the additional owner points there.
  const std::string exchanger = U16(10) + Bytes({4, 'm', 'a', 'i', 'l', 0xC0, 12});
  EXPECT_EQ(wsdns.sent[0].bytes, Head(5, 0x85, 0x80, 1, 0, 1, "example.com.", 15) +
                                     RR(Ptr(12), 15, 3600, exchanger) +
                                     RR(Ptr(43), 1, 3600, Bytes({10, 1, 1, 2})));
  EXPECT_TRUE(Logged("-> Answer: MX-record for example.com. = mail.example.com."));
  EXPECT_TRUE(Logged("-> Additional: A-record for mail.example.com. = 10.1.1.2"));
}

TEST_F(Resolution, SoaDataIsSplitAndBothNamesCompressedWithOrWithoutTheirDots) {
  // The store keeps SOA names without a final dot, the record file with one.
  const std::pair<std::string, std::string> zones[] = {{"example.com.", ""}, {"example.net.", "."}};
  const std::string numbers = U32(2024010101) + U32(7200) + U32(900) + U32(1209600) + U32(300);
  for (const auto& [zone, dot] : zones) {
    const std::string bare = zone.substr(0, zone.size() - 1);
    Perm(zone, 6, Soa("ns1." + bare + dot, "hostmaster." + bare + dot, 2024010101, 7200, 900,
                          1209600, 300));
    Ask(9, zone, 6);
    EXPECT_EQ(wsdns.sent.back().bytes,
              Head(9, 0x85, 0x80, 1, 0, 0, zone, 6) + RR(Ptr(12), 6, 3600, SoaRdata(12, numbers)));
    EXPECT_TRUE(Logged("-> Answer: SOA-record for " + zone + " = ns1." + zone));
  }
}

TEST_F(Resolution, CachedNameErrorAnswersNxdomainWithTheZoneSoa) {
  Cached("nope.example.org.", 2000, "example.org.", 300);
  Cached("example.org.", 6,
         Soa("ns1.example.org", "hostmaster.example.org", 1, 2, 3, 4, 60), 300);
  Ask(0x4242, "nope.example.org.", 1);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  // "example.org." of the question starts at offset 17.
  EXPECT_EQ(wsdns.sent[0].bytes,
            Head(0x4242, 0x81, 0x83, 0, 1, 0, "nope.example.org.", 1) +
                RR(Ptr(17), 6, 300, SoaRdata(17, U32(1) + U32(2) + U32(3) + U32(4) + U32(60))));
  EXPECT_TRUE(Logged("-> Header: Name does not exist!"));
  EXPECT_TRUE(Logged("-> Authority: SOA-record for example.org. = ns1.example.org."));
  EXPECT_TRUE(wsdns2.sent.empty());
}

TEST_F(Resolution, ExpiredCachedRecordIsWrittenWithTtlZero) {
  RootHint();
  Cached("old.example.org.", 1, modIP::IPToData("10.9.9.9"), 10);
  // A pending request keeps the intake from cleaning the cache first.
  Ask(1, "pending.example.org.", 1);
  clock.Advance(20);
  Ask(2, "old.example.org.", 1);
  DnsMessage m = LastAnswer();
  ASSERT_EQ(m.Section(2).size(), 1u);
  EXPECT_EQ(m.Section(2)[0].TTL, 0);
}

// --- resolution rules ---------------------------------------------------------

struct AuthorityCase {
  std::string name;
  int type, rcode;
  std::size_t answers;
  Strs authority;
};

class OwnZoneAnswers : public Resolution, public ::testing::WithParamInterface<AuthorityCase> {};

TEST_P(OwnZoneAnswers, AreAuthoritativeAndNeverGoUpstream) {
  OwnZone();
  RootHint();
  const AuthorityCase& c = GetParam();
  Ask(1, c.name, c.type);
  DnsMessage m = LastAnswer();
  EXPECT_TRUE(m.Header.AA);
  EXPECT_EQ(m.Header.RCode, c.rcode);
  EXPECT_EQ(m.Section(2).size(), c.answers);
  EXPECT_EQ(Data(m, 3), c.authority);
  EXPECT_TRUE(wsdns2.sent.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, OwnZoneAnswers,
    ::testing::Values(AuthorityCase{"www.example.com.", 1, 0, 1, {}},
                      // No record bears the name: name error, no zone record.
                      AuthorityCase{"nosuch.example.com.", 1, 3, 0, {}},
                      AuthorityCase{"deep.nosuch.example.com.", 15, 3, 0, {}},
                      // The name exists without that type: the zone record
                      // (the last NS/SOA match in list order) in authority.
                      AuthorityCase{"www.example.com.", 15, 0, 0, {"ns1.example.com."}},
                      // The suffix test is on whole strings.
                      AuthorityCase{"wwwexample.com.", 1, 3, 0, {}}));

TEST_F(Resolution, RecursionNotDesiredIsAnsweredAtOnceWithAReferral) {
  RootHint();
  Ask(1, "www.example.net.", 1, /*rd=*/false);
  DnsMessage m = LastAnswer();
  EXPECT_EQ(m.Header.RCode, 0);
  EXPECT_FALSE(m.Header.AA);
  EXPECT_TRUE(m.Section(2).empty());
  EXPECT_EQ(Data(m, 3), Strs{"a.root-servers.net."});
  EXPECT_EQ(Data(m, 4), Strs{"127.0.0.11"});
  EXPECT_TRUE(wsdns2.sent.empty());
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_FALSE(Logged("-> Answer: There are no A-Records for www.example.net."));
}

TEST_F(Resolution, AliasChainIsFollowed) {
  OwnZone();
  Perm("alias.example.com.", 5, "mid.example.com.");
  Perm("mid.example.com.", 5, "www.example.com.");
  Ask(1, "alias.example.com.", 1);
  DnsMessage m = LastAnswer();
  EXPECT_EQ(Data(m, 2), (Strs{"mid.example.com.", "www.example.com.", "10.1.1.1"}));
  EXPECT_EQ(m.Header.RCode, 0);
}

TEST_F(Resolution, AliasCycleEndsWithServerFailure) {
  for (bool own : {true, false}) {
    records.Clear();
    if (own) {
      OwnZone();
      Perm("loop1.example.com.", 5, "loop2.example.com.");
      Perm("loop2.example.com.", 5, "loop1.example.com.");
    } else {
      RootHint();
      Cached("loop1.example.com.", 5, "loop2.example.com.", 300);
      Cached("loop2.example.com.", 5, "loop1.example.com.", 300);
    }
    Ask(1, "loop1.example.com.", 1);
    DnsMessage m = LastAnswer();
    EXPECT_EQ(m.Header.RCode, 2) << own;
    EXPECT_EQ(m.Section(2).size(), 2u) << own;
    EXPECT_TRUE(wsdns2.sent.empty());
  }
}

struct NegativeCase {
  int entryType, queryType, rcode;
  bool answered;  // false: asked upstream
};

class NegativeEntries : public Resolution, public ::testing::WithParamInterface<NegativeCase> {};

TEST_P(NegativeEntries, AnswerWithTheSoaOrAreIgnored) {
  const NegativeCase& c = GetParam();
  RootHint();
  Cached("x.example.org.", c.entryType, "example.org.", 300);
  Cached("example.org.", 6, Soa("ns.example.org", "h.example.org", 1, 2, 3, 4, 5), 300);
  Ask(1, "x.example.org.", c.queryType);
  EXPECT_EQ(wsdns.sent.size(), c.answered ? 1u : 0u);
  EXPECT_EQ(TakeUpstream().size(), c.answered ? 0u : 1u);
  if (!c.answered) return;
  DnsMessage m = LastAnswer();
  EXPECT_EQ(m.Header.RCode, c.rcode);
  EXPECT_TRUE(m.Section(2).empty());
  EXPECT_EQ(Data(m, 3), Strs{"ns.example.org. h.example.org. 5"});
}

INSTANTIATE_TEST_SUITE_P(Cases, NegativeEntries,
                         ::testing::Values(NegativeCase{1001, 1, 0, true},
                                           NegativeCase{1015, 15, 0, true},
                                           NegativeCase{2000, 1, 3, true},
                                           NegativeCase{2000, 15, 3, true},
                                           // A negative entry of another type says nothing.
                                           NegativeCase{1015, 1, 0, false},
                                           NegativeCase{1001, 255, 0, false}));

TEST_F(Resolution, AnyQuestionNeverReturnsNegativeEntries) {
  Cached("x.example.org.", 1001, "example.org.", 300);
  Cached("x.example.org.", 15, "mx.example.org.", 300, 5);
  Ask(1, "x.example.org.", 255, /*rd=*/false);
  DnsMessage m = LastAnswer();
  EXPECT_EQ(Data(m, 2), Strs{"5 mx.example.org."});
  EXPECT_EQ(m.Header.RCode, 0);
}

TEST_F(Resolution, LeaseAnswersAAndPtrOnlyWhileActive) {
  RootHint();
  leases.leases.push_back({"pc1.lan.", "192.168.0.50", clock.Now() + 100});
  Ask(1, "pc1.lan.", 1);
  DnsMessage m = LastAnswer();
  EXPECT_EQ(Data(m, 2), Strs{"192.168.0.50"});
  EXPECT_EQ(m.Section(2)[0].TTL, 100);

  clock.Advance(40);
  Ask(2, "50.0.168.192.in-addr.arpa.", 12);
  m = LastAnswer();
  EXPECT_EQ(Data(m, 2), Strs{"pc1.lan."});
  EXPECT_EQ(m.Section(2)[0].TTL, 60);
  EXPECT_TRUE(Logged("-> Answer: PTR-record for 192.168.0.50 = pc1.lan."));
  EXPECT_TRUE(wsdns2.sent.empty());

  // Run out, the name is asked elsewhere; the private address's reverse
  // name is not, and does not exist.
  clock.Advance(61);
  std::size_t answers = wsdns.sent.size();
  Ask(3, "pc1.lan.", 1);
  EXPECT_EQ(wsdns.sent.size(), answers);
  EXPECT_EQ(TakeUpstream().size(), 1u);
  Ask(4, "50.0.168.192.in-addr.arpa.", 12);
  EXPECT_EQ(LastAnswer().Header.RCode, 3);
  EXPECT_TRUE(TakeUpstream().empty());
}

TEST_F(Resolution, AutoCnameAddsTheTargetAddressToCnameQuestionsOnlyWhenOn) {
  OwnZone();
  Perm("alias.example.com.", 5, "www.example.com.");
  for (bool on : {false, true}) {
    options.AUTOCNAME = on;
    Ask(1, "alias.example.com.", 5);
    EXPECT_EQ(LastAnswer().Section(2).size(), on ? 2u : 1u);
  }
  // An A question already follows the alias; the option adds nothing twice.
  Ask(2, "alias.example.com.", 1);
  EXPECT_EQ(LastAnswer().Section(2).size(), 2u);
}

TEST_F(Resolution, AutoCnameResolvesAnUnknownTargetBeforeAnswering) {
  options.AUTOCNAME = true;
  RootHint();
  Cached("ext.example.org.", 5, "target.example.net.", 300);
  Ask(1, "ext.example.org.", 5);
  EXPECT_TRUE(wsdns.sent.empty());
  AnswerA("127.0.0.11", "target.example.net.", "10.7.7.7");
  EXPECT_EQ(Data(LastAnswer(), 2), (Strs{"target.example.net.", "10.7.7.7"}));
  EXPECT_TRUE(engine.Requests().empty());
}

}  // namespace

TEST_F(Resolution, HugeRecordSetsGiveABoundedWellFormedReply) {
  for (int i = 0; i < 400; ++i)
    Cached("many.example.org.", 1, Bytes({10, 0, i / 256, i % 256}), 600);
  Ask(1, "many.example.org.", 1);
  EXPECT_EQ(LastAnswer().Section(2).size(), DnsEngine::kMaxReplyRecords);

  for (int i = 0; i < 200; ++i) {
    const std::string n = std::to_string(i);
    Cached("big.example.org.", 2,
           std::string(50, 'a') + n + "." + std::string(50, 'b') + n + "." + std::string(50, 'c') + n + ".net.",
           600);
  }
  Ask(2, "big.example.org.", 2);
  const std::string& bytes = wsdns.sent.back().bytes;
  const std::size_t ancount = static_cast<unsigned char>(bytes[6]) * 256u + static_cast<unsigned char>(bytes[7]);
  EXPECT_GT(ancount, 10u);
  EXPECT_LT(ancount, 200u);
  EXPECT_EQ(LastAnswer().Section(2).size(), ancount);
  EXPECT_LT(bytes.size(), 16384u);
  EXPECT_TRUE(errors.errors.empty());
}
