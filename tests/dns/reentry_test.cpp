// A shell that runs a nested event loop from inside a callback (a modal
// message box, say) can deliver a datagram, a tick or a pause while the
// engine is half-way through another call. The sender's hook plays that
// shell here.
#include "dns_world.h"

using namespace korvane;

namespace {

const std::string kBusy = "DNS engine busy: a nested call was ignored.";

class Reentry : public DnsWorld {
 protected:
  // A request waits for 127.0.0.53; its reply is `reply`.
  ReplyBuilder Waiting(const std::string& name) {
    Ask(1, name, 1);
    return Asked("127.0.0.53", name);
  }
  // Runs `nested` inside the next answer sent to a client, once.
  void DuringNextAnswer(std::function<void()> nested) {
    wsdns.onSend = [this, nested] {
      wsdns.onSend = nullptr;
      nested();
    };
  }
  int Count(const std::string& line) const {
    return static_cast<int>(std::count(log.lines.begin(), log.lines.end(), line));
  }
};

// Without the guard the nested tick finds the request that is sending its
// answer timed out, answers it again and frees it while its Check still
// runs (a use after free under AddressSanitizer).
TEST_F(Reentry, NestedCallsDuringAnAnswerAreIgnoredAndLoggedOnce) {
  Forwarding({"127.0.0.53"});
  ReplyBuilder reply = Waiting("www.example.org.").A(2, "www.example.org.", "10.2.2.2");
  ASSERT_EQ(engine.Requests().size(), 1u);
  DuringNextAnswer([this] {
    clock.Advance(30);
    engine.Timer();
    Ask(2, "nested.example.org.", 1);
    engine.ProcReq("10.0.0.5", 5353, Query(3, "other.example.org.", 1));
    const uint64_t channel = ChannelTo("127.0.0.53");
    engine.ProcAns(channel, "127.0.0.53", 53, ReplyBuilder(1, "www.example.org.", 1).Build());
    engine.OnDns2Datagram(channel, "127.0.0.53", 53,
                          ReplyBuilder(1, "www.example.org.", 1).Build());
  });
  Reply("127.0.0.53", reply);

  ASSERT_EQ(wsdns.sent.size(), 1u);
  EXPECT_EQ(Data(LastAnswer(), 2), Strs{"10.2.2.2"});
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_TRUE(TakeUpstream().empty());
  EXPECT_EQ(Count(kBusy), 1);
  EXPECT_FALSE(Logged("Request from 10.0.0.5 for A-record for nested.example.org."));
  EXPECT_TRUE(errors.errors.empty());

  // Afterwards the engine works as before.
  Ask(4, "www.example.org.", 1);
  EXPECT_EQ(LastAnswer().Header.Id, 4);
}

TEST_F(Reentry, TheBusyLineComesAtMostOnceAMinute) {
  Perm("www.example.com.", 1, modIP::IPToData("10.1.1.1"));
  wsdns.onSend = [this] { engine.Timer(); };
  Ask(1, "www.example.com.", 1);
  clock.Advance(59);
  Ask(2, "www.example.com.", 1);
  EXPECT_EQ(Count(kBusy), 1);
  clock.Advance(1);
  Ask(3, "www.example.com.", 1);
  EXPECT_EQ(Count(kBusy), 2);
  EXPECT_EQ(wsdns.sent.size(), 3u);
}

struct NestedPause {
  const char* what;
  bool resumed;  // the shell starts the server again inside the same nested loop
};

class PauseInside : public Reentry, public ::testing::WithParamInterface<NestedPause> {};

// The pause stops intake at once and drops every request once the running
// call has returned, whatever the shell did in between.
TEST_P(PauseInside, TakesEffectWhenTheRunningCallReturns) {
  Forwarding({"127.0.0.53"});
  ReplyBuilder reply = Waiting("a.example.org.").A(2, "a.example.org.", "10.2.2.2");
  Ask(2, "b.example.org.", 1);
  ASSERT_EQ(engine.Requests().size(), 2u);
  bool stoppedAtOnce = false;
  DuringNextAnswer([this, &stoppedAtOnce] {
    engine.Pause();
    stoppedAtOnce = !engine.Running();
    if (GetParam().resumed) engine.SetRunning(true);
  });
  Reply("127.0.0.53", reply);

  EXPECT_TRUE(stoppedAtOnce);
  EXPECT_EQ(wsdns.sent.size(), 1u);
  EXPECT_TRUE(engine.Requests().empty());
  EXPECT_FALSE(engine.TimerEnabled());
  EXPECT_EQ(timerSwitches.back(), false);
  EXPECT_EQ(engine.Running(), GetParam().resumed);
  EXPECT_EQ(Count(kBusy), 0);

  TakeUpstream();
  Ask(3, "c.example.org.", 1);
  EXPECT_EQ(TakeUpstream().size(), GetParam().resumed ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Cases, PauseInside,
                         ::testing::Values(NestedPause{"paused", false},
                                           NestedPause{"paused and resumed", true}),
                         [](const auto& info) { return std::string(info.param.resumed ? "Resumed" : "Paused"); });

}  // namespace
