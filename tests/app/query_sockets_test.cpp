// The real query channels on loopback: random ports, only the server's
// datagrams, its closed port reported, no route refused at once.
#include "app/query_sockets.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "app/app_world.h"
#include "app/udp_peer.h"

using namespace korvane;

namespace {

// Made before the sockets, whose notifier needs the event loop.
struct EventLoopFirst {
  EventLoopFirst() { EnsureEventLoop(); }
};

class QuerySocketsTest : public ::testing::Test, private EventLoopFirst {
 protected:
  QuerySocketsTest() {
    sockets.SetHandler([this](uint64_t channel, const Datagram& d) {
      arrived.push_back({channel, d.host, d.port, std::string(d.data)});
    });
    sockets.SetErrorHandler([this](uint64_t channel, int number, const std::string&) {
      errors.push_back({channel, number});
    });
  }
  std::unique_ptr<QueryChannel> Open(const std::string& host, int port) {
    SendError error;
    auto channel = sockets.Open(host, port, error);
    EXPECT_TRUE(channel) << error.description;
    return channel;
  }

  struct Arrival {
    uint64_t channel;
    std::string host;
    int port;
    std::string bytes;
  };
  QuerySockets sockets;
  std::vector<Arrival> arrived;
  std::vector<std::pair<uint64_t, int>> errors;
};

TEST_F(QuerySocketsTest, EveryChannelHasAPortOfItsOwnAndAClosedOneIsNotTakenAgainSoon) {
  UdpPeer server("127.0.0.1", 0);
  ASSERT_TRUE(server.ok());
  std::vector<std::unique_ptr<QueryChannel>> open;
  std::set<int> ports;
  std::set<uint64_t> ids;
  for (int i = 0; i < 200; ++i) {
    open.push_back(Open("127.0.0.1", server.port()));
    ports.insert(open.back()->LocalPort());
    ids.insert(open.back()->Id());
  }
  EXPECT_EQ(ports.size(), 200u);
  EXPECT_EQ(ids.size(), 200u);
  EXPECT_EQ(ids.count(0), 0u);
  // Spread over the range, not handed out in order.
  EXPECT_GT(*ports.rbegin() - *ports.begin(), 10000);
  EXPECT_EQ(sockets.OpenCount(), 200u);
  open.clear();
  EXPECT_EQ(sockets.OpenCount(), 0u);
  for (int i = 0; i < 300; ++i) {
    auto channel = Open("127.0.0.1", server.port());
    EXPECT_TRUE(ports.insert(channel->LocalPort()).second) << "port taken again soon";
  }
}

TEST_F(QuerySocketsTest, OnlyTheServersDatagramsArriveWithTheChannelsId) {
  UdpPeer server("127.0.0.1", 0), other("127.0.0.1", 0);
  auto first = Open("127.0.0.1", server.port());
  auto second = Open("127.0.0.1", server.port());
  SendError error;
  ASSERT_TRUE(second->Send("query", error));
  std::optional<PeerDatagram> query = server.Receive(2000);
  ASSERT_TRUE(query);
  EXPECT_EQ(query->bytes, "query");
  EXPECT_EQ(query->port, second->LocalPort());

  other.SendTo("127.0.0.1", second->LocalPort(), "forged");
  server.SendTo("127.0.0.1", second->LocalPort(), "reply");
  RunEventsUntil([&] { return !arrived.empty(); });
  RunEvents();
  ASSERT_EQ(arrived.size(), 1u);
  EXPECT_EQ(arrived[0].channel, second->Id());
  EXPECT_EQ(arrived[0].host, "127.0.0.1");
  EXPECT_EQ(arrived[0].port, server.port());
  EXPECT_EQ(arrived[0].bytes, "reply");

  // Closed, a channel takes nothing more.
  const int port = second->LocalPort();
  second.reset();
  server.SendTo("127.0.0.1", port, "late");
  RunEvents();
  EXPECT_EQ(arrived.size(), 1u);
}

TEST_F(QuerySocketsTest, AClosedPortOfTheServerIsReportedOnItsChannel) {
  const int closed = FreeUdpPort();
  auto channel = Open("127.0.0.1", closed);
  SendError error;
  ASSERT_TRUE(channel->Send("query", error));
  RunEventsUntil([&] { return !errors.empty(); });
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].first, channel->Id());
  EXPECT_EQ(errors[0].second, ECONNREFUSED);
}

TEST(QuerySocketsNoRoute, AServerWithoutARouteCannotBeOpened) {
  EnsureEventLoop();
  PrivateNetwork network({});
  if (!network.ok()) GTEST_SKIP() << "needs root (a network namespace)";
  QuerySockets sockets;
  SendError error;
  EXPECT_EQ(sockets.Open("192.0.2.1", 53, error), nullptr);
  EXPECT_EQ(error.number, ENETUNREACH);
  EXPECT_EQ(sockets.Open("no address", 53, error), nullptr);
  EXPECT_EQ(error.number, EINVAL);
  EXPECT_EQ(sockets.OpenCount(), 0u);
}

}  // namespace
