#include "controls/ctlTTL.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>

#include "app/app_world.h"

using namespace korvane;

namespace {

TEST(ctlTTL, ShowsAndGivesBackEveryValue) {
  EnsureEventLoop();
  ctlTTL control;
  QSpinBox* seconds = control.findChild<QSpinBox*>("seconds");
  QSignalSpy changes(&control, &ctlTTL::ValueChanged);
  struct Case {
    int32_t set, value;
    bool secondsShown;
  } cases[] = {{3600, 3600, false},        {0, 0, false},       {59, 59, true},
               {86400 + 61, 86400 + 61, true}, {90060, 90060, false}, {kMaxTTL, kMaxTTL, true},
               {-5, 0, false}};
  for (const Case& c : cases) {
    changes.clear();
    control.SetValue(c.set);
    EXPECT_EQ(control.Value(), c.value) << c.set;
    EXPECT_EQ(!seconds->isHidden(), c.secondsShown) << c.set;
    ASSERT_EQ(changes.size(), 1) << c.set;  // once, with the whole value
    EXPECT_EQ(changes[0][0].toInt(), c.value);
  }
}

TEST(ctlTTL, TypedFieldsAddUpAndAreHeldAtTheLargestTTL) {
  EnsureEventLoop();
  ctlTTL control;
  auto type = [&](const char* field, const char* text) {
    QSpinBox* box = control.findChild<QSpinBox*>(field);
    box->selectAll();
    QTest::keyClicks(box, text);
  };
  type("days", "2");
  type("hours", "3");
  type("minutes", "30");
  EXPECT_EQ(control.Value(), 2 * 86400 + 3 * 3600 + 30 * 60);
  type("days", "24855");
  type("hours", "23");
  QTest::keyClick(control.findChild<QSpinBox*>("hours"), Qt::Key_Return);
  EXPECT_EQ(control.Value(), kMaxTTL);
  EXPECT_EQ(control.findChild<QSpinBox*>("hours")->value(), 3);  // shown as it is held
  EXPECT_EQ(control.findChild<QSpinBox*>("seconds")->value(), 7);
}

}  // namespace
