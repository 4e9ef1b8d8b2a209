#include "dns_world.h"

namespace {

class External : public DnsWorld {
 protected:
  void Forwarding(std::vector<std::string> servers) {
    options.RECURSIONOUT = true;
    options.NS = std::move(servers);
  }
  // The single upstream query sent since the last look; fails otherwise.
  WireMessage OneQuery(const std::string& host) {
    auto up = TakeUpstream();
    EXPECT_EQ(up.size(), 1u);
    if (up.size() != 1) return {};
    EXPECT_EQ(up[0].host, host);
    EXPECT_EQ(up[0].port, 53);
    return Decode(up[0].bytes);
  }
  const clDNSRecord* Find(const std::string& name, int type) {
    for (const auto& it : records.Named(name))
      if (it->RecType == type) return &*it;
    return nullptr;
  }
};

TEST_F(External, ForwardingRhythmQueryReplyAnswerCacheHit) {
  Forwarding({"127.0.0.53"});
  Ask(0x0A0B, "www.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.53");
  EXPECT_EQ(q.id, 1);
  EXPECT_EQ(q.flags3 & 1, 1);
  EXPECT_EQ(q.qname, "www.example.org.");
  EXPECT_EQ(q.qtype, 1);
  EXPECT_TRUE(wsdns.sent.empty());
  EXPECT_TRUE(Logged("Sending request to 127.0.0.53 (external) for A-record for www.example.org."));
  EXPECT_EQ(timerSwitches, std::vector<bool>{true});

  engine.OnDns2Datagram(
      "127.0.0.53", 53,
      ReplyBuilder(q.id, "www.example.org.", 1).A(2, "www.example.org.", "10.2.2.2", 600).Build());
  EXPECT_TRUE(Logged("Reply from 127.0.0.53 about A-record for www.example.org.:"));
  EXPECT_TRUE(Logged("-> Answer: A-record for www.example.org. = 10.2.2.2"));
  WireMessage a = LastAnswer();
  EXPECT_EQ(a.id, 0x0A0B);
  EXPECT_FALSE(a.aa());
  ASSERT_EQ(a.In(2).size(), 1u);
  EXPECT_EQ(a.In(2)[0].data, "10.2.2.2");
  EXPECT_TRUE(engine.Requests().empty());

  clock.Advance(100);
  Ask(2, "www.example.org.", 1);
  EXPECT_TRUE(TakeUpstream().empty());
  a = LastAnswer();
  EXPECT_EQ(a.id, 2);
  ASSERT_EQ(a.In(2).size(), 1u);
  EXPECT_EQ(a.In(2)[0].ttl, 500);
}

TEST_F(External, RandomChoiceAmongConfiguredServers) {
  Forwarding({"127.0.0.51", "127.0.0.52", "127.0.0.53"});
  const std::pair<double, std::string> cases[] = {
      {0.0, "127.0.0.51"}, {0.34, "127.0.0.52"}, {0.5, "127.0.0.52"}, {0.999, "127.0.0.53"}};
  int n = 0;
  for (const auto& [value, server] : cases) {
    random = value;
    Ask(1, "n" + std::to_string(n++) + ".example.org.", 1);
    OneQuery(server);
  }
}

TEST_F(External, IterativeFromRootHintsThroughTwoReferrals) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  Ask(7, "www.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.11");
  EXPECT_EQ(q.flags3 & 1, 0);

  engine.OnDns2Datagram("127.0.0.11", 53,
                        ReplyBuilder(q.id, "www.example.org.", 1)
                            .NS(3, "org.", "ns.org-servers.net.")
                            .A(4, "ns.org-servers.net.", "127.0.0.12")
                            .Build());
  q = OneQuery("127.0.0.12");
  EXPECT_TRUE(Logged(
      "Sending request to 127.0.0.12 (ns.org-servers.net.) for A-record for www.example.org."));
  EXPECT_TRUE(Logged("-> Authority: NS-record for org. = ns.org-servers.net."));
  EXPECT_TRUE(Logged("-> Additional: A-record for ns.org-servers.net. = 127.0.0.12"));

  engine.OnDns2Datagram("127.0.0.12", 53,
                        ReplyBuilder(q.id, "www.example.org.", 1)
                            .NS(3, "example.org.", "ns1.example.org.")
                            .A(4, "ns1.example.org.", "127.0.0.13")
                            .Build());
  q = OneQuery("127.0.0.13");
  EXPECT_TRUE(wsdns.sent.empty());

  engine.OnDns2Datagram("127.0.0.13", 53,
                        ReplyBuilder(q.id, "www.example.org.", 1)
                            .A(2, "www.example.org.", "10.3.3.3")
                            .Build());
  WireMessage a = LastAnswer();
  EXPECT_EQ(a.id, 7);
  ASSERT_EQ(a.In(2).size(), 1u);
  EXPECT_EQ(a.In(2)[0].data, "10.3.3.3");

  // A sibling name now starts at the nearest known servers.
  Ask(8, "ftp.example.org.", 1);
  OneQuery("127.0.0.13");
  Ask(9, "www.example.org.", 1);
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(LastAnswer().id, 9);
}

struct NegativeReply {
  int rcode;
  bool soa;
  int storedType;
  int32_t ttl;
  std::string data;
  int clientRcode;
};

class NegativeReplies : public External, public ::testing::WithParamInterface<NegativeReply> {};

TEST_P(NegativeReplies, AreCachedWithTheSoaMinimumOrTenMinutes) {
  const NegativeReply& c = GetParam();
  Forwarding({"127.0.0.53"});
  Ask(1, "x.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.53");
  ReplyBuilder reply(q.id, "x.example.org.", 1, c.rcode);
  if (c.soa) reply.SOA(3, "example.org.", 3600, 120);
  engine.OnDns2Datagram("127.0.0.53", 53, reply.Build());

  const clDNSRecord* entry = Find("x.example.org.", c.storedType);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->TTL(clock.Now()), c.ttl);
  EXPECT_EQ(entry->Data, c.data);
  WireMessage a = LastAnswer();
  EXPECT_EQ(a.rcode(), c.clientRcode);
  EXPECT_TRUE(a.In(2).empty());
  EXPECT_EQ(a.In(3).size(), c.soa ? 1u : 0u);
  EXPECT_TRUE(engine.Requests().empty());

  // Asked again: from the cache until the entry expires.
  Ask(2, "x.example.org.", 1);
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(LastAnswer().rcode(), c.clientRcode);
  clock.Advance(c.ttl + 1);
  Ask(3, "x.example.org.", 1);
  OneQuery("127.0.0.53");
}

INSTANTIATE_TEST_SUITE_P(Cases, NegativeReplies,
                         ::testing::Values(NegativeReply{3, true, 2000, 120, "example.org.", 3},
                                           NegativeReply{3, false, 2000, 600, "", 3},
                                           NegativeReply{0, true, 1001, 120, "example.org.", 0},
                                           NegativeReply{0, false, 1001, 600, "", 0}));

TEST_F(External, NoDataReplyIsLogged) {
  Forwarding({"127.0.0.53"});
  Ask(1, "x.example.org.", 15);
  WireMessage q = OneQuery("127.0.0.53");
  engine.OnDns2Datagram("127.0.0.53", 53,
                        ReplyBuilder(q.id, "x.example.org.", 15).SOA(3, "example.org.", 60, 30).Build());
  EXPECT_TRUE(Logged("Reply from 127.0.0.53 about MX-record for x.example.org.:"));
  EXPECT_TRUE(Logged("-> Answer: There are no MX-Records for x.example.org."));
  EXPECT_TRUE(Logged("-> Authority: SOA-record for example.org. = ns1.example.org."));
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
  EXPECT_EQ(engine.Requests().size(), 1u);
  Tick(9);
  EXPECT_EQ(engine.Requests().size(), 1u);
  Tick(1);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(wsdns.sent.empty());
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(timerSwitches, (std::vector<bool>{true, false}));
  EXPECT_EQ(engine.TickCounter(), 0);
}

TEST_F(External, NoServerAtAllGivesUpAfterTenSeconds) {
  Forwarding({});
  Ask(1, "www.example.org.", 1);
  EXPECT_EQ(engine.Requests().size(), 1u);
  EXPECT_TRUE(engine.TimerEnabled());
  Tick(10);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(wsdns.sent.empty());
}

TEST_F(External, ServerFailureMovesOnToTheNextServer) {
  Forwarding({"127.0.0.51", "127.0.0.52"});
  Ask(1, "www.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.51");
  engine.OnDns2Datagram("127.0.0.51", 53, ReplyBuilder(q.id, "www.example.org.", 1, 2).Build());
  EXPECT_TRUE(Logged("-> Header: Server Failure."));
  q = OneQuery("127.0.0.52");
  EXPECT_EQ(Find("www.example.org.", 1001), nullptr);
  engine.OnDns2Datagram(
      "127.0.0.52", 53,
      ReplyBuilder(q.id, "www.example.org.", 1).A(2, "www.example.org.", "10.4.4.4").Build());
  EXPECT_EQ(LastAnswer().In(2).size(), 1u);
}

TEST_F(External, QueryIdsRunUpTo65535ThenStartAtOne) {
  Forwarding({"127.0.0.53"});
  engine.SetQueryId(65534);
  Ask(1, "a.example.org.", 1);
  EXPECT_EQ(OneQuery("127.0.0.53").id, 65535);
  Ask(2, "b.example.org.", 1);
  EXPECT_EQ(OneQuery("127.0.0.53").id, 1);
  EXPECT_EQ(engine.QueryId(), 1);
}

TEST_F(External, RepliesThatDoNotMatchTheQueryAreIgnored) {
  Forwarding({"127.0.0.53"});
  Ask(1, "www.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.53");
  struct Bad {
    std::string host;
    ReplyBuilder reply;
  };
  const Bad bad[] = {
      {"127.0.0.99", ReplyBuilder(q.id, "www.example.org.", 1)},     // other address
      {"127.0.0.53", ReplyBuilder(q.id + 1, "www.example.org.", 1)}, // other ID
      {"127.0.0.53", ReplyBuilder(q.id, "www.example.net.", 1)},     // other name
      {"127.0.0.53", ReplyBuilder(q.id, "www.example.org.", 15)},    // other type
      {"127.0.0.53", ReplyBuilder(q.id, "www.example.org.", 1, 0, 3)},  // other class
  };
  for (const Bad& b : bad) {
    ReplyBuilder reply = b.reply;
    reply.A(2, "www.example.org.", "10.6.6.6");
    log.lines.clear();
    engine.OnDns2Datagram(b.host, 53, reply.Build());
    EXPECT_EQ(log.lines, std::vector<std::string>{"Reply from " + b.host + " (about nothing ?):"});
  }
  EXPECT_TRUE(records.Named("www.example.org.").empty());
  EXPECT_TRUE(wsdns.sent.empty());

  // The question is compared without regard to case.
  engine.OnDns2Datagram(
      "127.0.0.53", 53,
      ReplyBuilder(q.id, "WWW.Example.ORG.", 1).A(2, "www.example.org.", "10.5.5.5").Build());
  EXPECT_EQ(LastAnswer().In(2).size(), 1u);
  // A second copy of the reply finds nobody waiting.
  log.lines.clear();
  engine.OnDns2Datagram("127.0.0.53", 53, ReplyBuilder(q.id, "www.example.org.", 1).Build());
  EXPECT_EQ(log.lines, std::vector<std::string>{"Reply from 127.0.0.53 (about nothing ?):"});
}

TEST_F(External, EndlessReferralsStopAtTheQueryBound) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  Ask(1, "www.example.org.", 1);
  int queries = 0;
  for (int round = 0; round < 40; ++round) {
    auto up = TakeUpstream();
    if (up.empty()) break;
    queries += static_cast<int>(up.size());
    WireMessage q = Decode(up.back().bytes);
    engine.OnDns2Datagram(up.back().host, 53,
                          ReplyBuilder(q.id, "www.example.org.", 1)
                              .NS(3, "org.", "ns.org-servers.net.")
                              .A(4, "ns.org-servers.net.", "127.0.0.12")
                              .Build());
  }
  EXPECT_EQ(queries, DnsEngine::kMaxQueriesPerRequest);
  Tick(10);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(wsdns.sent.empty());
}

TEST_F(External, NameServerWithoutGlueIsLookedUpBySubRequest) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  Ask(3, "www.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.11");
  engine.OnDns2Datagram("127.0.0.11", 53,
                        ReplyBuilder(q.id, "www.example.org.", 1)
                            .NS(3, "example.org.", "ns1.other.net.")
                            .Build());
  // The server's address is asked first, by a sub-request.
  q = OneQuery("127.0.0.11");
  EXPECT_EQ(q.qname, "ns1.other.net.");
  EXPECT_EQ(q.qtype, 1);
  ASSERT_EQ(engine.Requests().size(), 2u);
  // The waiting parent came first; the sub-request joined at the end.
  EXPECT_TRUE(engine.Requests()[0]->WaitingForSub());
  EXPECT_EQ(engine.Requests()[1]->FromIP, "SUB");
  EXPECT_EQ(engine.Requests()[0]->SubRequest, engine.Requests()[1]->Serial());

  engine.OnDns2Datagram(
      "127.0.0.11", 53,
      ReplyBuilder(q.id, "ns1.other.net.", 1).A(2, "ns1.other.net.", "127.0.0.13").Build());
  q = OneQuery("127.0.0.13");
  EXPECT_EQ(q.qname, "www.example.org.");
  EXPECT_TRUE(
      Logged("Sending request to 127.0.0.13 (ns1.other.net.) for A-record for www.example.org."));
  EXPECT_TRUE(wsdns.sent.empty());  // nothing is sent for the sub-request

  engine.OnDns2Datagram(
      "127.0.0.13", 53,
      ReplyBuilder(q.id, "www.example.org.", 1).A(2, "www.example.org.", "10.8.8.8").Build());
  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(LastAnswer().id, 3);
  EXPECT_TRUE(engine.Requests().empty());
}

TEST_F(External, AGivenUpSubRequestWakesItsParent) {
  RootHint("a.root-servers.net.", "127.0.0.11");
  Ask(3, "www.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.11");
  engine.OnDns2Datagram(
      "127.0.0.11", 53,
      ReplyBuilder(q.id, "www.example.org.", 1).NS(3, "example.org.", "ns1.other.net.").Build());
  OneQuery("127.0.0.11");
  // Nobody answers anything: everything ends within a bounded time.
  int ticks = 0;
  while (!engine.Requests().empty() && ticks < 200) {
    Tick(1);
    ++ticks;
  }
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_LT(ticks, 100);
  EXPECT_TRUE(wsdns.sent.empty());
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

TEST_F(External, ReplyArrivingOnTheServerSocketIsTakenToo) {
  Forwarding({"127.0.0.53"});
  Ask(4, "www.example.org.", 1);
  WireMessage q = OneQuery("127.0.0.53");
  engine.OnDnsDatagram(
      "127.0.0.53", 53,
      ReplyBuilder(q.id, "www.example.org.", 1).A(2, "www.example.org.", "10.5.5.5").Build());
  EXPECT_EQ(LastAnswer().id, 4);
}

TEST_F(External, AQuietIntakeCleansExpiredRecordsFirst) {
  Cached("short.example.org.", 1, modIP::IPToData("10.1.2.3"), 10);
  Cached("long.example.org.", 1, modIP::IPToData("10.1.2.4"), 100);
  clock.Advance(20);
  Ask(1, "long.example.org.", 1);
  EXPECT_TRUE(records.Named("short.example.org.").empty());
  EXPECT_FALSE(records.Named("long.example.org.").empty());
}

TEST_F(External, PauseEmptiesRequestsAndStopsTheTimer) {
  Forwarding({"127.0.0.53"});
  Ask(1, "www.example.org.", 1);
  ASSERT_EQ(engine.Requests().size(), 1u);
  engine.Pause();
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_FALSE(engine.TimerEnabled());
  EXPECT_FALSE(engine.Running());
}

TEST_F(External, FailedQuerySendIsLogged) {
  Forwarding({"127.0.0.53"});
  wsdns2.fail = true;
  Ask(1, "www.example.org.", 1);
  EXPECT_TRUE(Logged("XR-WS Error 11 Resource temporarily unavailable"));
  EXPECT_EQ(engine.Requests().size(), 1u);
}

}  // namespace
