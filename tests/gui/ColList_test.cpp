#include "controls/ColList.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTest>

namespace {

using namespace korvane;

TEST(ColListTest, RowsOfTabSeparatedColumnsWithKeysCountedFromOne) {
  ColList list;
  list.SetColCount(2);
  list.SetColCaption(1, "A");
  list.SetColCaption(2, "B");
  list.SetColWidth(1, 80);
  EXPECT_EQ(list.ColCaption(2), "B");
  EXPECT_EQ(list.ColWidth(1), 80);
  EXPECT_EQ(list.ColCaption(3), "");

  EXPECT_EQ(list.AddItem("a1\tb1", "k1"), 1);
  EXPECT_EQ(list.AddItem("a2", "k2"), 2);          // missing column: empty
  EXPECT_EQ(list.AddItem("a3\tb3\textra"), 3);     // extra column: dropped
  EXPECT_EQ(list.ListCount(), 3);
  EXPECT_EQ(list.Text(1, 2), "b1");
  EXPECT_EQ(list.Text(2, 2), "");
  EXPECT_EQ(list.Text(3, 1), "a3");
  EXPECT_EQ(list.Key(2), "k2");
  EXPECT_EQ(list.Text(4, 1), "");
  EXPECT_EQ(list.Text(0, 1), "");

  EXPECT_EQ(list.ListIndex(), 0);
  list.SetListIndex(3);
  EXPECT_EQ(list.ListIndex(), 3);
  list.SetListIndex(9);
  EXPECT_EQ(list.ListIndex(), 3);
  list.SetListIndex(0);
  EXPECT_EQ(list.ListIndex(), 0);

  list.Remove(1);
  list.Remove(7);
  EXPECT_EQ(list.ListCount(), 2);
  EXPECT_EQ(list.Key(1), "k2");
  list.Clear();
  EXPECT_EQ(list.ListCount(), 0);
  EXPECT_EQ(list.ColCaption(1), "A");
}

TEST(ColListTest, RaisesClickDoubleClickRightClickAndDeleteKey) {
  ColList list;
  list.SetColCount(1);
  list.AddItem("one", "1");
  list.AddItem("two", "2");
  list.resize(200, 150);
  list.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&list));
  QSignalSpy click(&list, &ColList::Click), doubleClick(&list, &ColList::DblClick),
      right(&list, &ColList::RightClick), del(&list, &ColList::DeleteKey);
  const QPoint second = list.visualItemRect(list.topLevelItem(1)).center();
  QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, second);
  EXPECT_EQ(click.count(), 1);
  EXPECT_EQ(list.ListIndex(), 2);
  QTest::mouseDClick(list.viewport(), Qt::LeftButton, {}, second);
  EXPECT_EQ(doubleClick.count(), 1);
  const QPoint first = list.visualItemRect(list.topLevelItem(0)).center();
  QTest::mouseClick(list.viewport(), Qt::RightButton, {}, first);
  EXPECT_EQ(right.count(), 1);
  EXPECT_EQ(list.ListIndex(), 1);  // the row under the button is chosen first
  QTest::keyClick(&list, Qt::Key_Delete);
  EXPECT_EQ(del.count(), 1);
}

}  // namespace
