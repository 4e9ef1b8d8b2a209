#include "app/application.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "app/app_world.h"
#include "app/options_file.h"
#include "dhcp/dhcp_world.h"

using namespace korvane;

namespace {

using modMain::Application;
using Strings = std::vector<std::string>;

const std::string kRecords =
    "example.test. 3600 SOA ns.example.test. hostmaster.example.test. 1 3600 600 86400 60\n"
    "www.example.test. 3600 A 10.1.2.3\n";
constexpr std::size_t kNone = std::string::npos;

// A query whose name is a compression pointer to itself.
std::string HostileQuery(int id) {
  return Bytes({id >> 8, id & 255, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0xC0, 12, 0, 1, 0, 1});
}

// The reply to query `id` (other replies are passed over); "" when none came.
std::string ReplyTo(UdpClient& client, int id) {
  while (std::optional<Received> reply = client.Receive())
    if (reply->bytes.size() > 2 && reply->bytes[0] == static_cast<char>(id >> 8) &&
        reply->bytes[1] == static_cast<char>(id & 255))
      return reply->bytes;
  return "";
}

bool AnswersWww(const std::string& reply) {
  return reply.size() > 12 && (reply[2] & 0x80) && (reply[3] & 15) == 0 &&
         reply.find(Bytes({10, 1, 2, 3})) != kNone;
}

using ApplicationTest = AppWorld;

TEST_F(ApplicationTest, AnErrorInsideTheEngineShowsItsBoxOnlyAfterTheEngineReturned) {
  Start("HostsTTL: 3600\n", kRecords);
  RunEvents();
  ASSERT_TRUE(boxes.shown.empty());
  UdpClient client;
  boxes.answer = MessageAnswer::Yes;
  // A real box runs the event loop: datagrams and ticks reach the engine.
  boxes.whileOpen = [&] {
    app->dns().OnDnsDatagram("127.0.0.1", client.port(), DnsQuery(7, "www.example.test"), "127.0.0.1");
    app->dns().OnDnsDatagram("127.0.0.1", client.port(), HostileQuery(8), "127.0.0.1");
    app->dns().Timer();
  };
  app->dns().OnDnsDatagram("127.0.0.1", client.port(), HostileQuery(6), "127.0.0.1");
  EXPECT_TRUE(boxes.shown.empty());
  EXPECT_NE(dir.Read("support.txt").find("Module     : modDNS ExtractName\r\n"), kNone);

  RunEventsUntil([&] { return !boxes.shown.empty(); });
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_NE(boxes.shown[0].text.find("\nModule: modDNS ExtractName\n"), kNone);
  EXPECT_EQ(editor.opened, Strings{dir.File("support.txt")});
  EXPECT_TRUE(AnswersWww(ReplyTo(client, 7)));
  RunEvents();
  EXPECT_EQ(boxes.shown.size(), 1u);
  boxes.whileOpen = nullptr;  // the client goes before the application
}

TEST_F(ApplicationTest, NewOptionsAreWrittenAndTheServerStartsAgainOnTheNewAddress) {
  settings.dnsPort = FreeUdpPort();
  Create("DNSBind: 127.0.0.1\n", kRecords);
  Strings events;
  QObject::connect(app.get(), &Application::ServiceStateChanged, [&](bool running, const QString& caption) {
    events.push_back((running ? "running " : "paused ") + caption.toStdString());
  });
  QObject::connect(app.get(), &Application::OptionsChanged, [&] { events.push_back("options"); });
  QObject::connect(app.get(), &Application::RecordsReloaded, [&] { events.push_back("records"); });
  app->Start();
  EXPECT_EQ(events, Strings{"running &Pause Server"});

  Options next = app->options();
  next.DNSBIND = "127.0.0.2";
  next.NAME = "ns.example.test";
  events.clear();
  ASSERT_TRUE(app->ApplyOptions(next));
  EXPECT_EQ(dir.Read("korvane.ini"), modMain::OptionsFileText(next));
  EXPECT_EQ(events, (Strings{"options", "paused &Start Server", "records", "running &Pause Server"}));
  std::vector<Received> replies = AskAt({"127.0.0.1", "127.0.0.2"}, "www.example.test");
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0].from, "127.0.0.2");
  EXPECT_TRUE(AnswersWww(replies[0].bytes));

  // An address that is not ours: the bind fails and the server stays paused.
  next.DNSBIND = "192.0.2.1";
  events.clear();
  ASSERT_TRUE(app->ApplyOptions(next));
  EXPECT_EQ(events, (Strings{"options", "paused &Start Server", "records", "paused &Start Server"}));
  EXPECT_EQ(boxes.Texts(), Strings{"Could not start DNS service on 192.0.2.1\n\n"
                                   "Cannot assign requested address: 192.0.2.1 is not an address of this machine"});
  // A paused server stays paused.
  next.DNSBIND = "127.0.0.1";
  ASSERT_TRUE(app->ApplyOptions(next));
  EXPECT_FALSE(app->ServerStarted());
  EXPECT_EQ(app->DnsPort(), 0);
}

TEST_F(ApplicationTest, OptionsThatCannotBeWrittenChangeNothingAndAreReported) {
  settings.dnsPort = FreeUdpPort();
  Start("DNSBind: 127.0.0.1\n", kRecords);
  RunEvents();
  Options next = app->options();
  next.DNSBIND = "127.0.0.2";
  {
    FileSizeLimit limit(4);
    EXPECT_FALSE(app->ApplyOptions(next));
  }
  EXPECT_EQ(dir.Read("korvane.ini"), "DNSBind: 127.0.0.1\n");
  EXPECT_EQ(app->options().DNSBIND, "127.0.0.1");
  UdpClient client;
  client.SendTo("127.0.0.1", settings.dnsPort, DnsQuery(3, "www.example.test"));
  EXPECT_TRUE(AnswersWww(ReplyTo(client, 3)));
  RunEventsUntil([&] { return !boxes.shown.empty(); });
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_NE(boxes.shown[0].text.find("Error: 57 File too large\nModule: frmOptions cmdOK\n"), kNone);
}

TEST_F(ApplicationTest, StartUpShowsTheLoadingOfALongRecordFile) {
  std::string records = kRecords;
  for (int i = 0; i < 300; ++i)
    records += "h" + std::to_string(i) + ".example.test. 3600 A 10.0." + std::to_string(i / 250) + "." +
               std::to_string(i % 250 + 1) + "\n";
  Create("", records);
  RecordingProgress progress;
  app->SetProgressSink(&progress);
  app->Start();
  ASSERT_GE(progress.values.size(), 2u);
  EXPECT_TRUE(std::is_sorted(progress.values.begin(), progress.values.end()));
  EXPECT_LT(progress.values.front(), progress.values.back());
  EXPECT_GE(progress.closed, 1);
}

// --- DHCP ---------------------------------------------------------------------

const std::string kPoolA = "a.test. 600 DHCP 127.0.0.100 127.0.0.150 255.255.255.0 0.0.0.0\n";
const std::string kPoolB = "b.test. 600 DHCP 127.0.1.100 127.0.1.150 255.255.255.0 0.0.0.0\n";
const std::string kPoolA2 = "c.test. 600 DHCP 127.0.0.200 127.0.0.250 255.255.255.0 0.0.0.0\n";

class ApplicationDhcpTest : public AppWorld {
 protected:
  void StartDhcp(Strings localIPs, const std::string& pools) {
    settings.localIPs = std::move(localIPs);
    settings.dhcpPort = FreeUdpPort();
    Start("Name: ns.example.test\n", kRecords + pools);
  }
  // A DISCOVER from a new client; the log line of the offer it got.
  std::string OfferFor(const std::string& address, const std::string& client) {
    UdpClient sender;
    sender.SendTo(address, settings.dhcpPort, Message(modDHCP::kDiscover, Named(client)));
    std::string offer;
    RunEventsUntil([&] {
      for (const std::string& line : LogTexts())
        if (line.starts_with("Sending DHCP Offer to " + client)) offer = line;
      return !offer.empty();
    });
    return offer;
  }
  // A whole exchange for `address` from the pool of socket 1, as socket 1 reads it.
  void Lease(const std::string& name, const std::string& address) {
    Client client = Named(name);
    app->dhcp().DataArrival(1, Message(modDHCP::kDiscover, client), "0.0.0.0");
    client.requestedIP = address;
    client.serverID = "127.0.0.1";
    app->dhcp().DataArrival(1, Message(modDHCP::kRequest, client), "0.0.0.0");
  }
};

TEST_F(ApplicationDhcpTest, OneSocketPerAddressAndDatagramsCountForTheAddressTheyWereSentTo) {
  struct Case {
    const char* label;
    Strings localIPs;
    std::string pools;
    Strings lines;
    std::vector<std::pair<std::string, std::string>> offers;  // sent to, offered
  } cases[] = {
      {"two addresses on one device", {"127.0.0.1", "127.0.1.1"}, kPoolA + kPoolB,
       {"DHCP service started on 127.0.0.1", "DHCP service started on 127.0.1.1"},
       {{"127.0.1.1", "127.0.1.100"}, {"127.0.0.1", "127.0.0.100"}}},
      {"two pools on one address", {"127.0.0.1"}, kPoolA + kPoolA2,
       {"DHCP service started on 127.0.0.1", "Binding DHCP service to 127.0.0.1 failed!"},
       {{"127.0.0.1", "127.0.0.100"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    // Only 127.0.0.1 is an address of loopback out here.
    PrivateNetwork network({"127.0.1.1"});
    if (!network.ok()) GTEST_SKIP() << "needs root (a network namespace)";
    StartDhcp(c.localIPs, c.pools);
    Strings lines;
    for (const std::string& line : LogTexts())
      if (line.find("DHCP service") != kNone) lines.push_back(line);
    EXPECT_EQ(lines, c.lines);
    int n = 0;
    for (const auto& [to, offered] : c.offers) {
      std::string client = "pc" + std::to_string(++n);
      EXPECT_EQ(OfferFor(to, client), "Sending DHCP Offer to " + client + " for " + offered);
    }
    app.reset();
  }
}

TEST_F(ApplicationDhcpTest, LeasesThatCannotBeSavedAreRetriedAndReportedOnceAMinute) {
  std::filesystem::create_directories(dir.File("dhcp.dat/in-the-way"));
  StartDhcp({"127.0.0.1"}, kPoolA);
  Lease("pc1", "127.0.0.100");
  app->Housekeeping();
  EXPECT_NE(dir.Read("support.txt").find("Module     : modDHCP Save\r\n"), kNone);
  // Nothing is tried within the minute. At its end the save is tried again:
  // reported while the folder still fails, written once the way is clear.
  for (const auto& [file, holds] : {std::pair{"support.txt", "Module     : modDHCP Save\r\n"},
                                    std::pair{"dhcp.dat", " 127.0.0.100 "}}) {
    std::filesystem::remove_all(dir.File(file));
    clock.Advance(59);
    app->Housekeeping();
    EXPECT_FALSE(std::filesystem::exists(dir.File(file)));
    clock.Advance(1);
    app->Housekeeping();
    EXPECT_NE(dir.Read(file).find(holds), kNone) << file;
  }
}

// A kill soon after a grant must not lose the lease: it is written once the
// handler that granted it has returned, not at the next housekeeping.
TEST_F(ApplicationDhcpTest, AGrantedLeaseIsWrittenOnceTheExchangeIsHandled) {
  StartDhcp({"127.0.0.1"}, kPoolA);
  RunEvents();
  Lease("pc1", "127.0.0.100");
  EXPECT_FALSE(std::filesystem::exists(dir.File("dhcp.dat")));  // never from inside the server
  RunEvents();
  ASSERT_TRUE(std::filesystem::exists(dir.File("dhcp.dat")));
  EXPECT_NE(dir.Read("dhcp.dat").find("pc1.a.test. 127.0.0.100 "), kNone);
}

TEST_F(ApplicationDhcpTest, LeasesChangedComesAfterTheChangesAndWhenALeaseRunsOut) {
  StartDhcp({"127.0.0.1"}, kPoolA);
  RunEvents();
  int changes = 0;
  QObject::connect(app.get(), &Application::LeasesChanged, [&] { ++changes; });
  Lease("pc1", "127.0.0.100");
  EXPECT_EQ(changes, 0);  // never from inside the DHCP server
  RunEvents();
  EXPECT_EQ(changes, 1);  // once for the whole exchange
  clock.Advance(599);
  app->Housekeeping();
  EXPECT_EQ(changes, 1);
  clock.Advance(1);  // the lease of 600 seconds runs out
  app->Housekeeping();
  EXPECT_EQ(changes, 2);
  clock.Advance(600);
  app->Housekeeping();
  EXPECT_EQ(changes, 2);
}

}  // namespace
