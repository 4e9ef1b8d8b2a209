// One request driven alone, against a small fake of what the engine gives it.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "dns/request.h"
#include "recording_channels.h"
#include "support/fakes.h"
#include "support/store_parts.h"
#include "wire/dns_message.h"
#include "wire/ip.h"

using namespace korvane;

namespace {

class FakeHost : public RequestHost {
 public:
  explicit FakeHost(StoreContext& store) : store_(store) {}
  StoreContext& Store() override { return store_; }
  LeaseSource* Leases() override { return nullptr; }
  DatagramSender& AnswerSocket() override { return answers; }
  QueryChannels& Channels() override { return queries; }
  uint64_t NewSerial() override { return ++lastSerial; }
  bool Holds(uint64_t serial) const override { return held.count(serial) > 0; }
  bool Full() const override { return full; }
  void AddSubRequest(std::unique_ptr<clDNSRequest> sub) override { subs.push_back(std::move(sub)); }
  void CheckSoon(uint64_t serial) override { checkSoon.push_back(serial); }
  void SubRequestDone(uint64_t serial) override { subDone.push_back(serial); }
  int32_t NextQueryId() override { return ++lastQueryId; }
  double Random() override { return random; }
  void EnableTimer() override { ++timerEnabled; }
  bool IsLoop(const std::string& address) override { return loops.count(address) > 0; }
  bool RecursionAllowed(const std::string& client) const override { return client != "192.0.2.9"; }

  RecordingSender answers;
  RecordingChannels queries;
  std::set<std::string> loops;
  uint64_t lastSerial = 0;
  std::set<uint64_t> held;
  bool full = false;
  std::vector<std::unique_ptr<clDNSRequest>> subs;
  std::vector<uint64_t> checkSoon, subDone;
  int32_t lastQueryId = 0;
  double random = 0;
  int timerEnabled = 0;

 private:
  StoreContext& store_;
};

class RequestAlone : public ::testing::Test, public StoreParts {
 protected:
  // A client's A question for `name`.
  std::unique_ptr<clDNSRequest> Ask(const std::string& name) {
    auto request = std::make_unique<clDNSRequest>(host);
    request->FromIP = "10.0.0.5";
    request->FromPort = 5353;
    request->Id = 0x0A0B;
    request->RD = true;
    request->Name = name;
    request->RecType = 1;
    return request;
  }
  void Forwarding(std::vector<std::string> servers) {
    options.RECURSIONOUT = true;
    options.NS = std::move(servers);
  }
  template <typename Socket>
  modDNS::DnsMessage Sent(const Socket& socket, std::size_t index) {
    EXPECT_GT(socket.sent.size(), index);
    return socket.sent.size() > index ? modDNS::DecodeMessage(socket.sent[index].bytes)
                                      : modDNS::DnsMessage{};
  }

  StoreContext store{records, options, clock, log, errors, "/nonexistent", localIPs, dhcpIfs};
  FakeHost host{store};
};

TEST_F(RequestAlone, OwnRecordIsAnsweredAtOnce) {
  modDNS::CacheAdd(store, "www.example.com.", 1, 3600, modIP::IPToData("10.1.1.1"), 0, true);
  auto request = Ask("www.example.com.");
  EXPECT_TRUE(request->Check());
  const modDNS::DnsMessage answer = Sent(host.answers, 0);
  EXPECT_EQ(answer.Header.Id, 0x0A0B);
  ASSERT_EQ(answer.Records.size(), 1u);
  EXPECT_EQ(answer.Records[0].Address, "10.1.1.1");
  EXPECT_EQ(host.answers.sent[0].host, "10.0.0.5");
  EXPECT_TRUE(host.queries.sent.empty());
  EXPECT_EQ(host.timerEnabled, 0);
}

TEST_F(RequestAlone, ReplyOutcomeCompletesTheRequestOrMovesToTheNextServer) {
  Forwarding({"127.0.0.51", "127.0.0.52"});
  host.random = 0.6;
  auto request = Ask("www.example.org.");
  EXPECT_FALSE(request->Check());
  ASSERT_EQ(host.queries.sent.size(), 1u);
  EXPECT_EQ(host.queries.sent[0].host, "127.0.0.52");
  EXPECT_EQ(Sent(host.queries, 0).Header.Id, 1);
  EXPECT_EQ(request->LastQID, 1);
  EXPECT_TRUE(request->AwaitingReply());
  EXPECT_EQ(request->TimeOut, clock.Now() + 2);
  EXPECT_EQ(host.timerEnabled, 1);

  // The server failed: the other one is asked, with the next ID.
  EXPECT_FALSE(request->TakeOutcome({"www.example.org.", false, false}));
  ASSERT_EQ(host.queries.sent.size(), 2u);
  EXPECT_EQ(host.queries.sent[1].host, "127.0.0.51");
  EXPECT_EQ(Sent(host.queries, 1).Header.Id, 2);

  // It answered (the engine stored the record): the request is done.
  modDNS::CacheAdd(store, "www.example.org.", 1, 600, modIP::IPToData("10.2.2.2"), 0, false);
  EXPECT_TRUE(request->TakeOutcome({"www.example.org.", true, true}));
  EXPECT_FALSE(request->AwaitingReply());
  ASSERT_EQ(Sent(host.answers, 0).Records.size(), 1u);
  EXPECT_EQ(Sent(host.answers, 0).Records[0].Address, "10.2.2.2");
  EXPECT_EQ(host.queries.sent.size(), 2u);
}

TEST_F(RequestAlone, FinalReplyWithNothingStoredIsAnsweredEmpty) {
  Forwarding({"127.0.0.53"});
  auto request = Ask("x.example.org.");
  ASSERT_FALSE(request->Check());
  // A useful reply that is not final (a referral) asks again.
  EXPECT_FALSE(request->TakeOutcome({"x.example.org.", true, false}));
  EXPECT_EQ(host.queries.sent.size(), 2u);
  EXPECT_TRUE(request->TakeOutcome({"x.example.org.", true, true}));
  const modDNS::DnsMessage answer = Sent(host.answers, 0);
  EXPECT_EQ(answer.Header.RCode, 0);
  EXPECT_TRUE(answer.Records.empty());
}

TEST_F(RequestAlone, WithoutServersItIsGivenUpOnTheSecondCheckWithServerFailure) {
  Forwarding({});
  auto request = Ask("www.example.org.");
  EXPECT_FALSE(request->Check());
  EXPECT_EQ(request->TimeOut, clock.Now() + 10);
  EXPECT_TRUE(host.answers.sent.empty());
  clock.Advance(10);
  EXPECT_TRUE(request->Check());
  EXPECT_TRUE(request->Answered());
  EXPECT_EQ(Sent(host.answers, 0).Header.RCode, 2);

  // A sub-request has no client: whoever waits for it is told instead.
  auto sub = Ask("ns.example.org.");
  sub->FromIP = "SUB";
  EXPECT_FALSE(sub->Check());
  clock.Advance(10);
  EXPECT_TRUE(sub->Check());
  EXPECT_EQ(host.answers.sent.size(), 1u);
  EXPECT_EQ(host.subDone, std::vector<uint64_t>{sub->Serial()});
}

TEST_F(RequestAlone, AFullHostAnswersServerFailureInsteadOfLettingANewRequestWait) {
  Forwarding({"127.0.0.53"});
  host.full = true;
  auto fresh = Ask("a.example.org.");
  EXPECT_TRUE(fresh->Check());
  EXPECT_EQ(Sent(host.answers, 0).Header.RCode, 2);
  EXPECT_TRUE(host.queries.sent.empty());
  // One already held may go on waiting.
  auto held = Ask("b.example.org.");
  held->Held = true;
  EXPECT_FALSE(held->Check());
  EXPECT_EQ(host.queries.sent.size(), 1u);
}

TEST_F(RequestAlone, ServerWithoutAddressIsLookedUpByASubRequestOfTheHost) {
  modDNS::CacheAdd(store, ".", 2, 3600000, "a.root.", 0, true, true);
  modDNS::CacheAdd(store, "a.root.", 1, 3600000, modIP::IPToData("127.0.0.11"), 0, true, true);
  modDNS::CacheAdd(store, "example.org.", 2, 3600, "ns1.other.net.", 0, false);
  auto request = Ask("www.example.org.");
  EXPECT_FALSE(request->Check());
  ASSERT_EQ(host.subs.size(), 1u);
  const clDNSRequest& sub = *host.subs[0];
  EXPECT_TRUE(sub.IsSub());
  EXPECT_EQ(sub.Name, "ns1.other.net.");
  EXPECT_EQ(sub.RecType, 1);
  EXPECT_TRUE(request->WaitingForSub());
  EXPECT_EQ(request->SubRequest, sub.Serial());
  EXPECT_TRUE(host.queries.sent.empty());

  // While the host holds the sub-request, the parent waits.
  host.held.insert(sub.Serial());
  EXPECT_FALSE(request->Check());
  EXPECT_TRUE(host.queries.sent.empty());
  // Woken, it asks to be checked after the walk in progress.
  request->CheckSub();
  EXPECT_FALSE(request->WaitingForSub());
  EXPECT_EQ(host.checkSoon, std::vector<uint64_t>{request->Serial()});
}

}  // namespace
