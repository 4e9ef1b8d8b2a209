#include "app/help.h"

#include <QDialog>
#include <QFile>
#include <QPointer>
#include <QTextBrowser>
#include <QVBoxLayout>

#include "app/resources.h"

namespace korvane {

namespace {

class HelpWindow : public QDialog {
 public:
  explicit HelpWindow(QWidget* parent) : QDialog(parent) {
    setObjectName("frmHelp");
    setWindowTitle("Korvane Help");
    setAttribute(Qt::WA_DeleteOnClose);
    setModal(false);
    browser_ = new QTextBrowser(this);
    browser_->setObjectName("txtHelp");
    browser_->setOpenExternalLinks(true);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(browser_);
    resize(620, 520);
  }
  void Open(const QUrl& page) { browser_->setSource(page); }

 private:
  QTextBrowser* browser_;
};

QPointer<HelpWindow> openWindow;

}  // namespace

QUrl HelpPage(const QString& topic) {
  LoadResources();
  const QString name = topic == "200" ? "dhcp" : topic;
  const QString path = ":/help/" + name + ".html";
  return QUrl("qrc" + (QFile::exists(path) ? path : QString(":/help/index.html")));
}

void ShowHelp(QWidget* parent, const QString& topic) {
  // A help window owned by another window would be blocked while a modal
  // dialog asks for help: it moves to the asking window.
  if (openWindow && openWindow->parentWidget() != parent) {
    const QRect where = openWindow->geometry();
    delete openWindow.data();
    openWindow = new HelpWindow(parent);
    openWindow->setGeometry(where);
  }
  if (!openWindow) openWindow = new HelpWindow(parent);
  openWindow->Open(HelpPage(topic));
  openWindow->show();
  openWindow->raise();
  openWindow->activateWindow();
}

}  // namespace korvane
