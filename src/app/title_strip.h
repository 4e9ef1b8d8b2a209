// The main window's title strip picTitle: black at the top to blue at the
// bottom, with the program's name (lblTitle) and a second caption line
// (lblCopy) at its right end.
#pragma once

#include <QLabel>
#include <QWidget>

#include <functional>

namespace korvane {

class TitleStrip : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kHeight = 58;

  explicit TitleStrip(QWidget* parent = nullptr);
  QLabel* lblTitle() const { return title_; }
  QLabel* lblCopy() const { return copy_; }
  // Faults while painting or placing go here (the window reports them).
  void SetFaultHandler(std::function<void(const char* tag, const std::exception&)> handler) {
    fault_ = std::move(handler);
  }
  // Puts the labels at the right end, or at the left edge when the strip is
  // narrower than the title.
  void PlaceLabels();

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QLabel* title_;
  QLabel* copy_;
  std::function<void(const char*, const std::exception&)> fault_;
};

}  // namespace korvane
