#include "editor/frmPRDialog.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/prompts.h"

namespace korvane {

namespace modEditor {

frmPRDialog::frmPRDialog(EditorContext& editor, int editing, const char* title, const char* frame,
                         QWidget* parent)
    : QDialog(parent), editor_(editor), editing_(editing) {
  setWindowTitle(title);
  auto* group = new QGroupBox(frame);
  rows_ = new QFormLayout(group);
  rows_->setLabelAlignment(Qt::AlignRight);
  cmdOK_ = new QPushButton("OK");
  cmdOK_->setObjectName("cmdOK");
  cmdOK_->setDefault(true);
  cmdCancel_ = new QPushButton("Cancel");
  cmdCancel_->setObjectName("cmdCancel");
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(cmdOK_);
  buttons->addWidget(cmdCancel_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(group);
  layout->addLayout(buttons);
  layout->setSizeConstraint(QLayout::SetFixedSize);
  connect(cmdOK_, &QPushButton::clicked, this, &frmPRDialog::cmdOK_Click);
  connect(cmdCancel_, &QPushButton::clicked, this, &QDialog::reject);
}

void frmPRDialog::AddRow(const char* label, QWidget* control, const char* hint) {
  if (!hint) {
    rows_->addRow(label, control);
    return;
  }
  auto* column = new QVBoxLayout;
  column->setSpacing(2);
  column->addWidget(control);
  auto* note = new QLabel(hint);
  note->setEnabled(false);  // drawn in the muted colour of a hint
  column->addWidget(note);
  rows_->addRow(label, column);
}

QLineEdit* frmPRDialog::TextBox(const char* name) {
  auto* box = new QLineEdit;
  box->setObjectName(name);
  box->setMinimumWidth(240);
  return box;
}

QLineEdit* frmPRDialog::DomainBox() {
  QLineEdit* box = TextBox("txtDomain");
  box->setReadOnly(true);
  box->setText(QString::fromStdString(DomainCaption(editor_.model.CurDomain())));
  return box;
}

void frmPRDialog::ShowRefusal(const std::string& message, bool information, QWidget* field) {
  editor_.boxes.Show(message, MessageButtons::OK,
                     information ? MessageIcon::Information : MessageIcon::Exclamation);
  if (field) field->setFocus();
}

bool frmPRDialog::AddEntry(clPermRec entry) {
  added_ = editor_.model.AddRec(std::move(entry), editing_);
  if (added_ == 0) {
    ShowRefusal("This record or its domain has been deleted meanwhile!", false, nullptr);
    reject();
    return false;
  }
  return true;
}

void frmPRDialog::cmdOK_Click() {
  if (TakeFields()) accept();
}

}  // namespace modEditor

}  // namespace korvane
