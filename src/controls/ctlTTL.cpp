#include "controls/ctlTTL.h"

#include <QHBoxLayout>
#include <QSpinBox>

namespace korvane {

ctlTTL::ctlTTL(QWidget* parent) : QWidget(parent) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  days_ = AddField(kMaxTTLDays, tr(" d"), "days");
  hours_ = AddField(23, tr(" h"), "hours");
  minutes_ = AddField(59, tr(" min"), "minutes");
  seconds_ = AddField(59, tr(" s"), "seconds");
  seconds_->hide();
  // The fields keep their places when the seconds come and go.
  layout->addStretch(1);
  setFocusProxy(days_);
}

QSpinBox* ctlTTL::AddField(int maximum, const QString& suffix, const QString& name) {
  auto* field = new QSpinBox(this);
  field->setRange(0, maximum);
  field->setSuffix(suffix);
  field->setObjectName(name);
  QString title = name.left(1).toUpper() + name.mid(1);
  field->setToolTip(title);
  field->setAccessibleName(title);
  field->setAlignment(Qt::AlignRight);
  layout()->addWidget(field);
  connect(field, &QSpinBox::valueChanged, this, &ctlTTL::FieldChanged);
  connect(field, &QSpinBox::editingFinished, this, &ctlTTL::Normalise);
  return field;
}

int32_t ctlTTL::Value() const {
  for (QSpinBox* field : {days_, hours_, minutes_, seconds_}) field->interpretText();
  return JoinTTL(Shown());
}

TtlParts ctlTTL::Shown() const {
  return {days_->value(), hours_->value(), minutes_->value(), seconds_->value()};
}

void ctlTTL::SetValue(int32_t seconds) {
  TtlParts parts = SplitTTL(seconds);
  setting_ = true;
  days_->setValue(parts.days);
  hours_->setValue(parts.hours);
  minutes_->setValue(parts.minutes);
  seconds_->setValue(parts.seconds);
  seconds_->setVisible(parts.seconds != 0);
  setting_ = false;
  FieldChanged();
}

void ctlTTL::FieldChanged() {
  if (setting_) return;
  // Not Value(): the field being typed into must not be committed half-way.
  int32_t value = JoinTTL(Shown());
  if (value == announced_) return;
  announced_ = value;
  emit ValueChanged(value);
}

void ctlTTL::Normalise() {
  TtlParts shown = Shown();
  int32_t value = JoinTTL(shown);
  if (SplitTTL(value) != shown) SetValue(value);
}

}  // namespace korvane
