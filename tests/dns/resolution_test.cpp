#include "dns_world.h"

namespace {

const std::string kSoa = SoaData("ns1.example.com", "hostmaster.example.com", 2024010101, 7200,
                                 900, 1209600, 300);

class Resolution : public DnsWorld {
 protected:
  void OwnZone() {
    Perm("example.com.", 6, kSoa);
    Perm("example.com.", 2, "ns1.example.com.");
    Perm("www.example.com.", 1, modIP::IPToData("10.1.1.1"));
  }
};

// --- exact reply bytes --------------------------------------------------------

TEST_F(Resolution, AAnswerBytesUseAPointerToTheQuestion) {
  OwnZone();
  Ask(0x0102, "www.example.com.", 1);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  const std::string expected = Bytes({1, 2, 0x85, 0x80, 0, 1, 0, 1, 0, 0, 0, 0}) +
                               Wire("www.example.com.") + U16(1) + U16(1) +
                               Bytes({0xC0, 12}) + U16(1) + U16(1) + U32(3600) + U16(4) +
                               Bytes({10, 1, 1, 1});
  EXPECT_EQ(wsdns.sent[0].bytes, expected);
  EXPECT_EQ(wsdns.sent[0].host, "10.0.0.5");
  EXPECT_EQ(wsdns.sent[0].port, 5353);
  EXPECT_EQ(wsdns.sent[0].from, "10.0.0.1");
  EXPECT_TRUE(wsdns2.sent.empty());
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_EQ(log.lines, (std::vector<std::string>{
                           "Request from 10.0.0.5 for A-record for www.example.com.",
                           "Sending reply to 10.0.0.5 about A-record for www.example.com.:",
                           "-> Answer: A-record for www.example.com. = 10.1.1.1"}));
}

TEST_F(Resolution, MxAnswerCarriesTheExchangerAddressInAdditional) {
  Perm("example.com.", 6, kSoa);
  Perm("example.com.", 15, "mail.example.com.", 3600, 10);
  Perm("mail.example.com.", 1, modIP::IPToData("10.1.1.2"));
  Ask(5, "example.com.", 15);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  // The exchanger name "mail" sits at offset 43; the additional record's
  // owner is compressed to a pointer there.
  const std::string expected = Bytes({0, 5, 0x85, 0x80, 0, 1, 0, 1, 0, 0, 0, 1}) +
                               Wire("example.com.") + U16(15) + U16(1) +
                               Bytes({0xC0, 12}) + U16(15) + U16(1) + U32(3600) + U16(9) +
                               U16(10) + Bytes({4, 'm', 'a', 'i', 'l', 0xC0, 12}) +
                               Bytes({0xC0, 43}) + U16(1) + U16(1) + U32(3600) + U16(4) +
                               Bytes({10, 1, 1, 2});
  EXPECT_EQ(wsdns.sent[0].bytes, expected);
  EXPECT_TRUE(Logged("-> Answer: MX-record for example.com. = mail.example.com."));
  EXPECT_TRUE(Logged("-> Additional: A-record for mail.example.com. = 10.1.1.2"));
}

TEST_F(Resolution, SoaDataIsSplitAndBothNamesCompressedAgainstTheSameMessage) {
  Perm("example.com.", 6, kSoa);
  Ask(9, "example.com.", 6);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  // The record file stores the two names with their dots: same bytes, no "..".
  Perm("example.net.", 6, SoaData("ns1.example.net.", "hostmaster.example.net.", 1, 2, 3, 4, 5));
  Ask(10, "example.net.", 6);
  ASSERT_EQ(wsdns.sent.size(), 2u);
  EXPECT_EQ(wsdns.sent[1].bytes.substr(wsdns.sent[1].bytes.size() - 20 - 19, 19),
            Bytes({3, 'n', 's', '1', 0xC0, 12, 10}) + "hostmaster" + Bytes({0xC0, 12}));
  EXPECT_TRUE(Logged("-> Answer: SOA-record for example.net. = ns1.example.net."));
  const std::string numbers = U32(2024010101) + U32(7200) + U32(900) + U32(1209600) + U32(300);
  const std::string rdata = Bytes({3, 'n', 's', '1', 0xC0, 12}) + Bytes({10}) + "hostmaster" +
                            Bytes({0xC0, 12}) + numbers;
  const std::string expected = Bytes({0, 9, 0x85, 0x80, 0, 1, 0, 1, 0, 0, 0, 0}) +
                               Wire("example.com.") + U16(6) + U16(1) + Bytes({0xC0, 12}) +
                               U16(6) + U16(1) + U32(3600) + U16(static_cast<int>(rdata.size())) +
                               rdata;
  EXPECT_EQ(wsdns.sent[0].bytes, expected);
  EXPECT_TRUE(Logged("-> Answer: SOA-record for example.com. = ns1.example.com."));
}

TEST_F(Resolution, CachedNameErrorAnswersNxdomainWithTheZoneSoa) {
  Cached("nope.example.org.", 2000, "example.org.", 300);
  Cached("example.org.", 6,
         SoaData("ns1.example.org", "hostmaster.example.org", 1, 2, 3, 4, 60), 300);
  Ask(0x4242, "nope.example.org.", 1);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  // "example.org." of the question starts at offset 17.
  const std::string rdata = Bytes({3, 'n', 's', '1', 0xC0, 17, 10}) + "hostmaster" +
                            Bytes({0xC0, 17}) + U32(1) + U32(2) + U32(3) + U32(4) + U32(60);
  const std::string expected = Bytes({0x42, 0x42, 0x81, 0x83, 0, 1, 0, 0, 0, 1, 0, 0}) +
                               Wire("nope.example.org.") + U16(1) + U16(1) +
                               Bytes({0xC0, 17}) + U16(6) + U16(1) + U32(300) +
                               U16(static_cast<int>(rdata.size())) + rdata;
  EXPECT_EQ(wsdns.sent[0].bytes, expected);
  EXPECT_TRUE(Logged("-> Header: Name does not exist!"));
  EXPECT_TRUE(Logged("-> Authority: SOA-record for example.org. = ns1.example.org."));
  EXPECT_TRUE(wsdns2.sent.empty());
}

TEST_F(Resolution, ExpiredCachedRecordIsWrittenWithTtlZero) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  Cached("old.example.org.", 1, modIP::IPToData("10.9.9.9"), 10);
  // A pending request keeps the intake from cleaning the cache first.
  Ask(1, "pending.example.org.", 1);
  clock.Advance(20);
  Ask(2, "old.example.org.", 1);
  WireMessage m = LastAnswer();
  ASSERT_EQ(m.In(2).size(), 1u);
  EXPECT_EQ(m.In(2)[0].ttl, 0);
}

// --- resolution rules ---------------------------------------------------------

struct AuthorityCase {
  std::string name;
  int type;
  int rcode;
  std::size_t answers, authority;
};

class OwnZoneAnswers : public Resolution, public ::testing::WithParamInterface<AuthorityCase> {};

TEST_P(OwnZoneAnswers, AreAuthoritativeAndNeverGoUpstream) {
  OwnZone();
  RootHint("a.root-servers.net.", "127.0.0.11");
  const AuthorityCase& c = GetParam();
  Ask(1, c.name, c.type);
  WireMessage m = LastAnswer();
  EXPECT_TRUE(m.aa());
  EXPECT_EQ(m.rcode(), c.rcode);
  EXPECT_EQ(m.In(2).size(), c.answers);
  EXPECT_EQ(m.In(3).size(), c.authority);
  EXPECT_TRUE(wsdns2.sent.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, OwnZoneAnswers,
    ::testing::Values(AuthorityCase{"www.example.com.", 1, 0, 1, 0},
                      // No record bears the name: name error, no zone record.
                      AuthorityCase{"nosuch.example.com.", 1, 3, 0, 0},
                      AuthorityCase{"deep.nosuch.example.com.", 15, 3, 0, 0},
                      // The name exists without that type: the zone record
                      // (the last NS/SOA match in list order) in authority.
                      AuthorityCase{"www.example.com.", 15, 0, 0, 1},
                      // The suffix test is on whole strings.
                      AuthorityCase{"wwwexample.com.", 1, 3, 0, 0}));

TEST_F(Resolution, NoDataInOwnZoneNamesTheLastMatchingZoneRecord) {
  OwnZone();
  Ask(1, "www.example.com.", 15);
  WireMessage m = LastAnswer();
  ASSERT_EQ(m.In(3).size(), 1u);
  EXPECT_EQ(m.In(3)[0].type, 2);
  EXPECT_TRUE(Logged("-> Answer: There are no MX-Records for www.example.com."));
}

TEST_F(Resolution, RootHintsGiveNoAuthority) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  Ask(1, "www.example.net.", 1);
  EXPECT_TRUE(wsdns.sent.empty());
  auto up = TakeUpstream();
  ASSERT_EQ(up.size(), 1u);
  EXPECT_EQ(up[0].host, "127.0.0.11");
  EXPECT_EQ(up[0].port, 53);
  EXPECT_TRUE(Logged(
      "Sending request to 127.0.0.11 (a.root-servers.net.) for A-record for www.example.net."));
  EXPECT_EQ(engine.Requests().size(), 1u);
}

TEST_F(Resolution, RecursionNotDesiredIsAnsweredAtOnceWithAReferral) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  Ask(1, "www.example.net.", 1, /*rd=*/false);
  WireMessage m = LastAnswer();
  EXPECT_EQ(m.rcode(), 0);
  EXPECT_FALSE(m.aa());
  EXPECT_TRUE(m.In(2).empty());
  ASSERT_EQ(m.In(3).size(), 1u);
  EXPECT_EQ(m.In(3)[0].data, "a.root-servers.net.");
  ASSERT_EQ(m.In(4).size(), 1u);
  EXPECT_EQ(m.In(4)[0].data, "127.0.0.11");
  EXPECT_TRUE(wsdns2.sent.empty());
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_FALSE(Logged("-> Answer: There are no A-Records for www.example.net."));
}

TEST_F(Resolution, AliasChainIsFollowed) {
  OwnZone();
  Perm("alias.example.com.", 5, "mid.example.com.");
  Perm("mid.example.com.", 5, "www.example.com.");
  Ask(1, "alias.example.com.", 1);
  WireMessage m = LastAnswer();
  ASSERT_EQ(m.In(2).size(), 3u);
  EXPECT_EQ(m.In(2)[0].data, "mid.example.com.");
  EXPECT_EQ(m.In(2)[1].data, "www.example.com.");
  EXPECT_EQ(m.In(2)[2].data, "10.1.1.1");
  EXPECT_EQ(m.rcode(), 0);
}

TEST_F(Resolution, AliasCycleEndsWithServerFailure) {
  for (bool own : {true, false}) {
    records.Clear();
    wsdns.sent.clear();
    if (own) {
      OwnZone();
      Perm("loop1.example.com.", 5, "loop2.example.com.");
      Perm("loop2.example.com.", 5, "loop1.example.com.");
    } else {
      RootHint("a.root-servers.net.", "127.0.0.11");
      Cached("loop1.example.com.", 5, "loop2.example.com.", 300);
      Cached("loop2.example.com.", 5, "loop1.example.com.", 300);
    }
    Ask(1, "loop1.example.com.", 1);
    WireMessage m = LastAnswer();
    EXPECT_EQ(m.rcode(), 2) << own;
    EXPECT_EQ(m.In(2).size(), 2u) << own;
    EXPECT_TRUE(wsdns2.sent.empty());
  }
}

struct NegativeCase {
  int entryType;
  int queryType;
  int rcode;
  bool answered;  // false: asked upstream
};

class NegativeEntries : public Resolution, public ::testing::WithParamInterface<NegativeCase> {};

TEST_P(NegativeEntries, AnswerWithTheSoaOrAreIgnored) {
  const NegativeCase& c = GetParam();
  RootHint("a.root-servers.net.", "127.0.0.11");
  Cached("x.example.org.", c.entryType, "example.org.", 300);
  Cached("example.org.", 6, SoaData("ns.example.org", "h.example.org", 1, 2, 3, 4, 5), 300);
  Ask(1, "x.example.org.", c.queryType);
  if (!c.answered) {
    EXPECT_TRUE(wsdns.sent.empty());
    EXPECT_EQ(TakeUpstream().size(), 1u);
    return;
  }
  WireMessage m = LastAnswer();
  EXPECT_EQ(m.rcode(), c.rcode);
  EXPECT_TRUE(m.In(2).empty());
  ASSERT_EQ(m.In(3).size(), 1u);
  EXPECT_EQ(m.In(3)[0].type, 6);
  EXPECT_TRUE(wsdns2.sent.empty());
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
  WireMessage m = LastAnswer();
  ASSERT_EQ(m.In(2).size(), 1u);
  EXPECT_EQ(m.In(2)[0].type, 15);
  EXPECT_EQ(m.rcode(), 0);
}

TEST_F(Resolution, FailedSendIsLoggedAndTheRequestStillLeaves) {
  OwnZone();
  wsdns.fail = true;
  Ask(1, "www.example.com.", 1);
  EXPECT_EQ(log.lines.back(), "SA-WS Error 11 Resource temporarily unavailable");
  EXPECT_TRUE(engine.Requests().empty());
}

// --- DHCP leases ----------------------------------------------------------------

TEST_F(Resolution, LeaseAnswersAAndPtrOnlyWhileActive) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  leases.leases.push_back({"pc1.lan.", "192.168.0.50", clock.Now() + 100});

  Ask(1, "pc1.lan.", 1);
  WireMessage m = LastAnswer();
  ASSERT_EQ(m.In(2).size(), 1u);
  EXPECT_EQ(m.In(2)[0].data, "192.168.0.50");
  EXPECT_EQ(m.In(2)[0].ttl, 100);

  clock.Advance(40);
  Ask(2, "50.0.168.192.in-addr.arpa.", 12);
  m = LastAnswer();
  ASSERT_EQ(m.In(2).size(), 1u);
  EXPECT_EQ(m.In(2)[0].data, "pc1.lan.");
  EXPECT_EQ(m.In(2)[0].ttl, 60);
  EXPECT_TRUE(Logged("-> Answer: PTR-record for 192.168.0.50 = pc1.lan."));
  EXPECT_TRUE(wsdns2.sent.empty());

  clock.Advance(61);
  std::size_t answers = wsdns.sent.size();
  Ask(3, "pc1.lan.", 1);
  Ask(4, "50.0.168.192.in-addr.arpa.", 12);
  EXPECT_EQ(wsdns.sent.size(), answers);
  EXPECT_EQ(TakeUpstream().size(), 2u);
}

// --- AUTOCNAME --------------------------------------------------------------------

TEST_F(Resolution, AutoCnameAddsTheTargetAddressToCnameQuestionsOnlyWhenOn) {
  OwnZone();
  Perm("alias.example.com.", 5, "www.example.com.");
  for (bool on : {false, true}) {
    options.AUTOCNAME = on;
    Ask(1, "alias.example.com.", 5);
    WireMessage m = LastAnswer();
    EXPECT_EQ(m.In(2).size(), on ? 2u : 1u);
  }
  // An A question already follows the alias; the option adds nothing twice.
  Ask(2, "alias.example.com.", 1);
  EXPECT_EQ(LastAnswer().In(2).size(), 2u);
}

TEST_F(Resolution, AutoCnameResolvesAnUnknownTargetBeforeAnswering) {
  options.AUTOCNAME = true;
  RootHint("a.root-servers.net.", "127.0.0.11");
  Cached("ext.example.org.", 5, "target.example.net.", 300);
  Ask(1, "ext.example.org.", 5);
  EXPECT_TRUE(wsdns.sent.empty());
  auto up = TakeUpstream();
  ASSERT_EQ(up.size(), 1u);
  WireMessage q = Decode(up[0].bytes);
  EXPECT_EQ(q.qname, "target.example.net.");
  EXPECT_EQ(q.qtype, 1);
  engine.OnDns2Datagram("127.0.0.11", 53,
                        ReplyBuilder(q.id, "target.example.net.", 1)
                            .A(2, "target.example.net.", "10.7.7.7")
                            .Build());
  WireMessage m = LastAnswer();
  ASSERT_EQ(m.In(2).size(), 2u);
  EXPECT_EQ(m.In(2)[1].data, "10.7.7.7");
  EXPECT_TRUE(engine.Requests().empty());
}

}  // namespace
