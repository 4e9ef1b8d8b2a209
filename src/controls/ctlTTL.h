// A time-to-live entered as days, hours and minutes; its value is seconds.
// A value that is not a whole number of minutes also shows its seconds, so
// that showing a value and reading it back never changes it.
#pragma once

#include <QWidget>

#include <cstdint>

#include "store/ttl.h"

class QSpinBox;

namespace korvane {

class ctlTTL : public QWidget {
  Q_OBJECT
  Q_PROPERTY(int Value READ Value WRITE SetValue NOTIFY ValueChanged USER true)

 public:
  explicit ctlTTL(QWidget* parent = nullptr);

  // Takes what is typed into the fields first. 0..2147483647.
  int32_t Value() const;
  // A negative value shows as 0.
  void SetValue(int32_t seconds);

 signals:
  void ValueChanged(int seconds);

 private:
  QSpinBox* AddField(int maximum, const QString& suffix, const QString& name);
  TtlParts Shown() const;
  void FieldChanged();
  // Shows what the fields hold when they added up past the largest TTL.
  void Normalise();

  QSpinBox* days_;
  QSpinBox* hours_;
  QSpinBox* minutes_;
  QSpinBox* seconds_;  // shown only while the value has seconds
  int32_t announced_ = 0;
  bool setting_ = false;
};

}  // namespace korvane
