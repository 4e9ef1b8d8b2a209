// The DNS look-up tool: sends one question to a DNS server from a socket of
// its own and shows the decoded reply. When the server asked is this
// program, each answer record also says where it came from.
#pragma once

#include <QComboBox>
#include <QElapsedTimer>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>
#include <QWidget>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

class UdpSocket;
struct Datagram;

namespace modMain {
class Application;
}

namespace modQuery {

class frmQuery : public QWidget {
  Q_OBJECT

 public:
  // A window of its own, owned by `owner` (the main window).
  explicit frmQuery(modMain::Application& app, QWidget* owner = nullptr);
  ~frmQuery() override;

  QComboBox* comType() const { return comType_; }
  QLineEdit* txtName() const { return txtName_; }
  QLineEdit* txtServer() const { return txtServer_; }
  QPushButton* cmdStart() const { return cmdStart_; }
  QPushButton* cmdStop() const { return cmdStop_; }
  QPlainTextEdit* txtAnswer() const { return txtAnswer_; }
  bool Waiting() const { return socket_ != nullptr; }
  // The local port of the query that is out (0: none).
  int QueryPort() const;
  int32_t LastQueryId() const { return queryId_; }
  // Tests shorten the wait; the time-out text still names 5 seconds.
  void SetTimeoutMs(int milliseconds) { timeoutMs_ = milliseconds; }

  // The controls' commands.
  void comType_Click();
  void cmdStart_Click();
  void cmdStop_Click();
  void cmdCopy_Click();

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  void BuildControls();
  int SelectedType() const;
  // The port to ask `server` on: this program's DNS port when it is this
  // program, else 53.
  int PortFor(const std::string& server) const;
  bool IsThisServer(const std::string& server) const;
  void Arrival(const Datagram& datagram);
  // Where each answer record came from, when this program was asked.
  std::vector<std::string> SourceLines() const;
  void TimedOut();
  // Closes the socket and enables the query fields again.
  void EndQuery();
  void Show(const std::string& text);
  // Runs `handler`; what it throws is reported under `tag`.
  template <class Handler>
  void Guarded(const char* tag, Handler handler);

  modMain::Application& app_;
  QGroupBox* Frame1_ = nullptr;
  QComboBox* comType_ = nullptr;
  QLabel* Label3_ = nullptr;
  QLabel* LabelType_ = nullptr;
  QLabel* lblName_ = nullptr;
  QLineEdit* txtName_ = nullptr;
  QLineEdit* txtServer_ = nullptr;
  QPushButton* cmdStart_ = nullptr;
  QPushButton* cmdStop_ = nullptr;
  QGroupBox* Frame2_ = nullptr;
  QPlainTextEdit* txtAnswer_ = nullptr;
  QPushButton* cmdCopy_ = nullptr;
  QPushButton* cmdExit_ = nullptr;

  std::unique_ptr<UdpSocket> socket_;  // Winsock: open while a query is out
  int32_t queryId_ = 0;
  std::string question_;
  int questionType_ = 0;
  std::string server_;
  int port_ = 0;
  QElapsedTimer roundTrip_;
  QTimer timeout_;
  int timeoutMs_ = 0;
};

}  // namespace modQuery

}  // namespace korvane
