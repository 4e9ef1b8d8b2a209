#include "app/log_view.h"

#include <QPainter>
#include <QScrollBar>

#include <algorithm>

namespace korvane {

namespace {

constexpr int kTextMargin = 3;

}  // namespace

LogModel::LogModel(const modMain::Log& log, QObject* parent)
    : QAbstractListModel(parent), log_(log) {}

int LogModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(lines_.size());
}

QVariant LogModel::data(const QModelIndex& index, int role) const {
  if (role != Qt::DisplayRole || !index.isValid() || index.row() >= rowCount()) return {};
  return lines_[static_cast<std::size_t>(index.row())];
}

LogModel::Change LogModel::Pull() {
  ++pulls_;
  Change change;
  const modMain::Log::WindowSpan span = log_.Window();
  const uint64_t end = first_ + lines_.size();  // sequence after the last line held
  if (first_ < span.first && !lines_.empty()) {
    change.removed = static_cast<int>(std::min<uint64_t>(lines_.size(), span.first - first_));
    beginRemoveRows({}, 0, change.removed - 1);
    lines_.erase(lines_.begin(), lines_.begin() + change.removed);
    endRemoveRows();
    first_ += static_cast<uint64_t>(change.removed);
  }
  // What is held is now all inside the window; new lines follow it.
  const uint64_t from = std::max(end, span.first);
  if (lines_.empty()) first_ = from;
  if (from >= span.end) return change;
  std::vector<std::string> fresh = log_.WindowLines(from, span.end);
  if (fresh.empty()) return change;
  const int at = rowCount();
  change.added = static_cast<int>(fresh.size());
  beginInsertRows({}, at, at + change.added - 1);
  for (const std::string& line : fresh) lines_.push_back(QString::fromStdString(line));
  endInsertRows();
  return change;
}

void LogLineDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
  const bool selected = option.state & QStyle::State_Selected;
  if (selected) painter->fillRect(option.rect, option.palette.highlight());
  painter->setPen(option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text));
  painter->drawText(option.rect.adjusted(kTextMargin, 0, 0, 0),
                    Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                    index.data(Qt::DisplayRole).toString());
}

QSize LogLineDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
  // Lines run past the right edge rather than widen the view: one height
  // for every row, no horizontal scrolling.
  return {option.rect.width(), option.fontMetrics.height() + 2};
}

LogView::LogView(const modMain::Log& log, QWidget* parent)
    : QListView(parent), model_(log), delegate_(this) {
  setModel(&model_);
  setItemDelegate(&delegate_);
  setUniformItemSizes(true);
  setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
  setEditTriggers(QAbstractItemView::NoEditTriggers);
  setSelectionMode(QAbstractItemView::ExtendedSelection);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  timer_.setInterval(kPullIntervalMs);
  connect(&timer_, &QTimer::timeout, this, &LogView::Refresh);
}

void LogView::Refresh() {
  QScrollBar* bar = verticalScrollBar();
  const bool following = bar->value() >= bar->maximum();
  const int value = bar->value();
  const LogModel::Change change = model_.Pull();
  const int rowHeight = change.added > 0 ? std::max(1, sizeHintForRow(0)) : 1;
  timer_.setInterval(change.added > viewport()->height() / rowHeight ? kFloodIntervalMs
                                                                     : kPullIntervalMs);
  if (change.removed == 0 && change.added == 0) return;
  if (following) {
    scrollToBottom();
  } else {
    // Scrolled up: the same lines stay in view while older ones drop out.
    bar->setValue(std::max(0, value - change.removed));
  }
}

void LogView::showEvent(QShowEvent* event) {
  QListView::showEvent(event);
  Refresh();
  timer_.start();
}

void LogView::hideEvent(QHideEvent* event) {
  QListView::hideEvent(event);
  // Hidden (the lease view, or the tray): the lines wait in the log's window.
  timer_.stop();
}

}  // namespace korvane
