#include "tools/frmQuery.h"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QVBoxLayout>

#include "app/application.h"
#include "app/udp_socket.h"
#include "tools/answer_text.h"
#include "tools/query.h"

namespace korvane {

namespace modQuery {

namespace {

QString Text(const std::string& text) {
  QString shown = QString::fromStdString(text);
  shown.replace("\r\n", "\n");
  return shown;
}

}  // namespace

frmQuery::frmQuery(modMain::Application& app, QWidget* owner)
    : QWidget(owner, Qt::Window), app_(app), timeoutMs_(kTimeoutSeconds * 1000) {
  setObjectName("frmQuery");
  setWindowTitle("Korvane - DNS Look Up");
  BuildControls();
  timeout_.setSingleShot(true);
  connect(&timeout_, &QTimer::timeout, this, [this] { Guarded("frmQuery Timeout", [this] { TimedOut(); }); });
  comType_Click();
  resize(680, 460);
}

frmQuery::~frmQuery() = default;

void frmQuery::BuildControls() {
  auto named = [](QWidget* widget, const char* name) {
    widget->setObjectName(name);
    return widget;
  };
  Frame1_ = new QGroupBox("Query:", this);
  Frame1_->setObjectName("Frame1");
  comType_ = new QComboBox(Frame1_);
  for (const QueryType& type : QueryTypes()) comType_->addItem(type.Entry, type.Type);
  named(comType_, "comType");
  Label3_ = new QLabel("Record Type:", Frame1_);
  LabelType_ = new QLabel(Frame1_);
  lblName_ = new QLabel(Frame1_);
  txtName_ = new QLineEdit(Frame1_);
  txtServer_ = new QLineEdit(kDefaultServer, Frame1_);
  auto* lblServer = new QLabel("Server:", Frame1_);
  for (auto [widget, name] : {std::pair<QWidget*, const char*>{Label3_, "Label3"}, {LabelType_, "LabelType"},
                              {lblName_, "lblName"}, {txtName_, "txtName"}, {txtServer_, "txtServer"},
                              {lblServer, "lblServer"}})
    named(widget, name);
  auto* query = new QGridLayout(Frame1_);
  query->addWidget(Label3_, 0, 0);
  query->addWidget(comType_, 0, 1);
  query->addWidget(LabelType_, 0, 2);
  query->addWidget(lblName_, 1, 0);
  query->addWidget(txtName_, 1, 1, 1, 2);
  query->addWidget(lblServer, 2, 0);
  query->addWidget(txtServer_, 2, 1);
  query->setColumnStretch(2, 1);

  cmdStart_ = static_cast<QPushButton*>(named(new QPushButton("Start", this), "cmdStart"));
  cmdStop_ = static_cast<QPushButton*>(named(new QPushButton("Stop", this), "cmdStop"));
  cmdStop_->setEnabled(false);
  auto* buttons = new QVBoxLayout;
  buttons->addWidget(cmdStart_);
  buttons->addWidget(cmdStop_);
  buttons->addStretch();
  auto* top = new QHBoxLayout;
  top->addWidget(Frame1_, 1);
  top->addLayout(buttons);

  Frame2_ = new QGroupBox("Answer:", this);
  Frame2_->setObjectName("Frame2");
  txtAnswer_ = static_cast<QPlainTextEdit*>(named(new QPlainTextEdit(Frame2_), "txtAnswer"));
  txtAnswer_->setReadOnly(true);
  txtAnswer_->setLineWrapMode(QPlainTextEdit::NoWrap);
  txtAnswer_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  (new QVBoxLayout(Frame2_))->addWidget(txtAnswer_);

  cmdCopy_ = static_cast<QPushButton*>(named(new QPushButton("&Copy", this), "cmdCopy"));
  cmdExit_ = static_cast<QPushButton*>(named(new QPushButton("E&xit", this), "cmdExit"));
  auto* bottom = new QHBoxLayout;
  bottom->addWidget(cmdCopy_);
  bottom->addStretch();
  bottom->addWidget(cmdExit_);

  auto* layout = new QVBoxLayout(this);
  layout->addLayout(top);
  layout->addWidget(Frame2_, 1);
  layout->addLayout(bottom);

  connect(comType_, &QComboBox::currentIndexChanged, this, [this] { comType_Click(); });
  connect(cmdStart_, &QPushButton::clicked, this, [this] { cmdStart_Click(); });
  connect(txtName_, &QLineEdit::returnPressed, this, [this] { cmdStart_Click(); });
  connect(cmdStop_, &QPushButton::clicked, this, [this] { cmdStop_Click(); });
  connect(cmdCopy_, &QPushButton::clicked, this, [this] { cmdCopy_Click(); });
  connect(cmdExit_, &QPushButton::clicked, this, &QWidget::close);
}

template <class Handler>
void frmQuery::Guarded(const char* tag, Handler handler) {
  try {
    handler();
  } catch (const std::exception& e) {
    ReportException(app_.reporter(), tag, e);
  }
}

int frmQuery::SelectedType() const { return comType_->currentData().toInt(); }

int frmQuery::QueryPort() const { return socket_ ? socket_->LocalPort() : 0; }

void frmQuery::comType_Click() {
  const int index = comType_->currentIndex();
  if (index < 0 || index >= static_cast<int>(QueryTypes().size())) return;
  LabelType_->setText(QueryTypes()[index].Description);
  lblName_->setText(QueryTypes()[index].NameLabel);
}

bool frmQuery::IsThisServer(const std::string& server) const {
  return modQuery::IsThisServer(server, app_.options().DNSBIND, app_.LocalIPs());
}

int frmQuery::PortFor(const std::string& server) const {
  if (!IsThisServer(server)) return kDnsPort;
  if (app_.DnsPort() > 0) return app_.DnsPort();
  return app_.settings().dnsPort > 0 ? app_.settings().dnsPort : kDnsPort;
}

void frmQuery::cmdStart_Click() {
  Guarded("frmQuery cmdStart", [this] {
    if (Waiting()) return;
    const CheckedQuery query = CheckQuery(txtName_->text().toStdString(), SelectedType(),
                                          txtServer_->text().toStdString());
    if (!query.Ask) {
      if (!query.Message.empty()) Show(query.Message);
      return;
    }
    Frame1_->setEnabled(false);
    cmdStart_->setEnabled(false);
    cmdStop_->setEnabled(true);
    txtAnswer_->clear();
    queryId_ = NextQueryId(queryId_);
    question_ = query.Question;
    questionType_ = SelectedType();
    server_ = query.Server;
    port_ = PortFor(server_);

    socket_ = std::make_unique<UdpSocket>();
    SendError error;
    if (!socket_->Bind("", 0, BindOptions{}, error) ||
        !socket_->Send(server_, port_, BuildQuery(queryId_, question_, questionType_), "", error)) {
      EndQuery();
      Show("The query could not be sent: " + error.description);
      return;
    }
    socket_->SetHandler([this](const Datagram& datagram) {
      Guarded("frmQuery Winsock", [&] { Arrival(datagram); });
    });
    socket_->SetErrorHandler([this](int, const std::string& description) {
      EndQuery();
      Show("The query failed: " + description);
    });
    roundTrip_.start();
    timeout_.start(timeoutMs_);
  });
}

void frmQuery::Arrival(const Datagram& datagram) {
  if (!socket_ || datagram.host != server_ || datagram.port != port_) return;
  const std::optional<std::string> answer =
      AnswerText(datagram.data, queryId_, question_, questionType_, SourceLines());
  if (!answer) return;  // a reply to another query
  const int64_t elapsed = roundTrip_.elapsed();
  EndQuery();
  Show(*answer + "\r\n" + RoundTripText(server_, port_, elapsed));
}

std::vector<std::string> frmQuery::SourceLines() const {
  if (!IsThisServer(server_)) return {};
  // The server saw the question come from the address it was sent to.
  const AnsweredRequest* noted = app_.dns().AnswerSources(server_, socket_->LocalPort(), queryId_);
  return noted ? korvane::SourceLines(*noted, app_.store().origins) : std::vector<std::string>{};
}

void frmQuery::TimedOut() {
  if (!Waiting()) return;
  EndQuery();
  Show(TimeoutText(server_));
}

void frmQuery::cmdStop_Click() {
  Guarded("frmQuery cmdStop", [this] { EndQuery(); });
}

void frmQuery::EndQuery() {
  timeout_.stop();
  // The socket may be the one whose handler runs now: it goes once that returns.
  if (socket_) {
    socket_->Close();
    socket_.release()->deleteLater();
  }
  Frame1_->setEnabled(true);
  cmdStart_->setEnabled(true);
  cmdStop_->setEnabled(false);
}

void frmQuery::cmdCopy_Click() { QApplication::clipboard()->setText(txtAnswer_->toPlainText()); }

void frmQuery::Show(const std::string& text) { txtAnswer_->setPlainText(Text(text)); }

void frmQuery::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  app_.dns().TrackAnswerSources(true);
  txtName_->setFocus();
}

void frmQuery::hideEvent(QHideEvent* event) {
  EndQuery();
  app_.dns().TrackAnswerSources(false);
  QWidget::hideEvent(event);
}

}  // namespace modQuery

}  // namespace korvane
