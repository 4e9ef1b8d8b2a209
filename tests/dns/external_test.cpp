#include "dns_world.h"

using namespace korvane;

namespace {

class External : public DnsWorld {
 protected:
  const clDNSRecord* Find(const std::string& name, int type) {
    for (const auto& it : records.Named(name))
      if (it->RecType == type) return &*it;
    return nullptr;
  }
  // A root referral to a server of unknown address; its address is asked first.
  void GluelessReferral() {
    RootHint();
    Ask(3, "www.example.org.", 1);
    Reply("127.0.0.11",
          Asked("127.0.0.11", "www.example.org.").NS(3, "example.org.", "ns1.other.net."));
  }
};

TEST_F(External, ForwardingRhythmQueryReplyAnswerCacheHit) {
  Forwarding({"127.0.0.53"});
  Ask(0x0A0B, "www.example.org.", 1);
  DnsMessage q = OneQuery("127.0.0.53");
  EXPECT_TRUE(q.Header.RD);
  EXPECT_EQ(QName(q), "www.example.org.");
  EXPECT_EQ(QType(q), 1);
  EXPECT_TRUE(wsdns.sent.empty());
  EXPECT_TRUE(Logged("Sending request to 127.0.0.53 (external) for A-record for www.example.org."));
  EXPECT_EQ(timerSwitches, std::vector<bool>{true});

  Reply("127.0.0.53",
        ReplyBuilder(q.Header.Id, "www.example.org.", 1).A(2, "www.example.org.", "10.2.2.2", 600));
  EXPECT_TRUE(Logged("Reply from 127.0.0.53 about A-record for www.example.org.:"));
  EXPECT_TRUE(Logged("-> Answer: A-record for www.example.org. = 10.2.2.2"));
  DnsMessage a = LastAnswer();
  EXPECT_EQ(a.Header.Id, 0x0A0B);
  EXPECT_FALSE(a.Header.AA);
  EXPECT_EQ(Data(a, 2), Strs{"10.2.2.2"});
  EXPECT_TRUE(engine.Requests().empty());

  clock.Advance(100);
  Ask(2, "www.example.org.", 1);
  EXPECT_TRUE(TakeUpstream().empty());
  a = LastAnswer();
  EXPECT_EQ(a.Header.Id, 2);
  ASSERT_EQ(a.Section(2).size(), 1u);
  EXPECT_EQ(a.Section(2)[0].TTL, 500);
}

TEST_F(External, EachQueryGoesToARandomServerWithAnIdFromTheSecureSource) {
  Forwarding({"127.0.0.51", "127.0.0.52", "127.0.0.53"});
  const std::vector<uint32_t> draws = {0x12345678, 7, 0xFFFF, 0x10000};
  std::size_t drawn = 0;
  engine.SetQueryIdSource([&] { return draws[drawn++ % draws.size()]; });
  // The ID is the source's low 16 bits.
  const std::tuple<double, std::string, int> cases[] = {{0.0, "127.0.0.51", 0x5678},
                                                        {0.34, "127.0.0.52", 7},
                                                        {0.5, "127.0.0.52", 0xFFFF},
                                                        {0.999, "127.0.0.53", 0}};
  for (const auto& [value, server, id] : cases) {
    random = value;
    Ask(1, "n" + std::to_string(id) + ".example.org.", 1);
    EXPECT_EQ(OneQuery(server).Header.Id, id);
  }
  EXPECT_EQ(drawn, 4u);
}

TEST_F(External, IterativeFromRootHintsThroughTwoReferrals) {
  // The hinted root servers are not an own zone: the name is asked at the root.
  RootHint();
  Ask(7, "www.example.org.", 1);
  DnsMessage q = OneQuery("127.0.0.11");
  EXPECT_FALSE(q.Header.RD);
  EXPECT_TRUE(Logged(
      "Sending request to 127.0.0.11 (a.root-servers.net.) for A-record for www.example.org."));

  Reply("127.0.0.11", ReplyBuilder(q.Header.Id, "www.example.org.", 1)
                          .NS(3, "org.", "ns.org-servers.net.")
                          .A(4, "ns.org-servers.net.", "127.0.0.12"));
  ReplyBuilder next = Asked("127.0.0.12", "www.example.org.");
  EXPECT_TRUE(Logged(
      "Sending request to 127.0.0.12 (ns.org-servers.net.) for A-record for www.example.org."));
  EXPECT_TRUE(Logged("-> Authority: NS-record for org. = ns.org-servers.net."));
  EXPECT_TRUE(Logged("-> Additional: A-record for ns.org-servers.net. = 127.0.0.12"));

  Reply("127.0.0.12", next.NS(3, "example.org.", "ns1.example.org.")
                          .A(4, "ns1.example.org.", "127.0.0.13"));
  EXPECT_TRUE(wsdns.sent.empty());
  AnswerA("127.0.0.13", "www.example.org.", "10.3.3.3");
  DnsMessage a = LastAnswer();
  EXPECT_EQ(a.Header.Id, 7);
  EXPECT_EQ(Data(a, 2), Strs{"10.3.3.3"});

  // A sibling name now starts at the nearest known servers.
  Ask(8, "ftp.example.org.", 1);
  OneQuery("127.0.0.13");
  Ask(9, "www.example.org.", 1);
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(LastAnswer().Header.Id, 9);
}

struct NegativeReply {
  int rcode;
  bool soa;
  int storedType;
  int32_t ttl;
  std::string data;
};

class NegativeReplies : public External, public ::testing::WithParamInterface<NegativeReply> {};

TEST_P(NegativeReplies, AreCachedWithTheSoaMinimumOrTenMinutes) {
  const NegativeReply& c = GetParam();
  Forwarding({"127.0.0.53"});
  Ask(1, "x.example.org.", 1);
  ReplyBuilder reply(OneQuery("127.0.0.53").Header.Id, "x.example.org.", 1, c.rcode);
  if (c.soa) reply.SOA(3, "example.org.", 3600, 120);
  Reply("127.0.0.53", reply);

  const clDNSRecord* entry = Find("x.example.org.", c.storedType);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->TTL(clock.Now()), c.ttl);
  EXPECT_EQ(entry->Data, c.data);
  DnsMessage a = LastAnswer();
  EXPECT_EQ(a.Header.RCode, c.rcode);
  EXPECT_TRUE(a.Section(2).empty());
  EXPECT_EQ(a.Section(3).size(), c.soa ? 1u : 0u);
  EXPECT_TRUE(engine.Requests().empty());

  // Asked again: from the cache until the entry expires.
  Ask(2, "x.example.org.", 1);
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(LastAnswer().Header.RCode, c.rcode);
  clock.Advance(c.ttl + 1);
  Ask(3, "x.example.org.", 1);
  OneQuery("127.0.0.53");
}

INSTANTIATE_TEST_SUITE_P(Cases, NegativeReplies,
                         ::testing::Values(NegativeReply{3, true, 2000, 120, "example.org."},
                                           NegativeReply{3, false, 2000, 600, ""},
                                           NegativeReply{0, true, 1001, 120, "example.org."},
                                           NegativeReply{0, false, 1001, 600, ""}));

TEST_F(External, NoDataReplyIsLoggedAsReceivedAndAsAnswered) {
  Forwarding({"127.0.0.53"});
  Ask(1, "x.example.org.", 15);
  DnsMessage q = OneQuery("127.0.0.53");
  log.lines.clear();
  Reply("127.0.0.53", ReplyBuilder(q.Header.Id, "x.example.org.", 15).SOA(3, "example.org.", 60, 30));
  EXPECT_EQ(log.lines, (Strs{"Reply from 127.0.0.53 about MX-record for x.example.org.:",
                             "-> Answer: There are no MX-Records for x.example.org.",
                             "-> Authority: SOA-record for example.org. = ns1.example.org.",
                             "Sending reply to 10.0.0.5 about MX-record for x.example.org.:",
                             "-> Answer: There are no MX-Records for x.example.org.",
                             "-> Authority: SOA-record for example.org. = ns1.example.org."}));
  EXPECT_NE(Find("x.example.org.", 1015), nullptr);
}

TEST_F(External, SilentServersAreDroppedThenTheRequestIsGivenUp) {
  Forwarding({"127.0.0.51", "127.0.0.52"});
  Ask(1, "www.example.org.", 1);
  OneQuery("127.0.0.51");
  Tick(1);
  EXPECT_TRUE(TakeUpstream().empty());
  Tick(1);  // two seconds: the next server
  OneQuery("127.0.0.52");
  Tick(2);  // silent too: nobody left, ten seconds more
  EXPECT_TRUE(TakeUpstream().empty());
  Tick(9);
  EXPECT_EQ(engine.Requests().size(), 1u);
  EXPECT_TRUE(wsdns.sent.empty());
  Tick(1);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(
      Logged("Gave up on A-record for www.example.org.: no answer from 2 servers in 14 s."));
  DnsMessage a = LastAnswer();
  EXPECT_EQ(a.Header.RCode, 2);
  EXPECT_TRUE(a.Records.empty());
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(timerSwitches, (std::vector<bool>{true, false}));
  EXPECT_EQ(engine.TickCounter(), 0);
}

TEST_F(External, NoServerAtAllGivesUpAfterTenSeconds) {
  Forwarding({});
  Ask(1, "www.example.org.", 1);
  EXPECT_TRUE(engine.TimerEnabled());
  Tick(9);
  EXPECT_EQ(engine.Requests().size(), 1u);
  EXPECT_TRUE(wsdns.sent.empty());
  Tick(1);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(Logged("Gave up on A-record for www.example.org.: no server to ask."));
  EXPECT_EQ(LastAnswer().Header.RCode, 2);
}

TEST_F(External, ServerFailureMovesOnToTheNextServer) {
  Forwarding({"127.0.0.51", "127.0.0.52"});
  Ask(1, "www.example.org.", 1);
  Reply("127.0.0.51", Asked("127.0.0.51", "www.example.org.", 1, 2));
  EXPECT_TRUE(Logged("-> Header: Server Failure."));
  EXPECT_EQ(Find("www.example.org.", 1001), nullptr);
  AnswerA("127.0.0.52", "www.example.org.", "10.4.4.4");
  EXPECT_EQ(Data(LastAnswer(), 2), Strs{"10.4.4.4"});
}

TEST_F(External, RepliesThatDoNotMatchTheQueryAreIgnored) {
  Forwarding({"127.0.0.53"});
  Ask(1, "www.example.org.", 1);
  DnsMessage q = OneQuery("127.0.0.53");
  const uint64_t channel = ChannelTo("127.0.0.53");
  const int id = q.Header.Id;
  struct Bad {
    uint64_t channel;  // 0: the server's own socket
    std::string host;
    int port;
    ReplyBuilder reply;
  };
  const Bad bad[] = {
      {channel, "127.0.0.99", 53, ReplyBuilder(id, "www.example.org.", 1)},      // other address
      {channel, "127.0.0.53", 5353, ReplyBuilder(id, "www.example.org.", 1)},    // other port
      {0, "127.0.0.53", 53, ReplyBuilder(id, "www.example.org.", 1)},            // on WSDNS
      {channel + 1, "127.0.0.53", 53, ReplyBuilder(id, "www.example.org.", 1)},  // other channel
      {channel, "127.0.0.53", 53, ReplyBuilder(id ^ 1, "www.example.org.", 1)},  // other ID
      {channel, "127.0.0.53", 53, ReplyBuilder(id, "www.example.net.", 1)},      // other name
      {channel, "127.0.0.53", 53, ReplyBuilder(id, "www.example.org.", 15)},     // other type
      {channel, "127.0.0.53", 53, ReplyBuilder(id, "www.example.org.", 1, 0, 3)},  // other class
  };
  for (Bad c : bad) {
    log.lines.clear();
    const std::string bytes = c.reply.A(2, "www.example.org.", "10.6.6.6").Build();
    if (c.channel == 0)
      engine.OnDnsDatagram(c.host, c.port, bytes, "127.0.0.1");
    else
      engine.OnDns2Datagram(c.channel, c.host, c.port, bytes);
    EXPECT_EQ(log.lines, Strs{"Reply from " + c.host + " (about nothing ?):"});
  }
  EXPECT_TRUE(records.Named("www.example.org.").empty());
  EXPECT_TRUE(wsdns.sent.empty());

  // The question is compared without regard to case.
  Reply("127.0.0.53",
        ReplyBuilder(q.Header.Id, "WWW.Example.ORG.", 1).A(2, "www.example.org.", "10.5.5.5"));
  EXPECT_EQ(LastAnswer().Section(2).size(), 1u);
  // A second copy of the reply finds nobody waiting.
  log.lines.clear();
  Reply("127.0.0.53", ReplyBuilder(q.Header.Id, "www.example.org.", 1));
  EXPECT_EQ(log.lines, Strs{"Reply from 127.0.0.53 (about nothing ?):"});
}

TEST_F(External, EndlessReferralsStopAtTheQueryBound) {
  RootHint();
  Ask(1, "www.example.org.", 1);
  int queries = 0;
  for (int round = 0; round < 40; ++round) {
    auto up = TakeUpstream();
    if (up.empty()) break;
    queries += static_cast<int>(up.size());
    Reply(up.back().host, ReplyBuilder(modDNS::DecodeMessage(up.back().bytes).Header.Id, "www.example.org.", 1)
                              .NS(3, "org.", "ns.org-servers.net.")
                              .A(4, "ns.org-servers.net.", "127.0.0.12"));
  }
  EXPECT_EQ(queries, DnsEngine::kMaxQueriesPerRequest);
  Tick(10);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(Logged("Gave up on A-record for www.example.org.: no answer after 16 queries."));
  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(LastAnswer().Header.RCode, 2);
}

TEST_F(External, NameServerWithoutGlueIsLookedUpBySubRequest) {
  GluelessReferral();
  ASSERT_EQ(engine.Requests().size(), 2u);
  // The waiting parent came first; the sub-request joined at the end.
  EXPECT_TRUE(engine.Requests()[0]->WaitingForSub());
  EXPECT_EQ(engine.Requests()[1]->FromIP, "SUB");
  EXPECT_EQ(engine.Requests()[0]->SubRequest, engine.Requests()[1]->Serial());

  AnswerA("127.0.0.11", "ns1.other.net.", "127.0.0.13");
  EXPECT_TRUE(wsdns.sent.empty());  // nothing is sent for the sub-request
  AnswerA("127.0.0.13", "www.example.org.", "10.8.8.8");
  EXPECT_TRUE(
      Logged("Sending request to 127.0.0.13 (ns1.other.net.) for A-record for www.example.org."));
  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(LastAnswer().Header.Id, 3);
  EXPECT_TRUE(engine.Requests().empty());
}

TEST_F(External, AGivenUpSubRequestWakesItsParent) {
  GluelessReferral();
  OneQuery("127.0.0.11");
  // Nobody answers anything: everything ends within a bounded number of
  // ticks, with one failure answer for the client.
  for (int ticks = 0; !engine.Requests().empty() && ticks < 100; ++ticks) Tick(1);
  EXPECT_TRUE(engine.Requests().empty());
  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(LastAnswer().Header.Id, 3);
  EXPECT_EQ(LastAnswer().Header.RCode, 2);
}

TEST_F(External, TimerCleansTheCacheEveryMinuteWhileRequestsWait) {
  Forwarding({"127.0.0.53"});
  Cached("short.example.org.", 1, modIP::IPToData("10.1.2.3"), 30);
  for (int second = 1; second <= 60; ++second) {
    Ask(second, "q" + std::to_string(second) + ".example.org.", 1);
    if (second == 59) {
      EXPECT_FALSE(records.Named("short.example.org.").empty());
    }
    Tick(1);
  }
  EXPECT_TRUE(records.Named("short.example.org.").empty());
  EXPECT_EQ(engine.TickCounter(), 0);
  EXPECT_TRUE(errors.errors.empty());
}

TEST_F(External, AQuietIntakeCleansExpiredRecordsFirst) {
  Cached("short.example.org.", 1, modIP::IPToData("10.1.2.3"), 10);
  Cached("long.example.org.", 1, modIP::IPToData("10.1.2.4"), 100);
  clock.Advance(20);
  Ask(1, "long.example.org.", 1);
  EXPECT_TRUE(records.Named("short.example.org.").empty());
  EXPECT_FALSE(records.Named("long.example.org.").empty());
}

}  // namespace

namespace {

// The counters the status display samples: every query, and each answer by
// where it came from.
TEST_F(External, AnswersAreCountedByWhereTheyCameFrom) {
  Perm("office.test.", RecordType::kSOA, Soa("ns.office.test.", "hm.office.test.", 1, 2, 3, 4, 5));
  Perm("www.office.test.", RecordType::kA, modIP::IPToData("10.0.0.80"));
  leases.leases.push_back({"pc1.lan.", "10.0.0.101", clock.Now() + 600});
  Forwarding({"127.0.0.53"});
  struct Step {
    std::string name;
    int type;
    DnsCounters after;  // queries, own, cache, others
  } steps[] = {
      {"www.office.test.", RecordType::kA, {1, 1, 0, 0}},      // own record
      {"nothere.office.test.", RecordType::kA, {2, 2, 0, 0}},  // own domain says: no such name
      {"pc1.lan.", RecordType::kA, {3, 3, 0, 0}},              // a lease
      {"www.example.org.", RecordType::kA, {4, 3, 0, 1}},      // asked of another server
      {"www.example.org.", RecordType::kA, {5, 3, 1, 1}},      // then from the cache
      {"printer.", RecordType::kA, {6, 4, 1, 1}},              // kept local: decided here
      {"9.1.168.192.in-addr.arpa.", RecordType::kPTR, {7, 5, 1, 1}},
  };
  int id = 1;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    Ask(id++, step.name, step.type);
    if (!engine.Requests().empty())
      AnswerA("127.0.0.53", step.name, "10.2.2.2");
    const DnsCounters& counted = engine.Counters();
    EXPECT_EQ(counted.queries, step.after.queries);
    EXPECT_EQ(counted.answersOwn, step.after.answersOwn);
    EXPECT_EQ(counted.answersCache, step.after.answersCache);
    EXPECT_EQ(counted.answersOthers, step.after.answersOthers);
  }
}

}  // namespace
