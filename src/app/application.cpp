#include "app/application.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <random>

#include "app/bind_failure.h"
#include "app/identify.h"
#include "app/options_file.h"
#include "app/program_folder.h"
#include "app/secure_random.h"
#include "store/cache_bound.h"
#include "store/files.h"
#include "store/load_report.h"
#include "wire/dns_codec.h"

namespace korvane {

namespace modMain {

namespace {

// The name of the interface that holds `address`, or "" when none does.
std::string InterfaceHolding(const std::string& address) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return "";
  std::string name;
  for (ifaddrs* i = list; i; i = i->ifa_next) {
    if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET) continue;
    char text[INET_ADDRSTRLEN] = {0};
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, text, sizeof text);
    if (address == text) {
      name = i->ifa_name;
      break;
    }
  }
  freeifaddrs(list);
  return name;
}

}  // namespace

Application::Application(Settings settings, MessageBoxes& boxes, TextEditor& editor)
    : settings_(std::move(settings)),
      boxes_(boxes),
      editor_(editor),
      clock_(settings_.clock ? *settings_.clock : systemClock_),
      log_(clock_, options_, settings_.folder),
      reporter_(settings_.folder, "korvane", options_, clock_, log_, boxes, editor, prompts_),
      progress_(log_, [this] { return closed_; }),
      store_{records_, options_, clock_, log_, reporter_, settings_.folder, localIPs_, DHCPifs_, &progress_},
      dns_(store_, WSDNS_, WSDNS2_),
      dhcp_(DHCPifs_, options_, records_, clock_, log_, reporter_, settings_.folder) {
  log_.SetErrorReporter(&reporter_);
  log_.SetEcho(settings_.echo);
  dns_.SetLeaseSource(&dhcp_);

  std::mt19937 generator(static_cast<std::mt19937::result_type>(
      std::chrono::system_clock::now().time_since_epoch().count()));
  dns_.SetRandom([generator]() mutable {
    return std::uniform_real_distribution<double>(0.0, 1.0)(generator);
  });
  dns_.SetQueryIdSource(SecureRandom32);

  timer_.setInterval(DnsEngine::kTimerIntervalMs);
  connect(&timer_, &QTimer::timeout, this, [this] {
    dns_.Timer();
    log_.Flush();
  });
  dns_.SetTimerSwitch([this](bool on) {
    if (on && !timer_.isActive()) timer_.start();
    if (!on) timer_.stop();
  });

  housekeeping_.setInterval(1000);
  connect(&housekeeping_, &QTimer::timeout, this, [this] { Housekeeping(); });
  leaseSave_.setSingleShot(true);
  leaseSave_.setTimerType(Qt::PreciseTimer);
  connect(&leaseSave_, &QTimer::timeout, this, [this] { SaveLeases(); });
  dhcp_.LeasesChanged = [this] {
    leasesDirty_ = true;
    ScheduleLeaseSave();
    NoteLeaseChange();
  };
  dhcp_.DHCPRefresh = [this] { NoteLeaseChange(); };

  WSDNS_.SetHandler([this](const Datagram& d) {
    dns_.OnDnsDatagram(d.host, d.port, d.data, d.localAddress);
  });
  WSDNS_.SetBatchDone([this] { log_.Flush(); });
  // An answer held for the batch and then refused is logged as a failed answer.
  WSDNS_.SetSendErrorHandler([this](int number, const std::string& text) {
    log_.AddLine("SA-WS Error " + std::to_string(number) + " " + text);
  });
  WSDNS_.SetErrorHandler(
      [this](int number, const std::string& text) { dns_.SocketError(1, number, text); });
  WSDNS2_.SetHandler([this](uint64_t channel, const Datagram& d) {
    dns_.OnDns2Datagram(channel, d.host, d.port, d.data);
  });
  WSDNS2_.SetBatchDone([this] { log_.Flush(); });
  WSDNS2_.SetErrorHandler([this](uint64_t channel, int number, const std::string& text) {
    dns_.ChannelError(channel, number, text);
  });
}

Application::~Application() {
  if (!closed_) Close(CloseReason::kOther);
}

void Application::ReportFault(const char* tag, const std::exception& error) {
  ReportException(reporter_, tag, error);
}

void Application::Start() {
  localIPs_ = settings_.localIPs ? *settings_.localIPs : modIdentify::ReadLocalIPs(boxes_);
  dns_.SetLocalNetworks(settings_.localNetworks ? *settings_.localNetworks
                                                : modIdentify::ReadLocalNetworks());
  for (const std::string& line : settings_.startLines) log_.AddLine(line);
  loading_ = true;
  const FolderLoad load = LoadProgramFolder(store_, options_, dhcp_);
  loading_ = false;
  cacheLoaded_ = load.cacheLoaded;
  leasesLoaded_ = load.leasesLoaded;
  loadWarnings_ = load.warnings + (load.rootHintsUnread && RootHintsNeeded(options_) ? 1 : 0);
  if (closed_) return;
  GiveBackLoadMemory();
  RunPendingReload();
  modDNS::TrimCache(store_);
  // Said now, not only when the saves at the close fail.
  if (std::optional<std::string> problem = FolderWriteProblem(settings_.folder)) log_.AddLine(*problem);
  StartServices();
  housekeeping_.start();
  log_.Flush();
}

modDNS::LoadResult Application::ReloadRecords() {
  loading_ = true;
  modDNS::LoadResult result = modDNS::LoadPerm(store_);
  loading_ = false;
  GiveBackLoadMemory();
  if (!result.kept && !result.stopped)
    log_.AddLine("Records reloaded: " + CountOf(result.permanentRecords, "record") + ".");
  RunPendingReload();
  return result;
}

void Application::GiveBackLoadMemory() {
  // What the load staged, and the indexes it built, went back to the heap;
  // the heap keeps it unless asked.
  malloc_trim(0);
}

void Application::RunPendingReload() {
  if (!reloadPending_ || closed_) return;
  reloadPending_ = false;
  QMetaObject::invokeMethod(this, [this] { ReloadConfiguration(); }, Qt::QueuedConnection);
}

void Application::StartServices() {
  try {
    SendError error;
    BindOptions options;
    options.batch = 32;
    options.batchSends = true;
    const std::string& bind = options_.DNSBIND;
    if (!WSDNS_.Bind(bind, settings_.dnsPort, options, error)) {
      DnsBindFailed(error);
      return;
    }
    dnsBindFailure_.clear();
    log_.AddLine(bind.empty() ? "DNS service started." : "DNS service started on " + bind);
    startStopCaption_ = "&Pause Server";
    dns_.SetServicePort(WSDNS_.LocalPort());
    dns_.SetRunning(true);
    BindDhcpSockets();
    serverStarted_ = true;
  } catch (const std::exception& e) {
    ReportFault("modMain StartServices", e);
  }
  log_.Flush();
  AnnounceServiceState();
}

void Application::DnsBindFailed(const SendError& error) {
  serverStarted_ = false;
  const std::string& bind = options_.DNSBIND;
  dnsBindFailure_ = BindFailureReason(error.number, bind, settings_.dnsPort);
  std::string box;
  if (!bind.empty()) {
    log_.AddLine("Binding DNS service to " + bind + " failed - DNS service not started!");
    box = "Could not start DNS service on " + bind;
  } else {
    log_.AddLine("Binding DNS service failed - DNS service not started!");
    box = "Could not start DNS service!\n\nPort used by other DNS server.";
  }
  log_.AddLine(dnsBindFailure_);
  log_.Flush();
  if (!settings_.headless)
    boxes_.Show(box + "\n\n" + dnsBindFailure_, MessageButtons::OK, MessageIcon::Exclamation);
  AnnounceServiceState();
  emit DnsServiceFailed(QString::fromStdString(dnsBindFailure_));
}

void Application::BindDhcpSockets() {
  WSDHCP_.clear();
  WSDHCP_.push_back(nullptr);  // element 0, the template, is never bound
  for (const clDHCPif& interface : DHCPifs_) {
    const int k = static_cast<int>(WSDHCP_.size());
    BindOptions options;
    options.device = InterfaceHolding(interface.IPaddr);
    options.broadcast = true;
    options.reuseAddress = true;
    options.batch = 4;
    // Two pools on one address would both answer every broadcast: the second
    // is refused as a bind on an address in use would be.
    bool taken = false;
    for (std::size_t other = 1; other < WSDHCP_.size(); ++other)
      taken = taken || (WSDHCP_[other] && WSDHCP_[other]->LocalAddress() == interface.IPaddr);
    auto socket = std::make_unique<UdpSocket>();
    SendError error;
    // Broadcast DISCOVER and REQUEST reach only a socket on 0.0.0.0 that is
    // tied to the interface; replies then leave through that interface.
    if (k >= modDHCP::kSocketCount || taken || options.device.empty() ||
        !socket->Bind("", settings_.dhcpPort, options, error)) {
      log_.AddLine("Binding DHCP service to " + interface.IPaddr + " failed!");
      WSDHCP_.push_back(nullptr);
      continue;
    }
    socket->SetLocalAddress(interface.IPaddr);
    socket->SetHandler([this, k](const Datagram& d) { dhcp_.DataArrival(DhcpIndexFor(k, d), d.data, d.host); });
    socket->SetBatchDone([this] { log_.Flush(); });
    dhcp_.SetSocket(k, socket.get(), interface.IPaddr);
    WSDHCP_.push_back(std::move(socket));
    log_.AddLine("DHCP service started on " + interface.IPaddr);
  }
}

int Application::DhcpIndexFor(int k, const Datagram& datagram) const {
  // Sockets of several addresses on one device share what arrives there: a
  // datagram sent to one of our addresses belongs to that address's socket.
  for (std::size_t other = 1; other < WSDHCP_.size(); ++other)
    if (WSDHCP_[other] && WSDHCP_[other]->LocalAddress() == datagram.localAddress)
      return static_cast<int>(other);
  return k;
}

void Application::CloseServiceSockets() {
  WSDNS_.Close();
  for (std::size_t k = 1; k < WSDHCP_.size(); ++k) {
    dhcp_.CloseSocket(static_cast<int>(k));
    if (WSDHCP_[k]) WSDHCP_[k]->Close();
  }
  WSDHCP_.clear();
}

void Application::Pause() {
  timer_.stop();
  dns_.Pause();
  CloseServiceSockets();
  log_.AddLine("Server paused.");
  startStopCaption_ = "&Start Server";
  serverStarted_ = false;
  log_.Flush();
  AnnounceServiceState();
}

void Application::StartStop() {
  try {
    if (serverStarted_) {
      Pause();
    } else {
      StartServices();
    }
  } catch (const std::exception& e) {
    ReportFault("frmMain mnuStartStop", e);
  }
}

void Application::AnnounceServiceState() {
  emit ServiceStateChanged(serverStarted_, QString::fromStdString(startStopCaption_));
}

void Application::Reload() {
  if (loading_) {
    reloadPending_ = true;
    return;
  }
  try {
    ReloadRecords();
  } catch (const std::exception& e) {
    ReportFault("frmMain mnuReload", e);
  }
  log_.Flush();
  emit RecordsReloaded();
}

void Application::ReloadConfiguration() {
  if (loading_) {
    reloadPending_ = true;
    return;
  }
  try {
    const std::string path = store_.PathOf("korvane.ini");
    Options next;
    int optionWarnings = 0;
    if (ReadWholeFile(path)) {
      optionWarnings = LoadOptions(path, next, reporter_, &log_);
    } else {
      log_.AddLine("korvane.ini could not be read (" + ErrorOfErrno(errno).description +
                   "): the options in force stay.");
      next = options_;
    }
    const bool rebind = serverStarted_ && next.DNSBIND != options_.DNSBIND;
    options_ = next;
    emit OptionsChanged();
    if (rebind) Pause();
    const modDNS::LoadResult records = ReloadRecords();
    emit RecordsReloaded();
    if (rebind && !closed_) StartServices();
    loadWarnings_ = optionWarnings + records.warnings +
                    (records.rootHintsUnread && RootHintsNeeded(options_) ? 1 : 0);
  } catch (const std::exception& e) {
    ReportFault("modMain ReloadConfiguration", e);
  }
  log_.Flush();
}

bool Application::ApplyOptions(const Options& options) {
  bool applied = false;
  try {
    const std::string path = store_.PathOf("korvane.ini");
    if (!SaveOptions(path, options)) {
      ErrorInfo why = ErrorOfErrno(errno);
      reporter_.Report("frmOptions cmdOK", path, why.number, why.description);
      return false;
    }
    options_ = options;
    emit OptionsChanged();
    RestartWithRecords();
    applied = true;
  } catch (const std::exception& e) {
    ReportFault("frmOptions cmdOK", e);
  }
  log_.Flush();
  return applied;
}

void Application::RestartWithRecords() {
  const bool wasRunning = serverStarted_;
  if (wasRunning) Pause();
  ReloadRecords();
  emit RecordsReloaded();
  if (wasRunning && !closed_) StartServices();
}

bool Application::SaveRecords(const std::vector<clPermRec>& entries) {
  bool saved = false;
  try {
    // The writer reports its own failure; the old file stays as it was.
    if (!modDNS::WritePerm(store_, entries)) return false;
    log_.AddLine("DNS records saved.");
    RestartWithRecords();
    saved = true;
  } catch (const std::exception& e) {
    ReportFault("frmPerm mnuSave", e);
  }
  log_.Flush();
  return saved;
}

void Application::Housekeeping() {
  SaveLeases();
  WatchLeaseExpiry();
  log_.Flush();
}

void Application::ScheduleLeaseSave() {
  if (leaseSave_.isActive()) return;
  const double wait = std::max(0.0, lastLeaseSave_ + kLeaseSaveGap - clock_.Now());
  leaseSave_.start(static_cast<int>(std::ceil(std::min(wait, kLeaseSaveGap) * 1000)));
}

void Application::SaveLeases() {
  const DateTime now = clock_.Now();
  if (!leasesDirty_ || now < nextLeaseSave_) return;
  leasesDirty_ = false;
  lastLeaseSave_ = now;
  // A folder that cannot be written is reported once a minute, not every second.
  if (!dhcp_.Save()) {
    leasesDirty_ = true;
    nextLeaseSave_ = now + 60;
  }
}

void Application::NoteLeaseChange() {
  // Posted: the lease list is redrawn once after a burst of changes, and
  // never from inside the DHCP server.
  if (leasesAnnouncePosted_) return;
  leasesAnnouncePosted_ = true;
  QMetaObject::invokeMethod(
      this,
      [this] {
        leasesAnnouncePosted_ = false;
        leaseExpiryStale_ = true;
        emit LeasesChanged();
      },
      Qt::QueuedConnection);
}

void Application::WatchLeaseExpiry() {
  const DateTime now = clock_.Now();
  const bool ranOut = nextLeaseExpiry_ > 0 && now >= nextLeaseExpiry_;
  if (!ranOut && !leaseExpiryStale_) return;
  leaseExpiryStale_ = false;
  nextLeaseExpiry_ = dhcp_.NextExpiry().value_or(0);
  if (ranOut) emit LeasesChanged();
}

bool Application::Close(CloseReason reason) {
  if (closed_) return !saveFailed_;
  closed_ = true;
  switch (reason) {
    case CloseReason::kUser: log_.AddLine("Program was closed by user."); break;
    case CloseReason::kSessionEnded:
      log_.AddLine("Program was closed because session ended.");
      break;
    case CloseReason::kTerminationSignal:
      log_.AddLine("Program was closed through a termination signal.");
      break;
    case CloseReason::kFailedStart:
      log_.AddLine("Program was closed because the DNS service could not be started.");
      break;
    case CloseReason::kOther: break;
  }
  try {
    timer_.stop();
    housekeeping_.stop();
    leaseSave_.stop();
    saveFailed_ = cacheLoaded_ && !modDNS::saveCache(store_);
    saveFailed_ = (leasesLoaded_ && !dhcp_.Save()) || saveFailed_;
    leasesDirty_ = false;
    dns_.Pause();
    CloseServiceSockets();
  } catch (const std::exception& e) {
    saveFailed_ = true;
    ReportFault("frmMain Unload", e);
  }
  log_.CloseFile();
  // The event loop may not run again: what went wrong is told now.
  prompts_.RunPending();
  return !saveFailed_;
}

}  // namespace modMain

}  // namespace korvane
