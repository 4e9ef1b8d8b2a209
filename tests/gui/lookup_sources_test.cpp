// The look-up tool asking this program: each answer record says where it
// came from. Everything runs in a network of its own, with a scripted
// upstream server on 127.0.0.2:53.
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <string>

#include "gui/lookup_world.h"
#include "support/dns_bytes.h"
#include "wire/datetime.h"

namespace {

class LookUpSourcesTest : public LookUpWorld {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root for a private network namespace";
    network = std::make_unique<PrivateNetwork>(std::vector<std::string>{});
    ASSERT_TRUE(network->ok());
    upstream = std::make_unique<UdpClient>("127.0.0.2", 53);
    ASSERT_NE(upstream->port(), 0);
    dir.Write("hosts", "10.1.2.77 printer.example.test\n");
    dir.Write("dhcp.dat", "; Korvane - DHCP Leases\r\nlaptop.example.test. 10.1.2.50 01AA00000001 " +
                              FormatDateTime(clock.Now() + 3600) + "\r\n");
    ASSERT_NO_FATAL_FAILURE(OpenTool("NS: 127.0.0.2\nRecursionOut: YES\nHosts: " + dir.File("hosts") + "\n"));
  }
  void TearDown() override {
    window.reset();
    app.reset();
    upstream.reset();
    network.reset();
  }
  // The lines of the answer section (record and source lines) of the last answer.
  std::string AnswerLines() const {
    const std::string answer = Answer();
    const std::size_t from = answer.find("Answer:\n") + 8;
    return answer.substr(from, answer.find("\n\nAnswered by") - from);
  }
  // Answers the query the server sent upstream with one A record, `delay`
  // seconds later.
  void ReplyUpstream(const std::string& address, long ttl, double delay) {
    const std::optional<Received> query = upstream->Receive();
    ASSERT_TRUE(query.has_value());
    clock.Advance(delay);
    std::string reply = query->bytes;
    reply[2] = static_cast<char>(reply[2] | 0x80);
    reply[3] = static_cast<char>(0x80);
    reply[7] = 1;  // one answer
    int a, b, c, d;
    ASSERT_EQ(sscanf(address.c_str(), "%d.%d.%d.%d", &a, &b, &c, &d), 4);
    reply += RR(Ptr(12), 1, ttl, Bytes({a, b, c, d}));
    upstream->SendTo("127.0.0.1", query->port, reply);
  }

  std::unique_ptr<PrivateNetwork> network;
  std::unique_ptr<UdpClient> upstream;
};

TEST_F(LookUpSourcesTest, OwnRecordsHostsFileAndLease) {
  EXPECT_EQ((Ask("A", "www.example.test"), AnswerLines()),
            "A-record for www.example.test.=10.1.2.3 TTL=3600\n   Source: own records (file)");
  EXPECT_EQ((Ask("A", "printer.example.test"), AnswerLines()),
            "A-record for printer.example.test.=10.1.2.77 TTL=3600\n   Source: hosts file");
  EXPECT_EQ((Ask("PTR", "10.1.2.50"), AnswerLines()),
            "PTR-record for 50.2.1.10.in-addr.arpa.=laptop.example.test. TTL=3600\n"
            "   Source: DHCP lease (expires at " + FormatDateTime(clock.Now() + 3600) + ")");
}

TEST_F(LookUpSourcesTest, ForwardedThenCached) {
  Start("A", "far.example.net");
  ReplyUpstream("203.0.113.5", 300, 0.25);
  RunEventsUntil([&] { return !tool->Waiting(); });
  EXPECT_EQ(AnswerLines(), "A-record for far.example.net.=203.0.113.5 TTL=300\n"
                           "   Source: answered after asking 127.0.0.2 (external) in 250 ms");
  clock.Advance(10);
  EXPECT_EQ((Ask("A", "far.example.net"), AnswerLines()),
            "A-record for far.example.net.=203.0.113.5 TTL=290\n"
            "   Source: cache (learnt from 127.0.0.2, 290 s left)");
  EXPECT_TRUE(upstream->Waiting().empty());
}

// Headless, or with the window closed, nothing is noted.
TEST_F(LookUpSourcesTest, NothingIsKeptWhileNoWindowIsOpen) {
  tool->close();
  UdpClient client;
  client.SendTo("127.0.0.1", app->DnsPort(), DnsQuery(77, "www.example.test"));
  ASSERT_TRUE(client.Receive().has_value());
  EXPECT_EQ(app->dns().AnswerSources("127.0.0.1", client.port(), 77), nullptr);
  tool->show();
  client.SendTo("127.0.0.1", app->DnsPort(), DnsQuery(78, "www.example.test"));
  ASSERT_TRUE(client.Receive().has_value());
  EXPECT_NE(app->dns().AnswerSources("127.0.0.1", client.port(), 78), nullptr);
}

}  // namespace
