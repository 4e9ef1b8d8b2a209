#include "dns_world.h"

using namespace korvane;

namespace {

class Intake : public DnsWorld {};

TEST_F(Intake, IncompleteRequestsAreLoggedAndNotAnswered) {
  const std::string full = Query(7, "www.example.com.", 1);
  const Strs cases = {
      Bytes({0, 7, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}),                // QDCOUNT 0
      Bytes({0, 7, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0}),                // 12 bytes, no question
      full.substr(0, full.size() - 3),                             // cut inside type/class
      full.substr(0, 20),                                          // cut inside the name
      Bytes({0, 7, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0xC0, 12, 0, 1, 0, 1}),  // pointer loop
  };
  for (const auto& datagram : cases) {
    log.lines.clear();
    engine.OnDnsDatagram("10.0.0.5", 5353, datagram);
    EXPECT_EQ(log.lines, Strs{"Incomplete DNS Request from 10.0.0.5"}) << datagram.size();
  }
  EXPECT_TRUE(wsdns.sent.empty());
  EXPECT_TRUE(engine.Requests().empty());
}

struct Refusal {
  int opcode, qclass, qtype;
  std::string request, about;  // the first log line; what the answer is about
};

class NotImplementedReply : public DnsWorld, public ::testing::WithParamInterface<Refusal> {};

TEST_P(NotImplementedReply, EchoesTheRequestWithErrorFour) {
  const Refusal& c = GetParam();
  std::string request = Query(0x1234, "x.example.", c.qtype, true, c.qclass, c.opcode);
  engine.OnDnsDatagram("10.0.0.5", 5353, request, "10.0.0.1");
  EXPECT_EQ(log.lines, (Strs{c.request, "Sending answer to 10.0.0.5 about " + c.about,
                             "-> Error 4: Not implemented."}));
  ASSERT_EQ(wsdns.sent.size(), 1u);
  request[2] = static_cast<char>(request[2] | 0x80);
  request[3] = static_cast<char>(132);
  EXPECT_EQ(wsdns.sent[0].bytes, request);
  EXPECT_EQ(wsdns.sent[0].host, "10.0.0.5");
  EXPECT_EQ(wsdns.sent[0].port, 5353);
  EXPECT_EQ(wsdns.sent[0].from, "10.0.0.1");
  EXPECT_TRUE(wsdns2.sent.empty());
}

const std::string kOp = "DNS Request from 10.0.0.5", kClass = kOp + " for ",
                  kType = "Request from 10.0.0.5 for ";

INSTANTIATE_TEST_SUITE_P(
    Cases, NotImplementedReply,
    ::testing::Values(
        Refusal{1, 1, 1, kOp + "(Inverse Query Request)", "Inverse Query Request"},
        Refusal{2, 1, 1, kOp + "(Server Status Request)", "Server Status Request"},
        Refusal{9, 1, 1, kOp + "(Unknown Query Type)", "Unknown Query Type"},
        Refusal{0, 3, 1, kClass + "CHAOS class record", "CHAOS class record"},
        Refusal{0, 2, 1, kClass + "CSNET class record", "CSNET class record"},
        Refusal{0, 4, 1, kClass + "Hesiod [Dyer 87] class record", "Hesiod [Dyer 87] class record"},
        Refusal{0, 255, 1, kClass + "Unknown class", "Unknown class"},
        Refusal{0, 1, 16, kType + "TXT-record for x.example.", "TXT-record for x.example."},
        Refusal{0, 1, 28, kType + "?28?-record for x.example.", "?28?-record for x.example."},
        Refusal{0, 1, 252, kType + "AXFR-record for x.example.", "AXFR-record for x.example."}));

TEST_F(Intake, ErrorFourKeepsTheReceivedFlagBitsExactly) {
  // Opcode 2 with RD and TC set: only QR is added, byte 4 becomes 132.
  const std::string question = Wire("a.") + U16(1) + U16(1);
  engine.ProcReq("10.0.0.5", 1000,
                 Bytes({0xAB, 0xCD, 0x13, 0x5A, 0, 1, 0, 0, 0, 0, 0, 0}) + question);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(wsdns.sent[0].bytes, Bytes({0xAB, 0xCD, 0x93, 132, 0, 1, 0, 0, 0, 0, 0, 0}) + question);
}

TEST_F(Intake, FailedSendsAreLoggedAndTheRequestsCarryOn) {
  wsdns.fail = wsdns2.fail = true;
  wsdns2.failure = {11, "Resource temporarily unavailable"};
  Perm("www.example.com.", 1, modIP::IPToData("10.1.1.1"));
  Ask(1, "www.example.com.", 1);
  EXPECT_EQ(log.lines.back(), "SA-WS Error 11 Resource temporarily unavailable");
  EXPECT_TRUE(engine.Requests().empty());
  Ask(2, "a.", 16);
  EXPECT_EQ(log.lines.back(), "PRCREQ-WS Error 11 Resource temporarily unavailable");
  // A query that cannot leave ends its request at once (the failure answer
  // cannot leave either).
  Forwarding({"127.0.0.53"});
  Ask(3, "www.example.org.", 1);
  EXPECT_TRUE(Logged("XR-WS Error 11 Resource temporarily unavailable"));
  EXPECT_EQ(log.lines.back(), "SA-WS Error 11 Resource temporarily unavailable");
  EXPECT_TRUE(engine.Requests().empty());
}

TEST_F(Intake, ShortDatagramsAreDroppedAndPauseEndsAllWork) {
  engine.OnDnsDatagram("10.0.0.5", 5353, Bytes({0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(log.lines.empty());
  Forwarding({"127.0.0.53"});
  Ask(1, "www.example.org.", 1);
  ASSERT_EQ(engine.Requests().size(), 1u);
  engine.Pause();
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_FALSE(engine.TimerEnabled());
  EXPECT_FALSE(engine.Running());
  log.lines.clear();
  Ask(1, "a.", 16);
  Reply("10.0.0.9", ReplyBuilder(1, "a.", 1));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(wsdns.sent.empty());
}

TEST_F(Intake, QrBitSendsWsdnsDatagramsToReplyHandlingAndWsdns2IgnoresQueries) {
  engine.OnDnsDatagram("10.0.0.9", 53, ReplyBuilder(77, "a.", 1).Build());
  EXPECT_EQ(log.lines, Strs{"Reply from 10.0.0.9 (about nothing ?):"});
  log.lines.clear();
  engine.OnDns2Datagram(1, "10.0.0.9", 53, Query(5, "a.", 16));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(wsdns.sent.empty());
}

TEST_F(Intake, SocketErrorEventsAreLogged) {
  engine.SocketError(1, 10054, "Connection reset by peer");
  engine.SocketError(2, 10065, "No route to host");
  EXPECT_EQ(log.lines, (Strs{"MAIN-WS Error 10054 Connection reset by peer",
                             "MAIN-WS2 Error 10065 No route to host"}));
}

TEST_F(Intake, AnyTypeGoesToResolutionAndTheLogShowsTheRequest) {
  Perm("example.com.", 6, Soa("ns1.example.com", "hostmaster.example.com", 1, 2, 3, 4, 5));
  Perm("example.com.", 1, modIP::IPToData("10.1.1.1"));
  Ask(3, "example.com.", 255);
  EXPECT_EQ(log.lines.front(), "Request from 10.0.0.5 for *-record for example.com.");
  DnsMessage m = LastAnswer();
  EXPECT_EQ(m.Header.RCode, 0);
  EXPECT_EQ(m.Section(2).size(), 2u);
}

}  // namespace
