// The one application object: owns the program-wide state (options, records,
// DHCP interfaces, local addresses, log, error reporter), the two engines,
// the sockets and the timers, and runs start-up, services, pause, reload,
// new options and close in their fixed order. The windows drive it through
// its commands and follow it through its signals.
#pragma once

#include <QObject>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/load_progress.h"
#include "app/log.h"
#include "app/prompts.h"
#include "app/query_sockets.h"
#include "app/support_report.h"
#include "app/udp_socket.h"
#include "dhcp/dhcp_server.h"
#include "dns/engine.h"
#include "store/store.h"

namespace korvane {

namespace modMain {

struct Settings {
  std::string folder;       // program folder, without a trailing "/"
  int dnsPort = 53;         // 0: a port the system chooses
  int dhcpPort = 67;
  std::FILE* echo = nullptr;  // every log line is also printed here (headless)
  // This machine's addresses; unset: read from the interfaces at start-up.
  std::optional<std::vector<std::string>> localIPs;
  // Their networks (recursion is offered to them); unset: read with them.
  std::optional<std::vector<modIP::Network>> localNetworks;
  const Clock* clock = nullptr;  // null: the system clock
  // No windows: a DNS service that cannot start shows no box (the program
  // ends on DnsServiceFailed instead).
  bool headless = false;
  // Logged before the files load: which folder is used and how it was made.
  std::vector<std::string> startLines;
};

// Why the program closes; decides the log line.
enum class CloseReason { kUser, kSessionEnded, kTerminationSignal, kFailedStart, kOther };

class Application : public QObject {
  Q_OBJECT

 public:
  Application(Settings settings, MessageBoxes& boxes, TextEditor& editor);
  ~Application() override;

  // The start sequence: identity, options, records, cache, leases, services.
  // A termination signal while the files load ends it early: Closed() then
  // holds, and what was not loaded yet is not saved either.
  void Start();
  // The start sequence up to the services: identity, options, records,
  // cache, leases (all a check of the folder needs; LoadWarnings then says
  // how many lines were skipped or cut). False when the program closed
  // meanwhile.
  bool LoadFiles();
  // Binds the DNS socket and one DHCP socket per DHCP interface.
  void StartServices();
  // The "&Pause Server" / "&Start Server" command.
  void StartStop();
  // Reads the records again (the sockets stay as they are). A record file
  // that cannot be read, or has a "(" it never closes, leaves the records in
  // force (LoadPerm says so); otherwise "Records reloaded: N records.".
  void Reload();
  // What SIGHUP does: reads korvane.ini again and takes its options (a
  // changed DNSBind binds the DNS socket anew, as the options dialog's OK
  // does), then the records as Reload does. A korvane.ini that cannot be read
  // leaves the options in force. Asked for during a load, it runs after it.
  void ReloadConfiguration();
  // What the options dialog's OK does once its checks have passed: writes
  // korvane.ini, pauses the server if it runs, reads the records again and
  // starts the server again (on the new DNSBIND) if it ran. False when the
  // file could not be written: that is reported ("frmOptions cmdOK"), the
  // file stays as it was, and nothing else changes.
  bool ApplyOptions(const Options& options);
  // What the record editor's save does: writes named.perm from `entries`
  // (atomically), pauses the server if it runs, reads the records again and
  // starts the server again if it ran. False when the file could not be
  // written: that is reported ("modDNS WritePerm"), the old file stays, and
  // nothing else changes.
  bool SaveRecords(const std::vector<clPermRec>& entries);
  // Logs the reason and tears down: cache file, lease file, sockets, log file.
  // False when the cache or the lease file could not be saved (also on a
  // second call).
  bool Close(CloseReason reason);

  bool ServerStarted() const { return serverStarted_; }
  // The program closed (also during the start's loading).
  bool Closed() const { return closed_; }
  // Lines the loaders skipped or cut (each one logged), and root hints that
  // are needed and could not be read, in the start sequence or in the latest
  // ReloadConfiguration: korvane.ini, the record files, the hosts file,
  // perm.dat, the cache file and the lease file.
  int LoadWarnings() const { return loadWarnings_; }
  // Why the last DNS bind failed, in the operator's words ("" after one that
  // worked); the windowed bind-failure box carries it.
  const std::string& DnsBindFailure() const { return dnsBindFailure_; }
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
  // The loading-progress display for long record files (null: none). Set
  // it before Start to see the start-up's loading.
  void SetProgressSink(ProgressSink* progress) { progress_.SetDisplay(progress); }
  // Boxes that must wait until the running handler has returned.
  PromptQueue& prompts() { return prompts_; }
  // The operator's message boxes and text editor, for the windows' own prompts.
  MessageBoxes& boxes() { return boxes_; }
  TextEditor& editor() { return editor_; }

  // The once-a-second duty: a lease file save still due (a failing one is
  // retried, and reported, once a minute), the lease that runs out, and the
  // log flush. Its own timer runs it from Start on.
  void Housekeeping();

 signals:
  // After every start, failed start and pause; `caption` is the menu
  // command's ("&Pause Server" while running, "&Start Server" while paused).
  void ServiceStateChanged(bool running, const QString& caption);
  // The lease table changed, or an active lease ran out; posted, so it comes
  // after the handler that changed it, once for a burst of changes.
  void LeasesChanged();
  // ApplyOptions took new options.
  void OptionsChanged();
  // The records were read again (Reload, ApplyOptions, SaveRecords).
  void RecordsReloaded();
  // The DNS socket could not be bound (after its log lines and box);
  // `reason` is DnsBindFailure().
  void DnsServiceFailed(const QString& reason);

 private:
  // The log lines, box and signal of a DNS bind that failed with `error`.
  void DnsBindFailed(const SendError& error);
  void BindDhcpSockets();
  // The socket index whose address a DHCP datagram read on socket k was sent to.
  int DhcpIndexFor(int k, const Datagram& datagram) const;
  void CloseServiceSockets();
  void Pause();
  // Pauses a running server, reads the records again and starts it again.
  void RestartWithRecords();
  void AnnounceServiceState();
  void NoteLeaseChange();
  // A changed lease table is written on the next pass of the event loop,
  // or kLeaseSaveGap after the last save when that was more recent: a lease
  // survives a crash soon after it was granted, and a flood of exchanges
  // does not write the file for each.
  void ScheduleLeaseSave();
  void SaveLeases();
  // Announces the active lease that has run out; finds the next one.
  void WatchLeaseExpiry();
  void ReportFault(const char* tag, const std::exception& error);
  // LoadPerm with its progress shown; when it took effect, the "Records
  // reloaded" line. A reload asked for meanwhile runs after it.
  modDNS::LoadResult ReloadRecords();
  // Returns the free heap pages a load leaves to the system.
  void GiveBackLoadMemory();
  // Queues the reload asked for while the files loaded.
  void RunPendingReload();

  Settings settings_;
  MessageBoxes& boxes_;
  TextEditor& editor_;
  SystemClock systemClock_;
  const Clock& clock_;
  EventLoopPrompts prompts_;
  Options options_;
  RecordList records_;
  DHCPifList DHCPifs_;
  std::vector<std::string> localIPs_;
  Log log_;
  SupportReporter reporter_;
  LoadProgress progress_;
  StoreContext store_;

  UdpSocket WSDNS_;
  // Before the engine: the engine's requests hold channels of it.
  QuerySockets WSDNS2_;
  // WSDHCP(1..n); element 0 is never bound.
  std::vector<std::unique_ptr<UdpSocket>> WSDHCP_;

  DnsEngine dns_;
  DhcpServer dhcp_;

  QTimer timer_;         // the main timer: the DNS engine's duty
  QTimer housekeeping_;  // runs Housekeeping
  QTimer leaseSave_;     // single shot: runs SaveLeases
  static constexpr double kLeaseSaveGap = 0.25;
  bool leasesDirty_ = false;
  DateTime nextLeaseSave_ = 0;  // no save before this (after a failed one)
  DateTime lastLeaseSave_ = 0;
  bool leasesAnnouncePosted_ = false;
  // When the next active lease runs out (0: none is active); stale after a
  // change of the table.
  DateTime nextLeaseExpiry_ = 0;
  bool leaseExpiryStale_ = false;
  bool serverStarted_ = false;
  bool closed_ = false;
  bool loading_ = false;
  bool reloadPending_ = false;
  // Only what was loaded is saved at close: a close during start-up must
  // not write an empty cache or lease file over the one not read yet.
  bool cacheLoaded_ = false;
  bool leasesLoaded_ = false;
  int loadWarnings_ = 0;
  bool saveFailed_ = false;
  std::string dnsBindFailure_;
  std::string startStopCaption_ = "&Start Server";
};

}  // namespace modMain

}  // namespace korvane
