#include "tools/frmQuery.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QGuiApplication>
#include <unistd.h>

#include <string>

#include "gui/lookup_world.h"
#include "support/dns_bytes.h"
#include "wire/dns_message.h"

namespace {

using FrmQueryTest = LookUpWorld;

TEST_F(FrmQueryTest, ControlsAndTheLabelsOfEachType) {
  OpenTool();
  EXPECT_EQ(tool->windowTitle(), "Korvane - DNS Look Up");
  QStringList entries;
  for (int i = 0; i < tool->comType()->count(); ++i) entries << tool->comType()->itemText(i);
  EXPECT_EQ(entries, (QStringList{"<all>", "A", "MX", "PTR", "CNAME", "NS", "SOA"}));
  EXPECT_EQ(Label("Label3"), "Record Type:");
  EXPECT_EQ(tool->txtServer()->text(), "127.0.0.1");
  tool->comType()->setCurrentIndex(3);
  EXPECT_EQ(Label("LabelType"), "Pointer ( IP-Address to Name )");
  EXPECT_EQ(Label("lblName"), "IP Address:");
  tool->comType()->setCurrentIndex(2);
  EXPECT_EQ(Label("LabelType"), "E-Mail Server");
  EXPECT_EQ(Label("lblName"), "Domain Name:");
  ExpectIdle(true);
  // The menu entry shows the same window again.
  Choose("mnuQuery");
  EXPECT_EQ(window->LookUp(), tool);
}

TEST_F(FrmQueryTest, LookUpsAgainstTheRunningServer) {
  OpenTool();
  const std::string port = std::to_string(app->DnsPort());
  Start("A", "www.example.test", "127.0.0.1", true);  // Enter starts it
  ExpectIdle(false);
  RunEventsUntil([&] { return !tool->Waiting(); });
  ExpectIdle(true);
  std::string answer = Answer();
  EXPECT_EQ(answer.substr(0, answer.find("\nAnswered by")),
            "Authoritative Answer: Yes\nAnswer:\nA-record for www.example.test.=10.1.2.3 TTL=3600\n"
            "   Source: own records (file)\n");
  EXPECT_NE(answer.find("\nAnswered by 127.0.0.1 port " + port + " in "), std::string::npos) << answer;

  answer = Ask("PTR", "10.1.2.3");
  EXPECT_NE(answer.find("PTR-record for 3.2.1.10.in-addr.arpa.=www.example.test. TTL=3600"),
            std::string::npos) << answer;

  answer = Ask("A", "nothere.example.test");
  EXPECT_NE(answer.find("Header: Name does not exist!\nAnswer:\n"
                        "There are no A-Records for nothere.example.test.\n"),
            std::string::npos) << answer;

  tool->findChild<QPushButton*>("cmdCopy")->click();
  EXPECT_EQ(QGuiApplication::clipboard()->text().toStdString(), answer);
}

TEST_F(FrmQueryTest, BadInputSendsNothing) {
  OpenTool();
  tool->txtAnswer()->setPlainText("before");
  Start("A", "   ");
  EXPECT_EQ(Answer(), "before");  // an empty name does nothing
  ExpectIdle(true);
  struct Case {
    const char* type;
    std::string name, server, message;
  } cases[] = {
      {"A", "www example.test", "127.0.0.1", "A name cannot hold blanks."},
      {"A", std::string(300, 'a'), "127.0.0.1", "A label of the name is longer than 63 characters."},
      {"PTR", "1.2.3", "127.0.0.1", "Enter an IP address such as 192.168.0.1 for a PTR look-up."},
      {"A", "www.example.test", "my server", "The server must be an IP address such as 127.0.0.1."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name + " / " + c.server);
    Start(c.type, c.name, c.server);
    EXPECT_EQ(Answer(), c.message);
    ExpectIdle(true);
    EXPECT_EQ(tool->LastQueryId(), 0);
  }
}

// In a network of its own the tool's questions reach a scripted server on
// the port of the real one (which stays outside).
class FrmQueryScriptedTest : public FrmQueryTest {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root for a private network namespace";
    ASSERT_NO_FATAL_FAILURE(OpenTool());
    tool->SetTimeoutMs(300);
    network = std::make_unique<PrivateNetwork>(std::vector<std::string>{});
    ASSERT_TRUE(network->ok());
    server = std::make_unique<UdpClient>("127.0.0.1", app->DnsPort());
    ASSERT_NE(server->port(), 0);
  }
  void TearDown() override {
    server.reset();
    network.reset();
  }
  std::unique_ptr<PrivateNetwork> network;
  std::unique_ptr<UdpClient> server;
};

TEST_F(FrmQueryScriptedTest, ASilentServerTimesOut) {
  Start("A", "www.example.test");
  ASSERT_TRUE(server->Receive().has_value());
  RunEventsUntil([&] { return !tool->Waiting(); });
  EXPECT_EQ(Answer(), "No answer from 127.0.0.1 within 5 seconds.");
  ExpectIdle(true);
}

TEST_F(FrmQueryScriptedTest, StopEndsTheWaitAndALateReplyIsNotShown) {
  Start("MX", "example.test");
  const std::optional<Received> query = server->Receive();
  ASSERT_TRUE(query.has_value());
  tool->cmdStop()->click();
  ExpectIdle(true);
  EXPECT_EQ(Answer(), "");
  std::string reply = query->bytes;
  reply[2] = static_cast<char>(0x81);
  server->SendTo("127.0.0.1", query->port, reply);
  RunEvents();
  EXPECT_EQ(Answer(), "");
}

TEST_F(FrmQueryScriptedTest, RepliesWithAnotherIdAreIgnored) {
  Start("A", "www.example.test");
  const std::optional<Received> query = server->Receive();
  ASSERT_TRUE(query.has_value());
  const modDNS::DnsMessage asked = modDNS::DecodeMessage(query->bytes);
  EXPECT_EQ(asked.Header.Id, tool->LastQueryId());
  EXPECT_TRUE(asked.Header.RD);
  std::string reply = query->bytes;
  reply[2] = static_cast<char>(0x85);
  reply[1] = static_cast<char>(reply[1] ^ 1);  // another ID first
  server->SendTo("127.0.0.1", query->port, reply);
  RunEvents();
  EXPECT_TRUE(tool->Waiting());
  reply[1] = static_cast<char>(reply[1] ^ 1);
  server->SendTo("127.0.0.1", query->port, reply);
  RunEventsUntil([&] { return !tool->Waiting(); });
  const std::string answer = Answer();
  EXPECT_EQ(answer.substr(0, answer.find("\nAnswered")),
            "Authoritative Answer: Yes\nAnswer:\nThere are no A-Records for www.example.test.\n");
}

}  // namespace
