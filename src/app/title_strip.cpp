#include "app/title_strip.h"

#include <QPainter>

#include <algorithm>
#include <exception>

#include "app/frmAbout.h"

namespace korvane {

namespace {

constexpr int kMargin = 10;

}  // namespace

TitleStrip::TitleStrip(QWidget* parent) : QWidget(parent) {
  setObjectName("picTitle");
  setFixedHeight(kHeight);
  title_ = new QLabel("Korvane", this);
  title_->setObjectName("lblTitle");
  title_->setFont(QFont("Arial", 20, QFont::Bold, true));
  copy_ = new QLabel(modMain::kCopyLine, this);
  copy_->setObjectName("lblCopy");
  copy_->setFont(QFont("Arial", 8));
  for (QLabel* label : {title_, copy_}) {
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, label == title_ ? Qt::white : QColor(190, 205, 255));
    label->setPalette(palette);
    label->adjustSize();
  }
}

void TitleStrip::PlaceLabels() {
  try {
    const int wide = std::max(title_->width(), copy_->width());
    const int right = width() - kMargin;
    const int left = width() < wide + 2 * kMargin ? kMargin : right - wide;
    title_->move(left + wide - title_->width(), 2);
    copy_->move(left + wide - copy_->width(), height() - copy_->height() - 4);
  } catch (const std::exception& e) {
    if (fault_) fault_("frmMain Resize", e);
  }
}

void TitleStrip::paintEvent(QPaintEvent*) {
  try {
    QPainter painter(this);
    const int h = std::max(height(), 1);
    // One line per pixel row: blue grows from 0 at the top to 255 at the bottom.
    for (int y = 0; y < h; ++y) {
      painter.setPen(QColor(0, 0, std::min(255, y * 256 / h)));
      painter.drawLine(0, y, width() - 1, y);
    }
  } catch (const std::exception& e) {
    if (fault_) fault_("frmMain picTitle", e);
  }
}

}  // namespace korvane
