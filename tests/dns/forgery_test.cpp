// Replies of other servers that someone else could have sent: query IDs
// nobody can predict and that never name two queries at once, and a socket
// of its own for each query, closed when the query is over.
#include "dns_world.h"

using namespace korvane;

namespace {

class Forgery : public DnsWorld {
 protected:
  // Query IDs taken from `draws` in turn.
  void DrawIds(std::vector<uint32_t> draws) {
    draws_ = std::move(draws);
    engine.SetQueryIdSource([this] { return draws_[drawn_++ % draws_.size()]; });
  }
  int IdOf(const SentQuery& query) { return modDNS::DecodeMessage(query.bytes).Header.Id; }

  std::vector<uint32_t> draws_;
  std::size_t drawn_ = 0;
};

TEST_F(Forgery, AnIdIsDrawnAgainWhileAQueryThatIsOutHasIt) {
  Forwarding({"127.0.0.53"});
  DrawIds({5, 5, 0x10005, 9, 5});
  Ask(1, "a.example.org.", 1);
  Ask(2, "b.example.org.", 1);
  std::vector<SentQuery> out = TakeUpstream();
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(IdOf(out[0]), 5);
  EXPECT_EQ(IdOf(out[1]), 9);  // 5 twice more (the second as 0x10005): taken
  EXPECT_EQ(drawn_, 4u);

  // Once its query is answered, an ID is free again.
  Reply("127.0.0.53", ReplyBuilder(5, "a.example.org.", 1).A(2, "a.example.org.", "10.1.1.1"));
  EXPECT_EQ(engine.Requests().size(), 1u);
  Ask(3, "c.example.org.", 1);
  EXPECT_EQ(IdOf(TakeUpstream().at(0)), 5);
}

TEST_F(Forgery, ASourceThatKeepsRepeatingCannotMakeTwoQueriesShareAnId) {
  Forwarding({"127.0.0.53"});
  DrawIds({0xFFFF});
  for (int i = 0; i < 3; ++i) Ask(i, "n" + std::to_string(i) + ".example.org.", 1);
  std::vector<SentQuery> out = TakeUpstream();
  ASSERT_EQ(out.size(), 3u);
  EXPECT_EQ(IdOf(out[0]), 0xFFFF);
  EXPECT_EQ(IdOf(out[1]), 0);  // after 64 draws, the next free one (wrapping)
  EXPECT_EQ(IdOf(out[2]), 1);
}

TEST_F(Forgery, EachQueryHasAChannelOfItsOwnThatClosesWhenTheQueryIsOver) {
  Forwarding({"127.0.0.51", "127.0.0.52"});
  Ask(1, "www.example.org.", 1);
  Ask(2, "ftp.example.org.", 1);
  std::vector<SentQuery> out = TakeUpstream();
  ASSERT_EQ(out.size(), 2u);
  EXPECT_NE(out[0].channel, out[1].channel);
  EXPECT_NE(out[0].localPort, out[1].localPort);
  EXPECT_EQ(engine.Requests()[0]->ChannelPort(), out[0].localPort);

  // www's server stays silent: the next server is asked from a new channel,
  // and the old one is closed, so its late reply cannot count.
  Tick(2);
  std::vector<SentQuery> again = TakeUpstream();
  ASSERT_EQ(again.size(), 2u);
  EXPECT_FALSE(wsdns2.IsOpen(out[0].channel));
  EXPECT_FALSE(wsdns2.IsOpen(out[1].channel));
  log.lines.clear();
  engine.OnDns2Datagram(out[0].channel, out[0].host, 53,
                        ReplyBuilder(IdOf(out[0]), "www.example.org.", 1)
                            .A(2, "www.example.org.", "10.6.6.6")
                            .Build());
  EXPECT_EQ(log.lines, Strs{"Reply from " + out[0].host + " (about nothing ?):"});

  // Answered, a request keeps no channel; the request still waiting keeps its own.
  Reply(again[0].host, ReplyBuilder(IdOf(again[0]), "www.example.org.", 1)
                           .A(2, "www.example.org.", "10.2.2.2"));
  EXPECT_EQ(Data(LastAnswer(), 2), Strs{"10.2.2.2"});
  EXPECT_EQ(wsdns2.open, std::set<uint64_t>{again[1].channel});
  engine.Pause();
  EXPECT_TRUE(wsdns2.open.empty());
}

}  // namespace
