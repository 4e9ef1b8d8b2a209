#include <gtest/gtest.h>

#include <QTest>

#include <string>
#include <vector>

#include "gui/gui_world.h"
#include "wire/datetime.h"

namespace {

using Strings = std::vector<std::string>;

class LeaseListTest : public GuiWorld {
 protected:
  // Three leases in the file: pc1 and pc3 active, pc2 run out; pc3 has a
  // second, older lease line under the same identity.
  void OpenWithLeases() {
    const DateTime now = clock.Now();
    dir.Write("dhcp.dat", "; Korvane - DHCP Leases\r\n"
                          "pc1.lan. 10.0.0.101 01AA00000001 " + FormatDateTime(now + 3600) + "\r\n"
                          "pc2.lan. 10.0.0.102 01AA00000002 " + FormatDateTime(now - 60) + "\r\n"
                          "pc3.lan. 10.0.0.99 01AA00000003 " + FormatDateTime(now - 7200) + "\r\n"
                          "pc3.lan. 10.0.0.103 01AA00000003 " + FormatDateTime(now + 600) + "\r\n");
    Open("", "");
    Choose("mnuViewW2");
  }
  Strings Rows() const {
    Strings rows;
    const ColList* list = window->listDHCP();
    for (int row = 1; row <= list->ListCount(); ++row)
      rows.push_back((list->Text(row, 1) + "|" + list->Text(row, 2)).toStdString());
    return rows;
  }
  std::size_t LeasesOf(const std::string& name) const {
    std::size_t count = 0;
    for (const clLease& lease : app->dhcp().Leases()) count += lease.ClientName == name ? 1 : 0;
    return count;
  }
};

TEST_F(LeaseListTest, ShowsOnlyActiveLeasesWithTheirColumns) {
  OpenWithLeases();
  const ColList* list = window->listDHCP();
  ASSERT_EQ(list->ColCount(), 3);
  EXPECT_EQ(list->ColCaption(1), "Name");
  EXPECT_EQ(list->ColWidth(1), 150);
  EXPECT_EQ(list->ColCaption(2), "IP-Address");
  EXPECT_EQ(list->ColWidth(2), 100);
  EXPECT_EQ(list->ColCaption(3), "Lease Expires");
  EXPECT_EQ(Rows(), (Strings{"pc1.lan.|10.0.0.101", "pc3.lan.|10.0.0.103"}));
  EXPECT_EQ(list->Text(1, 3).toStdString(), FormatDateTime(clock.Now() + 3600));
  // A lease that runs out leaves the list (the housekeeping runs every second).
  app->Housekeeping();
  clock.Advance(601);
  app->Housekeeping();
  RunEvents();
  EXPECT_EQ(Rows(), Strings{"pc1.lan.|10.0.0.101"});
}

TEST_F(LeaseListTest, DeleteAsksAndRemovesEveryLeaseOfThatClientOnlyAfterOK) {
  OpenWithLeases();
  ColList* list = window->listDHCP();
  list->setFocus();
  // No row chosen: nothing is asked.
  QTest::keyClick(list, Qt::Key_Delete);
  EXPECT_TRUE(boxes.shown.empty());

  list->SetListIndex(2);
  boxes.answer = MessageAnswer::Cancel;
  QTest::keyClick(list, Qt::Key_Delete);
  ASSERT_EQ(boxes.shown.size(), 1u);
  EXPECT_EQ(boxes.shown[0].text, "Please re-boot that client to avoid IP-Address conflicts!");
  EXPECT_EQ(boxes.shown[0].buttons, MessageButtons::OKCancel);
  EXPECT_EQ(boxes.shown[0].icon, MessageIcon::Information);
  EXPECT_EQ(LeasesOf("pc3.lan."), 2u);

  boxes.answer = MessageAnswer::OK;
  window->findChild<QAction*>("mnuDHCPDel")->trigger();
  RunEvents();
  EXPECT_EQ(LeasesOf("pc3.lan."), 0u);  // the expired one of the same client too
  EXPECT_EQ(LeasesOf("pc1.lan."), 1u);
  EXPECT_EQ(Rows(), Strings{"pc1.lan.|10.0.0.101"});
}

TEST_F(LeaseListTest, TheChosenRowStaysChosenWhenTheListIsRedrawn) {
  OpenWithLeases();
  window->listDHCP()->SetListIndex(2);
  window->DHCPRefresh();
  EXPECT_EQ(window->listDHCP()->ListIndex(), 2);
  EXPECT_EQ(window->listDHCP()->Text(2, 1), "pc3.lan.");
}

TEST_F(LeaseListTest, ARightClickOnARowOpensTheDHCPPopUp) {
  OpenWithLeases();
  ColList* list = window->listDHCP();
  const QRect second = list->visualItemRect(list->topLevelItem(1));
  QTest::mouseClick(list->viewport(), Qt::RightButton, {}, second.center());
  RunEvents();
  EXPECT_EQ(list->ListIndex(), 2);
  EXPECT_TRUE(window->mnuDHCP()->isVisible());
  EXPECT_EQ(window->mnuDHCP()->title(), "DHCP");
  window->mnuDHCP()->hide();
}

}  // namespace
