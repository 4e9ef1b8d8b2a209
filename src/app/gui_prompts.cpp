#include "app/gui_prompts.h"

#include <QMessageBox>
#include <QPointer>

namespace korvane {

namespace {

QMessageBox::Icon IconOf(MessageIcon icon) {
  switch (icon) {
    case MessageIcon::Critical: return QMessageBox::Critical;
    case MessageIcon::Question: return QMessageBox::Question;
    case MessageIcon::Exclamation: return QMessageBox::Warning;
    case MessageIcon::Information: return QMessageBox::Information;
    case MessageIcon::None: break;
  }
  return QMessageBox::NoIcon;
}

}  // namespace

QMessageBox* GuiMessageBoxes::Build(const std::string& text, MessageButtons buttons,
                                    MessageIcon icon, bool defaultNo, bool topmost,
                                    QWidget* parent) {
  auto* box = new QMessageBox(parent);
  box->setWindowTitle("Korvane");
  box->setText(QString::fromStdString(text));
  box->setIcon(IconOf(icon));
  switch (buttons) {
    case MessageButtons::OK:
      box->setStandardButtons(QMessageBox::Ok);
      box->setDefaultButton(QMessageBox::Ok);
      break;
    case MessageButtons::OKCancel:
      box->setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
      box->setDefaultButton(QMessageBox::Ok);
      box->setEscapeButton(QMessageBox::Cancel);
      break;
    case MessageButtons::YesNo:
      box->setStandardButtons(QMessageBox::Yes | QMessageBox::No);
      box->setDefaultButton(defaultNo ? QMessageBox::No : QMessageBox::Yes);
      box->setEscapeButton(QMessageBox::No);
      break;
  }
  if (topmost) box->setWindowFlag(Qt::WindowStaysOnTopHint, true);
  return box;
}

MessageAnswer GuiMessageBoxes::Show(const std::string& text, MessageButtons buttons,
                                    MessageIcon icon, bool defaultNo, bool topmost) {
  QWidget* parent = parent_ && parent_->isVisible() ? parent_.data() : nullptr;
  // The parent may go while the box is open (a termination signal closes
  // the program): the box goes with it.
  QPointer<QMessageBox> box = Build(text, buttons, icon, defaultNo, topmost, parent);
  const int result = box->exec();
  delete box.data();
  switch (result) {
    case QMessageBox::Ok: return MessageAnswer::OK;
    case QMessageBox::Yes: return MessageAnswer::Yes;
    case QMessageBox::Cancel: return MessageAnswer::Cancel;
    default: break;
  }
  // Closed by the window's close box or Escape: the cautious answer.
  return buttons == MessageButtons::OK ? MessageAnswer::OK
         : buttons == MessageButtons::OKCancel ? MessageAnswer::Cancel
                                                : MessageAnswer::No;
}

}  // namespace korvane
