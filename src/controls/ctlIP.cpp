#include "controls/ctlIP.h"

#include <QApplication>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QTimer>

namespace korvane {

ctlIP::ctlIP(QWidget* parent) : QWidget(parent) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  const int width = fontMetrics().horizontalAdvance("0000") + 8;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) layout->addWidget(new QLabel("."));
    auto* field = new QLineEdit(this);
    field->setObjectName(QString("octet%1").arg(i));
    field->setAccessibleName(QString("Octet %1").arg(i + 1));
    field->setAlignment(Qt::AlignCenter);
    field->setFixedWidth(width);
    field->installEventFilter(this);
    connect(field, &QLineEdit::textEdited, this, [this, i](const QString& text) { Edited(i, text); });
    fields_[i] = field;
    layout->addWidget(field);
  }
  layout->addStretch(1);
  setFocusProxy(fields_[0]);
}

QString ctlIP::Value() const { return QString::fromStdString(modIP::JoinIPFields(shown_)); }

void ctlIP::SetValue(const QString& address) {
  modIP::IPFields fields;
  if (!modIP::SplitIPFields(address.toStdString(), fields)) fields = {};
  Fill(fields);
}

void ctlIP::Fill(const modIP::IPFields& fields) {
  shown_ = fields;
  for (int i = 0; i < 4; ++i) fields_[i]->setText(QString::fromStdString(fields[i]));
  Announce();
}

void ctlIP::Announce() {
  const QString value = Value();
  if (value == announced_) return;
  announced_ = value;
  emit ValueChanged(value);
}

int ctlIP::IndexOf(QObject* field) const {
  for (int i = 0; i < 4; ++i)
    if (fields_[i] == field) return i;
  return -1;
}

void ctlIP::Edited(int index, const QString& text) {
  const std::string typed = text.trimmed().toStdString();
  modIP::IPFields whole;
  if (typed.find('.') != std::string::npos && modIP::SplitIPFields(typed, whole)) {
    // A whole address pasted or typed into one field.
    Fill(whole);
    fields_[3]->setFocus();
    return;
  }
  if (!modIP::OctetAccepts(typed)) {
    fields_[index]->setText(QString::fromStdString(shown_[index]));
    return;
  }
  shown_[index] = typed;
  Announce();
  if (typed.size() == 3 && index < 3 && fields_[index]->cursorPosition() == 3) {
    fields_[index + 1]->setFocus();
    fields_[index + 1]->selectAll();
  }
}

bool ctlIP::eventFilter(QObject* watched, QEvent* event) {
  const int index = IndexOf(watched);
  if (index < 0) return QWidget::eventFilter(watched, event);
  if (event->type() == QEvent::KeyPress) {
    auto* key = static_cast<QKeyEvent*>(event);
    if ((key->text() == "." || key->text() == ",") && index < 3) {
      if (!fields_[index]->text().isEmpty()) {
        fields_[index + 1]->setFocus();
        fields_[index + 1]->selectAll();
      }
      return true;
    }
    if (key->key() == Qt::Key_Backspace && index > 0 && fields_[index]->cursorPosition() == 0 &&
        !fields_[index]->hasSelectedText()) {
      fields_[index - 1]->setFocus();
      fields_[index - 1]->end(false);
      return true;
    }
  } else if (event->type() == QEvent::FocusOut) {
    // Leaving for a widget outside the four fields ends the editing.
    QTimer::singleShot(0, this, [this] {
      if (IndexOf(QApplication::focusWidget()) < 0) emit editingFinished();
    });
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace korvane
