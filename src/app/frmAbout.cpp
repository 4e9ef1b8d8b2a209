#include "app/frmAbout.h"

#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QEvent>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <initializer_list>

#include "app/links.h"
#include "app/resources.h"
#include "app/version.h"

namespace korvane {

namespace modMain {

const char* const kCopyLine = "DNS and DHCP server for your network";

namespace {

QLabel* Label(const QString& text, QWidget* parent, const char* name) {
  auto* label = new QLabel(text, parent);
  label->setObjectName(name);
  label->setAlignment(Qt::AlignHCenter);
  label->setWordWrap(true);
  return label;
}

}  // namespace

frmAbout::frmAbout(QWidget* parent) : QDialog(parent) {
  LoadResources();
  setObjectName("frmAbout");
  setWindowTitle("About Korvane");
  auto* icon = new QLabel(this);
  icon->setPixmap(QIcon(":/korvane.svg").pixmap(64, 64));
  icon->setAlignment(Qt::AlignHCenter);
  auto* title = Label("Korvane", this, "lblTitle");
  title->setFont(QFont("Arial", 22, QFont::Bold));
  auto* version = Label(QString::fromStdString("Version " + VersionText()), this, "lblVersion");
  auto* copy = Label(kCopyLine, this, "lblCopy");
  auto* about = Label("Answers DNS for the domains you define, resolves and caches the rest, "
                      "and hands out addresses from your DHCP pools.",
                      this, "lblAbout");
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
  buttons->button(QDialogButtonBox::Ok)->setObjectName("cmdOK");
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(24, 20, 24, 16);
  for (QWidget* widget : std::initializer_list<QWidget*>{icon, title, version, copy, about})
    layout->addWidget(widget);
  layout->addSpacing(8);
  layout->addWidget(buttons);
  setFixedWidth(360);

  timer_.setSingleShot(true);
  timer_.setInterval(kSplashMs);
  connect(&timer_, &QTimer::timeout, this, &frmAbout::EndSplash);
}

frmAbout* frmAbout::ShowSplash(QWidget* owner) {
  auto* splash = new frmAbout(owner);
  splash->setAttribute(Qt::WA_DeleteOnClose);
  splash->setModal(false);
  splash->timer_.start();
  splash->show();
  return splash;
}

void frmAbout::EndSplash() {
  timer_.stop();
  close();
}

void frmAbout::changeEvent(QEvent* event) {
  QDialog::changeEvent(event);
  if (event->type() != QEvent::ActivationChange || !IsSplash()) return;
  // Only a splash that had the focus can lose it.
  if (isActiveWindow())
    wasActive_ = true;
  else if (wasActive_)
    EndSplash();
}

frmRegDom::frmRegDom(QWidget* parent) : QDialog(parent) {
  setObjectName("frmRegDom");
  setWindowTitle("Register Internet Domain Name");
  auto* text = new QLabel(
      "To be found on the Internet under a name of your own (for example "
      "office.example.com), the domain must be registered with a domain registrar. "
      "Korvane then answers for it: add the domain and its hosts with "
      "\"Edit DNS Records...\", and have the registrar point the domain's name "
      "servers at this machine.",
      this);
  text->setObjectName("lblInfo");
  text->setWordWrap(true);
  auto* buttons = new QDialogButtonBox(this);
  QPushButton* open = buttons->addButton("&Open Registration Page", QDialogButtonBox::AcceptRole);
  open->setObjectName("cmdOpen");
  QPushButton* close = buttons->addButton(QDialogButtonBox::Close);
  close->setObjectName("cmdClose");
  connect(open, &QPushButton::clicked, this, [this] {
    QDesktopServices::openUrl(QUrl(kRegisterDomainPage));
    accept();
  });
  connect(close, &QPushButton::clicked, this, &QDialog::reject);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(text);
  layout->addWidget(buttons);
  setFixedWidth(420);
}

}  // namespace modMain

}  // namespace korvane
