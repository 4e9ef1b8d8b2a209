#include "app/log_view.h"

#include <gtest/gtest.h>

#include <QScrollBar>
#include <QTest>

#include <string>

#include "app/app_world.h"

namespace {

// Counts the view's repaints.
class PaintCounter : public QObject {
 public:
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return false;
  }
  int paints = 0;
};

class LogViewTest : public ::testing::Test {
 protected:
  LogViewTest() : log(clock, options, dir.path()), view(log) {
    view.resize(400, 300);
    view.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&view));
    QObject::connect(&view.Model(), &QAbstractItemModel::rowsInserted, [this] { ++inserts; });
    QObject::connect(&view.Model(), &QAbstractItemModel::modelReset, [this] { ++resets; });
    view.viewport()->installEventFilter(&paints);
  }
  void Log(int from, int count) {
    for (int i = from; i < from + count; ++i) log.AddLine("line " + std::to_string(i));
  }
  QString Row(int row) {
    return view.Model().data(view.Model().index(row), Qt::DisplayRole).toString();
  }
  // Lets the view's timer run once more.
  void NextPull() {
    const int pulls = view.Model().Pulls();
    RunEventsUntil([&] { return view.Model().Pulls() > pulls; });
  }

  TempDir dir;
  FakeClock clock;
  Options options;
  modMain::Log log;
  LogView view;
  PaintCounter paints;
  int inserts = 0;
  int resets = 0;
};

TEST_F(LogViewTest, ABurstOfTenThousandLinesLeavesExactlyTheNewest300) {
  NextPull();
  Log(1, 10000);
  NextPull();
  ASSERT_EQ(view.Model().rowCount(), 300);
  EXPECT_TRUE(Row(0).endsWith("  line 9701"));
  EXPECT_TRUE(Row(299).endsWith("  line 10000"));
  EXPECT_EQ(inserts, 1);
  EXPECT_EQ(resets, 0);
}

TEST_F(LogViewTest, LinesComingInBatchesAreTakenAndPaintedPerPullNotPerLine) {
  constexpr int kBatches = 100;
  NextPull();
  RunEvents();
  const int pullsBefore = view.Model().Pulls();
  const int paintsBefore = paints.paints;
  // As a busy server logs: a batch of lines, then the event loop runs.
  for (int batch = 0; batch < kBatches; ++batch) {
    Log(batch * 100 + 1, 100);
    RunEvents();
  }
  NextPull();
  RunEvents();
  const int pulls = view.Model().Pulls() - pullsBefore;
  EXPECT_LE(inserts, pulls);
  EXPECT_LT(inserts, kBatches);
  EXPECT_LE(paints.paints - paintsBefore, pulls + 1);
  ASSERT_EQ(view.Model().rowCount(), 300);
  EXPECT_TRUE(Row(299).endsWith("  line 10000"));
}

TEST_F(LogViewTest, FollowsTheNewestLineUnlessScrolledUpThenKeepsTheSameLinesInView) {
  Log(1, 300);
  NextPull();
  QScrollBar* bar = view.verticalScrollBar();
  EXPECT_EQ(bar->value(), bar->maximum());
  Log(301, 10);
  NextPull();
  EXPECT_EQ(bar->value(), bar->maximum());
  const QModelIndex newest = view.Model().index(view.Model().rowCount() - 1);
  EXPECT_TRUE(view.viewport()->rect().contains(view.visualRect(newest)));

  bar->setValue(100);
  const QString top = Row(100);
  Log(311, 20);
  NextPull();
  EXPECT_EQ(Row(bar->value()), top);
  EXPECT_LT(bar->value(), bar->maximum());
}

TEST_F(LogViewTest, ClearingEmptiesTheViewAndLaterLinesStartItAgain) {
  Log(1, 50);
  NextPull();
  log.ClearWindow();
  view.Refresh();
  EXPECT_EQ(view.Model().rowCount(), 0);
  Log(51, 2);
  NextPull();
  ASSERT_EQ(view.Model().rowCount(), 2);
  EXPECT_TRUE(Row(0).endsWith("  line 51"));
}

TEST_F(LogViewTest, HiddenItTakesNothingAndShownAgainItCatchesUp) {
  view.hide();
  const int pulls = view.Model().Pulls();
  Log(1, 400);
  QTest::qWait(4 * LogView::kPullIntervalMs);
  EXPECT_EQ(view.Model().Pulls(), pulls);
  view.show();
  ASSERT_EQ(view.Model().rowCount(), 300);
  EXPECT_TRUE(Row(0).endsWith("  line 101"));
}

}  // namespace
