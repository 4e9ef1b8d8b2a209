// The one application object: owns the program-wide state (options, records,
// DHCP interfaces, local addresses, log, error reporter), the two engines,
// the sockets and the timers, and runs start-up, services, pause, reload and
// close in their fixed order.
#pragma once

#include <QObject>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "app/log.h"
#include "app/support_report.h"
#include "app/udp_socket.h"
#include "app/ui.h"
#include "dhcp/dhcp_server.h"
#include "dns/engine.h"
#include "store/store.h"

namespace korvane {

namespace modMain {

struct Settings {
  std::string folder;       // program folder, without a trailing "/"
  int dnsPort = 53;
  int dhcpPort = 67;
  std::FILE* echo = nullptr;  // every log line is also printed here (headless)
};

// Why the program closes; decides the log line.
enum class CloseReason { kUser, kSessionEnded, kTerminationSignal, kOther };

class Application : public QObject {
  Q_OBJECT

 public:
  Application(Settings settings, MessageBoxes& boxes, TextEditor& editor);
  ~Application() override;

  // The start sequence: identity, options, records, cache, leases, services.
  void Start();
  // Binds the DNS socket and one DHCP socket per DHCP interface.
  void StartServices();
  // The "&Pause Server" / "&Start Server" command.
  void StartStop();
  // Reads the records again (the sockets stay as they are).
  void Reload();
  // Logs the reason and tears down: cache file, lease file, sockets, log file.
  void Close(CloseReason reason);

  bool ServerStarted() const { return serverStarted_; }
  // "&Pause Server" while running, "&Start Server" while paused.
  const std::string& StartStopCaption() const { return startStopCaption_; }

  Options& options() { return options_; }
  RecordList& records() { return records_; }
  Log& log() { return log_; }
  SupportReporter& reporter() { return reporter_; }
  DnsEngine& dns() { return dns_; }
  DhcpServer& dhcp() { return dhcp_; }
  StoreContext& store() { return store_; }
  const std::vector<std::string>& LocalIPs() const { return localIPs_; }
  const Settings& settings() const { return settings_; }
  // The port the DNS socket is bound to (0 while paused).
  int DnsPort() const { return WSDNS_.LocalPort(); }

 private:
  void BindDhcpSockets();
  // The socket index whose address a DHCP datagram read on socket k was sent to.
  int DhcpIndexFor(int k, const Datagram& datagram) const;
  void CloseServiceSockets();
  void Housekeeping();
  void ReportFault(const char* tag, const std::exception& error);

  Settings settings_;
  MessageBoxes& boxes_;
  SystemClock clock_;
  Options options_;
  RecordList records_;
  DHCPifList DHCPifs_;
  std::vector<std::string> localIPs_;
  Log log_;
  SupportReporter reporter_;
  StoreContext store_;

  UdpSocket WSDNS_;
  UdpSocket WSDNS2_;
  // WSDHCP(1..n); element 0 is never bound.
  std::vector<std::unique_ptr<UdpSocket>> WSDHCP_;

  DnsEngine dns_;
  DhcpServer dhcp_;

  QTimer timer_;         // the main timer: the DNS engine's duty
  QTimer housekeeping_;  // log flush and the coalesced lease-file save
  bool leasesDirty_ = false;
  DateTime nextLeaseSave_ = 0;
  bool serverStarted_ = false;
  bool closed_ = false;
  std::string startStopCaption_ = "&Start Server";
};

}  // namespace modMain

}  // namespace korvane
