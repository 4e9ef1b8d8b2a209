// The operator's message boxes as real windows: QMessageBox with the
// buttons, icon and default button asked for, titled "Korvane".
#pragma once

#include <QPointer>
#include <QWidget>

#include "app/prompts.h"

class QMessageBox;

namespace korvane {

class GuiMessageBoxes : public MessageBoxes {
 public:
  // Boxes are centred on `parent` while it is visible.
  void SetParent(QWidget* parent) { parent_ = parent; }

  MessageAnswer Show(const std::string& text, MessageButtons buttons, MessageIcon icon,
                     bool defaultNo, bool topmost) override;

  // Builds the box Show would run; for tests that look at it without running it.
  static QMessageBox* Build(const std::string& text, MessageButtons buttons, MessageIcon icon,
                            bool defaultNo, bool topmost, QWidget* parent);

 private:
  QPointer<QWidget> parent_;
};

}  // namespace korvane
