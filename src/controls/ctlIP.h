// An IPv4 address entered as four octet fields with dots between them; its
// value is dotted text ("" when all fields are empty). Typing "." moves to
// the next field, a full field moves on by itself, Backspace in an empty
// field goes back, and pasting a whole address fills all four fields.
#pragma once

#include <QWidget>

#include <array>

#include "wire/ip_fields.h"

class QLineEdit;

namespace korvane {

class ctlIP : public QWidget {
  Q_OBJECT
  Q_PROPERTY(QString Value READ Value WRITE SetValue NOTIFY ValueChanged USER true)

 public:
  explicit ctlIP(QWidget* parent = nullptr);

  QString Value() const;
  // Text that is not a dotted address empties the fields.
  void SetValue(const QString& address);
  // The field with this index (0..3).
  QLineEdit* Field(int index) const { return fields_[index]; }

 signals:
  void ValueChanged(const QString& address);
  // The focus left the control as a whole.
  void editingFinished();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  int IndexOf(QObject* field) const;
  void Edited(int index, const QString& text);
  void Fill(const modIP::IPFields& fields);
  void Announce();

  std::array<QLineEdit*, 4> fields_{};
  modIP::IPFields shown_;  // what each field held last, for refusing a bad edit
  QString announced_;
};

}  // namespace korvane
