// The 2008 attack on a real server: an attacker who has seen the port of an
// earlier query floods it with forged replies carrying every possible ID,
// from the true server's address and port, while the true server takes
// 300 ms to answer. The cache must hold the true answer every time.
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "app/app_world.h"
#include "app/udp_peer.h"
#include "wire/dns_message.h"
#include "wire/ip.h"

using namespace korvane;

namespace {

constexpr int kTrials = 100;

// A reply to `name` A with one address, from the server asked.
std::string AnswerA(int id, const std::string& name, const std::string& address) {
  std::string question = DnsQuery(id, name).substr(12);
  return Bytes({id >> 8, id & 255, 0x81, 0x80, 0, 1, 0, 1, 0, 0, 0, 0}) + question +
         Bytes({0xC0, 12, 0, 1, 0, 1, 0, 1, 0x51, 0x80, 0, 4}) + modIP::IPToData(address);
}

// Every ID, forged from the upstream's own address and port, to `port`.
void Flood(int fd, const std::string& name, int port) {
  constexpr int kBatch = 1024;
  const std::string forged = AnswerA(0, name, "6.6.6.6");
  std::string batch;
  for (int i = 0; i < kBatch; ++i) batch += forged;
  std::vector<mmsghdr> messages(kBatch);
  std::vector<iovec> vectors(kBatch);
  sockaddr_in to = UdpPeer::Endpoint("127.0.0.1", port);
  for (int i = 0; i < kBatch; ++i) {
    vectors[i] = iovec{batch.data() + i * forged.size(), forged.size()};
    messages[i].msg_hdr.msg_name = &to;
    messages[i].msg_hdr.msg_namelen = sizeof to;
    messages[i].msg_hdr.msg_iov = &vectors[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  for (int first = 0; first < 65536; first += kBatch) {
    for (int i = 0; i < kBatch; ++i) {
      batch[i * forged.size()] = static_cast<char>((first + i) >> 8);
      batch[i * forged.size() + 1] = static_cast<char>((first + i) & 255);
    }
    for (int sent = 0; sent < kBatch;) {
      int n = sendmmsg(fd, messages.data() + sent, kBatch - sent, 0);
      if (n <= 0) break;
      sent += n;
    }
  }
}

using PoisoningTest = AppWorld;

TEST_F(PoisoningTest, ForgedRepliesWithEveryIdNeverReachTheCache) {
  PrivateNetwork network({});
  if (!network.ok()) GTEST_SKIP() << "needs root (a network namespace for port 53)";
  UdpPeer upstream("127.0.0.2", 53);
  ASSERT_TRUE(upstream.ok());
  Start("RecursionOut: YES\nNS: 127.0.0.2\n", "");
  ASSERT_TRUE(app->ServerStarted());
  UdpClient client;
  int seenPort = 0;  // the port of the query before: what an attacker can know
  int held = 0;
  // Trial 0 only shows the attacker a port.
  for (int trial = 0; trial <= kTrials; ++trial) {
    const std::string name = "t" + std::to_string(trial) + ".poison.test";
    const std::string truth = "10.0.0." + std::to_string(trial);
    int queryPort = 0;
    std::thread server([&] {
      std::optional<PeerDatagram> query = upstream.Receive(5000);
      if (!query) return;
      queryPort = query->port;
      const auto answerAt = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
      std::thread attacker([&] {
        if (seenPort) Flood(upstream.fd(), name, seenPort);
      });
      attacker.join();
      std::this_thread::sleep_until(answerAt);
      const int id = modDNS::DecodeMessage(query->bytes).Header.Id;
      upstream.SendTo(query->host, query->port, AnswerA(id, name, truth));
    });
    client.SendTo("127.0.0.1", app->DnsPort(), DnsQuery(trial + 1, name));
    std::optional<Received> answer = client.Receive();
    server.join();
    seenPort = queryPort;
    ASSERT_TRUE(answer) << "no answer in trial " << trial;
    int addresses = 0;
    bool onlyTruth = true;
    for (const auto& record : app->records().Named(name + ".")) {
      ++addresses;
      onlyTruth = onlyTruth && record->RecType == 1 && modIP::DataToIP(record->Data) == truth;
    }
    const bool answeredTruth = answer->bytes.find(modIP::IPToData(truth)) != std::string::npos;
    if (trial > 0 && addresses == 1 && onlyTruth && answeredTruth) ++held;
  }
  EXPECT_EQ(held, kTrials);
}

}  // namespace
