// A multi-column list: rows of TAB-separated texts under captioned columns,
// each row with a key of its own. Rows and columns count from 1;
// ListIndex 0 means no row is selected.
#pragma once

#include <QPoint>
#include <QString>
#include <QTreeWidget>

namespace korvane {

class ColList : public QTreeWidget {
  Q_OBJECT

 public:
  explicit ColList(QWidget* parent = nullptr);

  int ColCount() const { return columnCount(); }
  void SetColCount(int count);
  QString ColCaption(int column) const;
  void SetColCaption(int column, const QString& caption);
  // In pixels.
  int ColWidth(int column) const;
  void SetColWidth(int column, int width);

  // Appends a row; `text` holds its columns separated by TAB (missing ones
  // stay empty, extra ones are dropped). Returns the new row's index.
  int AddItem(const QString& text, const QString& key = {});
  // "" for a row or column that does not exist.
  QString Text(int row, int column = 1) const;
  QString Key(int row) const;
  int ListIndex() const;
  // 0 clears the selection; an index past the end is ignored.
  void SetListIndex(int row);
  int ListCount() const { return topLevelItemCount(); }
  void Clear() { clear(); }
  // A row that does not exist is ignored.
  void Remove(int row);

 signals:
  void Click();
  void DblClick();
  // The right button went down (the row under it is selected first).
  void RightClick(const QPoint& globalPosition);
  void DeleteKey();

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
};

}  // namespace korvane
