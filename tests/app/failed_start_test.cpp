// What the start says and does when something is wrong: a DNS bind that
// fails, a DHCP pool on no interface, saves that fail at the close.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "app/app_world.h"
#include "app/application.h"

using namespace korvane;

namespace {

using modMain::Application;
using Strings = std::vector<std::string>;

const std::string kRecords = "www.example.test. 3600 A 10.1.2.3\n";

class FailedStartTest : public AppWorld {
 protected:
  // Starts with the DNS port held by another socket of this process.
  void StartOnATakenPort(const std::string& options) {
    settings.dnsPort = holder.port();
    Create(options, kRecords);
    QObject::connect(app.get(), &Application::DnsServiceFailed,
                     [this](const QString& reason) { failures.push_back(reason.toStdString()); });
    app->Start();
  }
  // The log lines from `first` on.
  Strings LinesFrom(const std::string& first) const {
    Strings texts = LogTexts();
    auto at = std::find(texts.begin(), texts.end(), first);
    return Strings(at, texts.end());
  }

  UdpClient holder;  // bound to 127.0.0.1
  Strings failures;
};

TEST_F(FailedStartTest, ABindThatFailsSaysWhyInTheLogTheBoxAndTheSignal) {
  struct Case {
    bool headless;
    std::string options;
    std::string logLine;
    std::string box;
  } cases[] = {
      {false, "", "Binding DNS service failed - DNS service not started!",
       "Could not start DNS service!\n\nPort used by other DNS server."},
      {false, "DNSBind: 127.0.0.1\n", "Binding DNS service to 127.0.0.1 failed - DNS service not started!",
       "Could not start DNS service on 127.0.0.1"},
      {true, "", "Binding DNS service failed - DNS service not started!", ""},
  };
  for (const Case& c : cases) {
    settings.headless = c.headless;
    boxes.shown.clear();
    failures.clear();
    StartOnATakenPort(c.options);
    const std::string reason = "Address already in use: port " + std::to_string(holder.port()) +
                               " is used by test_app (pid " + std::to_string(getpid()) + ")";
    EXPECT_FALSE(app->ServerStarted());
    EXPECT_EQ(app->StartStopCaption(), "&Start Server");
    EXPECT_EQ(app->DnsBindFailure(), reason);
    EXPECT_EQ(LinesFrom(c.logLine), (Strings{c.logLine, reason}));
    EXPECT_EQ(boxes.Texts(), c.headless ? Strings{} : Strings{c.box + "\n\n" + reason});
    EXPECT_EQ(failures, Strings{reason});
    app.reset();
  }
}

TEST_F(FailedStartTest, AStartThatWorksAfterOneThatFailedForgetsTheReason) {
  StartOnATakenPort("");
  ASSERT_FALSE(app->DnsBindFailure().empty());
  settings.dnsPort = 0;
  app = std::make_unique<Application>(settings, boxes, editor);
  app->Start();
  EXPECT_TRUE(app->ServerStarted());
  EXPECT_EQ(app->DnsBindFailure(), "");
}

TEST_F(FailedStartTest, ADhcpPoolOnNoLocalInterfaceIsLogged) {
  settings.localIPs = Strings{"127.0.0.1"};
  Start("", kRecords + "far.test. 600 DHCP 10.20.0.100 10.20.0.150 255.255.255.0 0.0.0.0\n");
  EXPECT_TRUE(Logged("named.perm:2: DHCP pool 10.20.0.100 - 10.20.0.150 is on no local interface, pool skipped"));
}

TEST_F(FailedStartTest, TheCloseSaysWhetherTheCacheAndTheLeasesWereSaved) {
  Start("", kRecords);
  EXPECT_TRUE(app->Close(modMain::CloseReason::kTerminationSignal));
  EXPECT_TRUE(std::filesystem::exists(dir.File("named.cache")));

  for (const char* file : {"named.cache", "dhcp.dat"}) {
    TempDir other;
    settings.folder = other.path();
    other.Write("named.perm", kRecords);
    std::filesystem::create_directories(other.File(file) + "/in-the-way");
    app = std::make_unique<Application>(settings, boxes, editor);
    app->Start();
    EXPECT_FALSE(app->Close(modMain::CloseReason::kFailedStart)) << file;
    EXPECT_FALSE(app->Close(modMain::CloseReason::kUser)) << file;
    EXPECT_TRUE(Logged("Program was closed because the DNS service could not be started.")) << file;
    app.reset();
  }
}

}  // namespace
