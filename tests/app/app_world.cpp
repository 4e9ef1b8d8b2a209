#include "app/app_world.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include <QApplication>
#include <QElapsedTimer>

namespace {

constexpr int kWaitMs = 5000;

sockaddr_in Address(const std::string& address, int port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &to.sin_addr);
  return to;
}

int BoundPort(int fd) {
  sockaddr_in self{};
  socklen_t length = sizeof self;
  getsockname(fd, reinterpret_cast<sockaddr*>(&self), &length);
  return ntohs(self.sin_port);
}

}  // namespace

void EnsureEventLoop() {
  static int argc = 1;
  static char name[] = "test_app";
  static char* argv[] = {name, nullptr};
  // Windows need a QApplication; without a display they draw offscreen.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  if (!QCoreApplication::instance()) new QApplication(argc, argv);
}

void RunEvents() { QCoreApplication::processEvents(QEventLoop::AllEvents); }

void RunEventsUntil(const std::function<bool()>& done) {
  QElapsedTimer waited;
  waited.start();
  while (!done() && waited.elapsed() < kWaitMs)
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
}

int FreeUdpPort() {
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in any = Address("0.0.0.0", 0);
  bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any);
  int port = BoundPort(fd);
  close(fd);
  return port;
}

std::string DnsQuery(int id, const std::string& name) {
  std::string query = Bytes({id >> 8, id & 255, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0});
  std::size_t at = 0;
  while (at < name.size()) {
    std::size_t dot = name.find('.', at);
    if (dot == std::string::npos) dot = name.size();
    query += static_cast<char>(dot - at) + name.substr(at, dot - at);
    at = dot + 1;
  }
  return query + Bytes({0, 0, 1, 0, 1});
}

PrivateNetwork::PrivateNetwork(const std::vector<std::string>& addresses) {
  original_ = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (original_ < 0 || unshare(CLONE_NEWNET) != 0) return;
  // The shell inherits this thread's namespace.
  std::string command = "ip link set lo up";
  for (const std::string& address : addresses) command += " && ip addr add " + address + "/8 dev lo";
  ok_ = std::system(command.c_str()) == 0;
}

PrivateNetwork::~PrivateNetwork() {
  if (original_ < 0) return;
  setns(original_, CLONE_NEWNET);
  close(original_);
}

UdpClient::UdpClient() : UdpClient("127.0.0.1", 0) {}

UdpClient::UdpClient(const std::string& address, int port) {
  fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
  sockaddr_in self = Address(address, port);
  if (bind(fd_, reinterpret_cast<sockaddr*>(&self), sizeof self) == 0) port_ = BoundPort(fd_);
}

UdpClient::~UdpClient() { close(fd_); }

void UdpClient::SendTo(const std::string& address, int port, const std::string& bytes) {
  sockaddr_in to = Address(address, port);
  sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
}

std::optional<Received> UdpClient::ReadOne() {
  char buffer[65536];
  sockaddr_in from{};
  socklen_t length = sizeof from;
  ssize_t got = recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
  if (got < 0) return std::nullopt;
  char text[INET_ADDRSTRLEN] = {0};
  inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
  return Received{text, std::string(buffer, static_cast<std::size_t>(got)), ntohs(from.sin_port)};
}

std::optional<Received> UdpClient::Receive() {
  std::optional<Received> got;
  RunEventsUntil([&] { return (got = ReadOne()).has_value(); });
  return got;
}

std::vector<Received> UdpClient::Waiting() {
  std::vector<Received> all;
  while (std::optional<Received> one = ReadOne()) all.push_back(*one);
  return all;
}

AppWorld::AppWorld() {
  EnsureEventLoop();
  settings.folder = dir.path();
  settings.dnsPort = 0;
  settings.dhcpPort = 0;
  settings.localIPs = std::vector<std::string>{};
  settings.clock = &clock;
}

AppWorld::~AppWorld() {
  app.reset();
  RunEvents();  // what the application posted goes with it
}

void AppWorld::Create(const std::string& options, const std::string& records) {
  dir.Write("korvane.ini", options);
  dir.Write("named.perm", records);
  app = std::make_unique<modMain::Application>(settings, boxes, editor);
}

void AppWorld::Start(const std::string& options, const std::string& records) {
  Create(options, records);
  app->Start();
}

std::vector<std::string> AppWorld::LogTexts() const {
  std::vector<std::string> texts;
  // "yyyy-mm-dd hh:mm:ss  " comes first.
  for (const std::string& line : app->log().ListDNS()) texts.push_back(line.substr(21));
  return texts;
}

bool AppWorld::Logged(const std::string& text) const {
  for (const std::string& line : LogTexts())
    if (line == text) return true;
  return false;
}

std::vector<Received> AppWorld::AskAt(const std::vector<std::string>& addresses, const std::string& name) {
  UdpClient client;
  int id = 0;
  for (const std::string& address : addresses) client.SendTo(address, settings.dnsPort, DnsQuery(++id, name));
  std::vector<Received> replies;
  if (std::optional<Received> first = client.Receive()) replies.push_back(*first);
  for (const Received& more : client.Waiting()) replies.push_back(more);
  return replies;
}
