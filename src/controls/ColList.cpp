#include "controls/ColList.h"

#include <algorithm>

#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>

namespace korvane {

ColList::ColList(QWidget* parent) : QTreeWidget(parent) {
  setRootIsDecorated(false);
  setUniformRowHeights(true);
  setAllColumnsShowFocus(true);
  setSelectionMode(QAbstractItemView::SingleSelection);
  setSelectionBehavior(QAbstractItemView::SelectRows);
  setEditTriggers(QAbstractItemView::NoEditTriggers);
  setContextMenuPolicy(Qt::NoContextMenu);
  header()->setStretchLastSection(true);
  header()->setSectionsMovable(false);
  connect(this, &QTreeWidget::itemClicked, this, [this] { emit Click(); });
  connect(this, &QTreeWidget::itemDoubleClicked, this, [this] { emit DblClick(); });
}

void ColList::SetColCount(int count) { setColumnCount(std::max(count, 1)); }

QString ColList::ColCaption(int column) const {
  if (column < 1 || column > columnCount()) return {};
  return headerItem()->text(column - 1);
}

void ColList::SetColCaption(int column, const QString& caption) {
  if (column < 1 || column > columnCount()) return;
  headerItem()->setText(column - 1, caption);
}

int ColList::ColWidth(int column) const {
  if (column < 1 || column > columnCount()) return 0;
  return columnWidth(column - 1);
}

void ColList::SetColWidth(int column, int width) {
  if (column < 1 || column > columnCount()) return;
  setColumnWidth(column - 1, width);
}

int ColList::AddItem(const QString& text, const QString& key) {
  auto* item = new QTreeWidgetItem;
  const QStringList parts = text.split('\t');
  for (int column = 0; column < columnCount() && column < parts.size(); ++column)
    item->setText(column, parts[column]);
  item->setData(0, Qt::UserRole, key);
  addTopLevelItem(item);
  return topLevelItemCount();
}

QString ColList::Text(int row, int column) const {
  if (row < 1 || row > ListCount() || column < 1 || column > columnCount()) return {};
  return topLevelItem(row - 1)->text(column - 1);
}

QString ColList::Key(int row) const {
  if (row < 1 || row > ListCount()) return {};
  return topLevelItem(row - 1)->data(0, Qt::UserRole).toString();
}

int ColList::ListIndex() const {
  const QList<QTreeWidgetItem*> selected = selectedItems();
  return selected.isEmpty() ? 0 : indexOfTopLevelItem(selected.first()) + 1;
}

void ColList::SetListIndex(int row) {
  if (row == 0) {
    clearSelection();
    return;
  }
  if (row < 1 || row > ListCount()) return;
  setCurrentItem(topLevelItem(row - 1));
}

void ColList::Remove(int row) {
  if (row < 1 || row > ListCount()) return;
  delete takeTopLevelItem(row - 1);
}

void ColList::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Delete) {
    emit DeleteKey();
    return;
  }
  QTreeWidget::keyPressEvent(event);
}

void ColList::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::RightButton) {
    QTreeWidget::mousePressEvent(event);
    return;
  }
  if (QTreeWidgetItem* item = itemAt(event->position().toPoint())) setCurrentItem(item);
  emit RightClick(event->globalPosition().toPoint());
}

}  // namespace korvane
