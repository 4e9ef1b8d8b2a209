#include <random>
#include <set>

#include "dns_world.h"

using namespace korvane;

namespace {

class Robustness : public DnsWorld {
 protected:
  void World() {
    Perm("example.com.", 6, Soa("ns1.example.com", "h.example.com", 1, 2, 3, 4, 5));
    Perm("example.com.", 2, "ns1.example.com.");
    Perm("www.example.com.", 1, modIP::IPToData("10.1.1.1"));
    Perm("example.com.", 15, "www.example.com.", 10);
    Perm("alias.example.com.", 5, "www.example.com.");
    RootHint();
  }

  // A reply a pending request would take, of one of several shapes, with
  // the server and the channel it would come from.
  std::string RealReply(std::mt19937& rng, std::string& host, uint64_t& channel) {
    ReplyBuilder reply(rng() % 65536, "www.example.org.", 1);
    host = "127.0.0.11";
    channel = rng() % 4;
    if (!engine.Requests().empty()) {
      const auto& r = engine.Requests()[rng() % engine.Requests().size()];
      reply = ReplyBuilder(r->LastQID, r->LastQ, r->LastQType);
      host = r->LastServer();
      channel = r->ChannelId();
    }
    const std::string n = std::to_string(rng() % 8);
    switch (rng() % 5) {
      case 0: reply.A(2, reply.qname, "10.9.0." + n); break;
      case 1: reply.NS(3, "org.", "ns" + n + ".org.").A(4, "ns1.org.", "127.0.0.12"); break;
      case 2: reply.rcode = 3; reply.SOA(3, "org.", 60, 30); break;
      case 3: reply.CNAME(2, reply.qname, "c" + n + ".example.org."); break;
      default: reply.NS(3, "example.org.", "ns.elsewhere" + n + ".net."); break;
    }
    return reply.Build();
  }

  std::string RealQuery(std::mt19937& rng) {
    static const char* names[] = {"www.example.com.", "alias.example.com.", "nosuch.example.com.",
                                  "example.com.",     "www.example.org.",   "a.b.c.example.net.",
                                  "1.0.0.10.in-addr.arpa.", "."};
    static const int types[] = {1, 2, 5, 6, 12, 15, 255, 16};
    // Mostly names that must be asked elsewhere, so that replies find takers.
    std::string name = rng() % 3 ? "h" + std::to_string(rng() % 300) + ".example.org."
                                 : names[rng() % 8];
    return Query(rng() % 65536, name, types[rng() % 8], rng() % 4 != 0);
  }

  static std::string Mutate(std::string bytes, std::mt19937& rng) {
    auto any = [&rng](std::size_t n) { return n == 0 ? 0 : rng() % n; };
    switch (rng() % 6) {
      case 0:  // flip a few bytes
        for (int i = 1 + rng() % 4; i > 0 && !bytes.empty(); --i)
          bytes[any(bytes.size())] = static_cast<char>(rng());
        break;
      case 1: bytes.resize(any(bytes.size() + 1)); break;  // cut
      case 2:  // a pointer somewhere, often at itself
        if (bytes.size() > 13) {
          std::size_t at = 12 + any(bytes.size() - 13);
          int target = static_cast<int>(rng() % 2 ? at : any(bytes.size()));
          bytes[at] = static_cast<char>(0xC0 | (target >> 8));
          bytes[at + 1] = static_cast<char>(target & 255);
        }
        break;
      case 3:  // huge counts
        for (std::size_t i = 4; i < 12 && i < bytes.size(); ++i)
          bytes[i] = static_cast<char>(rng() % 2 ? 0xFF : rng());
        break;
      case 4:  // garbage appended
        for (int i = rng() % 64; i > 0; --i) bytes += static_cast<char>(rng());
        break;
      default:  // all random
        bytes.assign(rng() % 600, '\0');
        for (char& c : bytes) c = static_cast<char>(rng());
        break;
    }
    return bytes;
  }
};

TEST_F(Robustness, FuzzedDatagramsNeverBreakTheEngine) {
  World();
  std::mt19937 rng(20240611);
  const std::string hosts[] = {"10.0.0.5", "127.0.0.11", "127.0.0.12", "10.0.0.6"};
  for (int i = 0; i < 6000; ++i) {
    std::string host;
    std::string datagram;
    uint64_t channel = 0;
    switch (rng() % 4) {
      case 0: datagram = RealQuery(rng); host = hosts[rng() % 4]; break;
      case 1: datagram = Mutate(RealQuery(rng), rng); host = hosts[rng() % 4]; break;
      case 2: datagram = RealReply(rng, host, channel); break;
      default: datagram = Mutate(RealReply(rng, host, channel), rng); break;
    }
    switch (rng() % 4) {
      case 0: engine.OnDnsDatagram(host, 5353, datagram, "10.0.0.1"); break;
      case 1: engine.OnDns2Datagram(channel, host, 53, datagram); break;
      case 2: if (datagram.size() >= 12) engine.ProcReq(host, 5353, datagram); break;
      default: if (datagram.size() >= 12) engine.ProcAns(channel, host, 53, datagram); break;
    }
    if (rng() % 10 == 0) Tick(1 + rng() % 3);
    ASSERT_LE(engine.Requests().size(), DnsEngine::kMaxRequests);
  }
  // Every pending request ends in bounded time.
  for (int t = 0; t < 200 && !engine.Requests().empty(); ++t) Tick(1);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_FALSE(engine.TimerEnabled());

  // Failures of the engine itself would be reported under these tags.
  const std::set<std::string> engineTags = {"modDNS ProcReq",   "modDNS ProcAns",
                                            "clDNSReq Check",   "clDNSReq SendAnswer",
                                            "clDNSReq ExtResolve", "frmMain Timer"};
  for (const auto& e : errors.errors) EXPECT_EQ(engineTags.count(e.tag), 0u) << e.description;

  // And it still answers normally.
  wsdns.sent.clear();
  Ask(0x0102, "www.example.com.", 1);
  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(wsdns.sent[0].bytes,
            Head(0x0102, 0x85, 0x80, 1, 0, 0, "www.example.com.", 1) +
                RR(Ptr(12), 1, 3600, Bytes({10, 1, 1, 1})));
}

TEST_F(Robustness, HostileRepliesToAPendingQueryAreSurvived) {
  // Each reply is accepted (right server, ID and question) and then broken
  // at every byte position after the question.
  RootHint();
  const std::string full = ReplyBuilder(0, "www.example.org.", 1)
                               .CNAME(2, "www.example.org.", "x.example.org.")
                               .SOA(3, "example.org.", 60, 30)
                               .NS(3, "example.org.", "ns.example.org.")
                               .A(4, "ns.example.org.", "127.0.0.14")
                               .Build();
  const std::size_t questionEnd = 12 + Wire("www.example.org.").size() + 4;
  for (std::size_t cut = questionEnd; cut <= full.size(); ++cut) {
    engine.Pause();
    engine.SetRunning(true);
    Ask(1, "www.example.org.", 1);
    ASSERT_EQ(engine.Requests().size(), 1u);
    std::string reply = full.substr(0, cut);
    int id = engine.Requests()[0]->LastQID;
    reply[0] = static_cast<char>(id >> 8);
    reply[1] = static_cast<char>(id & 255);
    const clDNSRequest& asker = *engine.Requests()[0];
    engine.OnDns2Datagram(asker.ChannelId(), asker.LastServer(), 53, reply);
    ASSERT_LE(engine.Requests().size(), 2u) << cut;
  }
  for (const auto& e : errors.errors) ADD_FAILURE() << e.tag << ": " << e.description;
}

TEST_F(Robustness, RequestsBeyondTheBoundAreAnsweredWithServerFailure) {
  Forwarding({"127.0.0.53"});
  for (std::size_t i = 0; i < DnsEngine::kMaxRequests; ++i)
    Ask(static_cast<int>(i % 65536), "n" + std::to_string(i) + ".example.org.", 1);
  EXPECT_EQ(engine.Requests().size(), DnsEngine::kMaxRequests);
  EXPECT_TRUE(wsdns.sent.empty());
  Ask(1, "one-too-many.example.org.", 1);
  EXPECT_EQ(engine.Requests().size(), DnsEngine::kMaxRequests);
  EXPECT_EQ(LastAnswer().Header.RCode, 2);
}

}  // namespace
