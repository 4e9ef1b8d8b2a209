// A request that cannot be resolved is answered "Server Failure" with one
// line saying why: servers that fail outright are passed over at once, and
// a request none of whose servers can be used ends without waiting; silence
// is waited out as before. A name server that is this server is a loop.
#include "dns_world.h"

using namespace korvane;

namespace {

enum class Failure { kNoRoute, kClosedPort, kServerFailure, kRefused, kSilent, kLoop };

struct GiveUpCase {
  const char* name;
  Strs servers;
  Failure failure;
  int seconds;  // until the client has its answer
  std::string line;
};

class GivingUp : public DnsWorld, public ::testing::WithParamInterface<GiveUpCase> {
 protected:
  // How the server of `query` fails it.
  void Fail(Failure failure, const SentQuery& query) {
    const int id = modDNS::DecodeMessage(query.bytes).Header.Id;
    const std::string name = "www.example.org.";
    switch (failure) {
      case Failure::kClosedPort:
        engine.ChannelError(query.channel, 111, "Connection refused");
        break;
      case Failure::kServerFailure: Reply(query.host, ReplyBuilder(id, name, 1, 2)); break;
      case Failure::kRefused: Reply(query.host, ReplyBuilder(id, name, 1, 5)); break;
      default: break;
    }
  }
};

TEST_P(GivingUp, AnswersServerFailureAndSaysWhy) {
  const GiveUpCase& c = GetParam();
  engine.SetServicePort(53);
  Forwarding(c.servers);
  wsdns2.fail = c.failure == Failure::kNoRoute;
  Ask(1, "www.example.org.", 1);
  int seconds = 0;
  while (wsdns.sent.empty() && seconds <= 30) {
    std::vector<SentQuery> out = TakeUpstream();
    for (const SentQuery& query : out) Fail(c.failure, query);
    if (out.empty()) {
      Tick(1);
      ++seconds;
    }
  }
  EXPECT_EQ(seconds, c.seconds);
  EXPECT_TRUE(Logged(c.line)) << c.line;
  DnsMessage answer = LastAnswer();
  EXPECT_EQ(answer.Header.Id, 1);
  EXPECT_EQ(answer.Header.RCode, 2);
  EXPECT_TRUE(answer.Records.empty());
  EXPECT_EQ(wsdns.sent.size(), 1u);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(wsdns2.open.empty());
}

const std::string kGaveUp = "Gave up on A-record for www.example.org.: ";

INSTANTIATE_TEST_SUITE_P(
    Cases, GivingUp,
    ::testing::Values(
        GiveUpCase{"NoRoute", {"192.0.2.1", "192.0.2.2"}, Failure::kNoRoute, 0,
                   kGaveUp + "2 servers failed (Network is unreachable)."},
        GiveUpCase{"ClosedPort", {"192.0.2.53"}, Failure::kClosedPort, 0,
                   kGaveUp + "1 server failed (Connection refused)."},
        GiveUpCase{"ServerFailure", {"192.0.2.51", "192.0.2.52"}, Failure::kServerFailure, 0,
                   kGaveUp + "2 servers failed (Server Failure)."},
        GiveUpCase{"Refused", {"192.0.2.53"}, Failure::kRefused, 0,
                   kGaveUp + "1 server failed (Refused - will not answer this client or this "
                             "query type)."},
        GiveUpCase{"Silent", {"192.0.2.53"}, Failure::kSilent, 12,
                   kGaveUp + "no answer from 1 server in 12 s."},
        GiveUpCase{"Loop", {"127.0.0.1"}, Failure::kLoop, 0,
                   kGaveUp + "1 server failed (forwarding loop)."}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(DnsWorld, AClosedPortIsLoggedAndTheNextServerAskedAtOnce) {
  Forwarding({"127.0.0.51", "127.0.0.52"});
  Ask(1, "www.example.org.", 1);
  SentQuery first = TakeUpstream().at(0);
  engine.ChannelError(first.channel, 111, "Connection refused");
  EXPECT_TRUE(Logged("MAIN-WS2 Error 111 Connection refused"));
  AnswerA(first.host == "127.0.0.51" ? "127.0.0.52" : "127.0.0.51", "www.example.org.",
          "10.4.4.4");
  EXPECT_EQ(Data(LastAnswer(), 2), Strs{"10.4.4.4"});
  // An error on a channel nobody owns any more is only logged.
  engine.ChannelError(first.channel, 111, "Connection refused");
  EXPECT_EQ(wsdns.sent.size(), 1u);
}

struct LoopCase {
  int servicePort;
  std::string bind, server;
  bool loop;
};

class Loops : public DnsWorld, public ::testing::WithParamInterface<LoopCase> {};

TEST_P(Loops, AServerThatIsThisServerIsNeverAskedAndLoggedOnce) {
  const LoopCase& c = GetParam();
  engine.SetServicePort(c.servicePort);
  options.DNSBIND = c.bind;
  Forwarding({c.server});
  for (int id = 1; id <= 3; ++id) Ask(id, "q" + std::to_string(id) + ".example.org.", 1);
  const std::string line = "Forwarding loop: " + c.server + " is this server.";
  EXPECT_EQ(std::count(log.lines.begin(), log.lines.end(), line), c.loop ? 1 : 0);
  EXPECT_EQ(TakeUpstream().size(), c.loop ? 0u : 3u);
  EXPECT_EQ(wsdns.sent.size(), c.loop ? 3u : 0u);
  // Found afresh after a pause (the options may have changed).
  engine.Pause();
  engine.SetRunning(true);
  Ask(4, "q4.example.org.", 1);
  EXPECT_EQ(std::count(log.lines.begin(), log.lines.end(), line), c.loop ? 2 : 0);
}

INSTANTIATE_TEST_SUITE_P(Cases, Loops,
                         ::testing::Values(LoopCase{53, "", "127.0.0.1", true},
                                           LoopCase{53, "", "127.0.0.53", true},
                                           LoopCase{53, "", "10.0.0.1", true},  // LocalIPs
                                           LoopCase{53, "", "10.0.0.2", false},
                                           LoopCase{5353, "", "127.0.0.1", false},
                                           LoopCase{0, "", "127.0.0.1", false},
                                           LoopCase{53, "127.0.0.1", "127.0.0.1", true},
                                           LoopCase{53, "127.0.0.1", "127.0.0.2", false},
                                           LoopCase{53, "10.0.0.1", "127.0.0.1", false}));

TEST_F(DnsWorld, AQueryFromOurOwnChannelIsALoop) {
  // 10.0.0.7 is this machine too, under an address LocalIPs does not list.
  Forwarding({"10.0.0.7"});
  Ask(1, "www.example.org.", 1);
  SentQuery out = TakeUpstream().at(0);
  engine.OnDnsDatagram("10.0.0.7", out.localPort, out.bytes, "10.0.0.7");
  EXPECT_TRUE(Logged("Forwarding loop: 10.0.0.7 is this server."));
  ASSERT_EQ(wsdns.sent.size(), 2u);
  // The looped query is refused, its asker given up.
  EXPECT_EQ(wsdns.sent[0].host, "10.0.0.7");
  EXPECT_EQ(wsdns.sent[0].port, out.localPort);
  EXPECT_EQ(modDNS::DecodeMessage(wsdns.sent[0].bytes).Header.RCode, 2);
  EXPECT_EQ(wsdns.sent[1].host, "10.0.0.5");
  EXPECT_TRUE(
      Logged("Gave up on A-record for www.example.org.: 1 server failed (forwarding loop)."));
  EXPECT_TRUE(engine.Requests().empty());
  // It is never asked again.
  Ask(2, "ftp.example.org.", 1);
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(LastAnswer().Header.RCode, 2);

  // A query from another port of this machine is an ordinary client's.
  Perm("own.example.com.", 1, modIP::IPToData("10.1.1.1"));
  engine.OnDnsDatagram("127.0.0.1", 40001, Query(3, "own.example.com.", 1), "127.0.0.1");
  EXPECT_EQ(Data(LastAnswer(), 2), Strs{"10.1.1.1"});
}

}  // namespace
