// The log window ListDNS: a list view over a bounded model of the log's
// window. The model pulls the lines logged since its last pull on a timer,
// so a burst of lines costs the view one removal, one insertion and one
// repaint per pull instead of one per line.
#pragma once

#include <QAbstractListModel>
#include <QListView>
#include <QStyledItemDelegate>
#include <QTimer>

#include <cstdint>
#include <deque>

#include "app/log.h"

namespace korvane {

class LogModel : public QAbstractListModel {
  Q_OBJECT

 public:
  explicit LogModel(const modMain::Log& log, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;

  struct Change {
    int removed = 0;  // from the top: pushed out of the log's window or cleared
    int added = 0;    // at the bottom
  };
  // Brings the rows up to the log's window: drops the lines it no longer
  // holds, then appends the lines logged since the last pull.
  Change Pull();
  int Pulls() const { return pulls_; }

 private:
  const modMain::Log& log_;
  std::deque<QString> lines_;
  uint64_t first_ = 1;  // sequence number of lines_.front()
  int pulls_ = 0;
};

// Draws a log line as one plain run of text: no eliding, no wrapping, no
// icons. A flood of lines repaints every visible row 20 times a second, and
// the styled delegate's text layout would cost the server several times more.
class LogLineDelegate : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;
  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

class LogView : public QListView {
  Q_OBJECT

 public:
  // How often the view pulls new lines: at most 20 repaints a second; 10
  // while more than a screenful arrives between two pulls, when nobody
  // reads the lines passing by anyway.
  static constexpr int kPullIntervalMs = 50;
  static constexpr int kFloodIntervalMs = 100;

  explicit LogView(const modMain::Log& log, QWidget* parent = nullptr);
  LogModel& Model() { return model_; }
  // Pulls now; keeps to the newest line unless the operator scrolled up.
  void Refresh();

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  LogModel model_;
  LogLineDelegate delegate_;
  QTimer timer_;
};

}  // namespace korvane
