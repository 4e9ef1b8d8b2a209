#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "editor/perm_model.h"
#include "store/world.h"

using namespace korvane;
using namespace korvane::modEditor;

namespace {

using Lines = std::vector<std::string>;

const std::string kFile =
    "example.com. 3600 SOA ns1.example.com. h.example.com. 7 2 3 4 5\n"
    "sub.example.com. 3600 SOA ns1.example.com. h.example.com. 1 2 3 4 5\n"
    "example.com. 3600 NS ns1.example.com.\n"
    "www.example.com. 600 A 10.0.0.1\n"
    "a.sub.example.com. 600 A 10.0.0.2\n"
    "wwwexample.com. 600 A 10.0.0.3\n"
    "example.com. 3600 MX 10 mail.example.com.\n"
    "alias.example.com. 600 CNAME www.example.com.\n"
    "example.com. 86400 DHCP 192.168.0.100 192.168.0.200 255.255.255.0 192.168.0.1 \n"
    "zulu.org. 3600 SOA ns.zulu.org. h.zulu.org. 1 2 3 4 5\n";

struct ModelWorld : StoreWorld {
  ModelWorld() { localIPs = {"192.168.0.5"}; }
  PermModel Read(const std::string& text) {
    dir.Write("named.perm", text);
    auto entries = modDNS::ReadPermEntries(ctx);
    EXPECT_TRUE(entries);
    return PermModel(entries ? *entries : std::vector<clPermRec>{});
  }
};

Lines Rows(const PermModel& model) {
  Lines rows;
  for (const PermRow& row : model.RefreshList()) rows.push_back(row.type + "|" + row.name + "|" + row.data);
  return rows;
}

int IdOf(const PermModel& model, const std::string& type, const std::string& name) {
  for (const PermRow& row : model.RefreshList())
    if (row.type == type && row.name == name) return row.id;
  return 0;
}

uint32_t SerialOf(const std::vector<clPermRec>& entries, const std::string& domain) {
  for (const clPermRec& e : entries)
    if (e.RecType == RecordType::kSOA && e.Domain == domain) return modDNS::SoaData::Parse(e.Data).Serial;
  return 0;
}

TEST(PermModel, RowsOfEachLevel) {
  ModelWorld w;
  PermModel model = w.Read(kFile);
  EXPECT_EQ(model.Domains(), (Lines{"", "example.com", "sub.example.com", "zulu.org"}));
  EXPECT_EQ(Rows(model), (Lines{"Domain|example.com|Authority: Primary", "Domain|zulu.org|Authority: Primary",
                                "A|wwwexample.com|10.0.0.3"}));
  ASSERT_TRUE(model.SetCurDomain("example.com"));
  EXPECT_EQ(Rows(model), (Lines{"Domain|sub|Authority: Primary", "NS||ns1.example.com", "A|www|10.0.0.1",
                                "MX||10 mail.example.com", "CNAME|alias|www.example.com",
                                "DHCP||192.168.0.100 - 192.168.0.200"}));
  ASSERT_TRUE(model.SetCurDomain("sub.example.com"));
  EXPECT_EQ(Rows(model), (Lines{"A|a|10.0.0.2"}));
  EXPECT_FALSE(model.SetCurDomain("nowhere.example.com"));
  EXPECT_TRUE(model.UpOneLevel());
  EXPECT_EQ(model.CurDomain(), "example.com");
  EXPECT_TRUE(model.UpOneLevel());
  EXPECT_EQ(model.CurDomain(), "");
  EXPECT_FALSE(model.UpOneLevel());
  EXPECT_FALSE(model.Changed());
}

TEST(PermModel, DeletingADomainTakesEverythingInItAndBelowOnly) {
  ModelWorld w;
  PermModel model = w.Read(kFile);
  ASSERT_TRUE(model.SetCurDomain("sub.example.com"));
  model.SetCurItem(IdOf(model, "A", "a"));
  ASSERT_TRUE(model.SetCurDomain(""));
  ASSERT_TRUE(model.Delete(IdOf(model, "Domain", "example.com")));
  EXPECT_EQ(model.Domains(), (Lines{"", "zulu.org"}));
  EXPECT_EQ(Rows(model), (Lines{"Domain|zulu.org|Authority: Primary", "A|wwwexample.com|10.0.0.3"}));
  EXPECT_EQ(model.Entries().size(), 3u);
  EXPECT_TRUE(model.Changed());
  // The root is never deleted; an entry deleted twice is not there the second time.
  EXPECT_FALSE(model.Delete(model.DomainEntry("")));
  const int host = IdOf(model, "A", "wwwexample.com");
  EXPECT_TRUE(model.Delete(host));
  EXPECT_FALSE(model.Delete(host));
}

TEST(PermModel, ADomainDeletedWhileOneOfItsRecordsIsOpenRefusesTheRecord) {
  ModelWorld w;
  PermModel model = w.Read(kFile);
  ASSERT_TRUE(model.SetCurDomain("sub.example.com"));
  const int open = IdOf(model, "A", "a");
  clPermRec edited = *model.Entry(open);
  edited.Name = "b";
  ASSERT_TRUE(model.Delete(model.DomainEntry("sub.example.com")));
  const std::vector<clPermRec> before = model.Entries();
  EXPECT_EQ(model.AddRec(edited, open), 0);
  edited.Name = "c";
  EXPECT_EQ(model.AddRec(edited), 0);  // a new record for the gone domain
  EXPECT_EQ(model.Entries().size(), before.size());
  EXPECT_EQ(model.CurDomain(), "example.com");
}

TEST(PermModel, EntriesGoToTheLongestDomainThatHoldsThem) {
  ModelWorld w;
  PermModel model = w.Read(kFile);
  // A host typed with dots under example.com that lies in sub.example.com.
  const int id = model.AddRec({RecordType::kA, "example.com", "x.sub", modIP::IPToData("10.0.0.9"), 60, 0});
  ASSERT_NE(id, 0);
  EXPECT_EQ(model.Entry(id)->Domain, "sub.example.com");
  EXPECT_EQ(model.Entry(id)->Name, "x");
  // A new domain takes over the entries that now lie in it.
  ASSERT_NE(model.AddRec({RecordType::kSOA, "www.example.com", "", "", 60, kAuthorityNone}), 0);
  ASSERT_TRUE(model.SetCurDomain("www.example.com"));
  EXPECT_EQ(Rows(model), (Lines{"A||10.0.0.1"}));
  // Renamed, a domain takes its entries and sub-domains along.
  const int example = model.DomainEntry("example.com");
  clPermRec renamed = *model.Entry(example);
  renamed.Domain = "example.net";
  ASSERT_EQ(model.AddRec(renamed, example), example);
  EXPECT_EQ(model.Domains(), (Lines{"", "example.net", "sub.example.net", "www.example.net", "zulu.org"}));
  EXPECT_EQ(model.CurDomain(), "www.example.net");
  ASSERT_TRUE(model.SetCurDomain("sub.example.net"));
  EXPECT_EQ(Rows(model), (Lines{"A|a|10.0.0.2", "A|x|10.0.0.9"}));
}

TEST(PermModel, ANewEntryFollowsTheLastOfItsDomainAndAnEditKeepsItsPlace) {
  ModelWorld w;
  PermModel model = w.Read(kFile);
  const int added = model.AddRec({RecordType::kA, "sub.example.com", "b", modIP::IPToData("10.0.0.8"), 60, 0});
  const std::vector<int> ids = model.Ids();
  const auto at = [&](int id) { return std::find(ids.begin(), ids.end(), id) - ids.begin(); };
  ASSERT_TRUE(model.SetCurDomain("sub.example.com"));
  EXPECT_EQ(at(added), at(IdOf(model, "A", "a")) + 1);
  clPermRec changed = *model.Entry(added);
  changed.Data = modIP::IPToData("10.0.0.7");
  EXPECT_EQ(model.AddRec(changed, added), added);
  EXPECT_EQ(model.Ids(), ids);
  EXPECT_EQ(Rows(model), (Lines{"A|a|10.0.0.2", "A|b|10.0.0.7"}));
}

TEST(PermModel, ASaveRaisesTheSerialOfEachChangedDomainOnce) {
  ModelWorld w;
  PermModel model = w.Read(kFile + "top.org. 60 SOA ns.top.org. h.top.org. 2147483647 1 1 1 1\n");
  model.AddRec({RecordType::kA, "sub.example.com", "b", modIP::IPToData("10.0.0.8"), 60, 0});
  model.AddRec({RecordType::kA, "top.org", "c", modIP::IPToData("10.0.0.8"), 60, 0});
  model.AddRec({RecordType::kSOA, "new.org", "", modDNS::SoaData{"ns.new.org.", "h.new.org.", 1, 1, 1, 1, 1}.Pack(),
                60, kAuthorityPrimary});
  model.AddRec({RecordType::kA, "new.org", "d", modIP::IPToData("10.0.0.8"), 60, 0});
  const std::vector<clPermRec> saved = model.ForSave();
  EXPECT_EQ(SerialOf(saved, "sub.example.com"), 2u);
  EXPECT_EQ(SerialOf(saved, "example.com"), 7u);  // unchanged
  EXPECT_EQ(SerialOf(saved, "top.org"), 1u);      // past the largest the file holds
  EXPECT_EQ(SerialOf(saved, "new.org"), 1u);      // made since the last save
  model.Saved();
  EXPECT_FALSE(model.Changed());
  EXPECT_EQ(SerialOf(model.Entries(), "sub.example.com"), 2u);
  EXPECT_EQ(SerialOf(model.ForSave(), "sub.example.com"), 2u);
  model.Delete(model.DomainEntry("sub.example.com"));
  EXPECT_EQ(SerialOf(model.ForSave(), "example.com"), 8u);
  EXPECT_EQ(SerialOf(model.ForSave(), "new.org"), 1u);
}

// Written and loaded again, the model's entries make the same records as
// the file they were read from.
void ExpectRoundTrip(const std::string& text) {
  ModelWorld original, rewritten;
  PermModel model = original.Read(text);
  ASSERT_TRUE(modDNS::LoadFile(original.ctx, original.dir.File("named.perm"), true, false));
  ASSERT_TRUE(modDNS::WritePerm(rewritten.ctx, model.ForSave()));
  ASSERT_TRUE(modDNS::LoadFile(rewritten.ctx, rewritten.dir.File("named.perm"), true, false));
  EXPECT_EQ(rewritten.Dump(), original.Dump());
  EXPECT_EQ(rewritten.DhcpDump(), original.DhcpDump());
  EXPECT_EQ(Rows(rewritten.Read(rewritten.dir.Read("named.perm"))), Rows(model));
}

TEST(PermModel, RoundTripOfTheExampleFolder) {
  std::ifstream in(std::string(KORVANE_SOURCE_DIR) + "/examples/office/named.perm", std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  ASSERT_FALSE(text.str().empty());
  ExpectRoundTrip(text.str());
  ExpectRoundTrip(kFile);
}

TEST(PermModel, RoundTripOfALargeFile) {
  std::string text;
  for (int d = 0; d < 40; ++d) {
    const std::string domain = "d" + std::to_string(d) + ".example";
    text += domain + ". 3600 SOA ns1." + domain + ". hostmaster." + domain + ". " + std::to_string(d + 1) +
            " 10800 3600 604800 3600\n";
    text += domain + ". NS ns1." + domain + ".\n" + domain + ".\tIN 3600 MX 10 mail." + domain + ".\n";
    if (d % 4 == 0)
      text += "lab." + domain + ". 3600 SOA ns1." + domain + ". h." + domain + ". 1 2 3 4 5\n";
    for (int h = 0; h < 120; ++h) {
      const std::string host = "h" + std::to_string(h) + (h % 7 == 0 ? ".lab." : ".") + domain;
      text += host + ". " + std::to_string(60 + h) + " A 10." + std::to_string(d) + "." + std::to_string(h / 250) +
              "." + std::to_string(h % 250 + 1) + "\n";
      if (h % 10 == 0) text += "c" + std::to_string(h) + "." + domain + ". CNAME " + host + ".\n";
    }
  }
  text += "pool.d1.example. 7200 DHCP 192.168.0.10 192.168.0.90 255.255.255.0 0.0.0.0\n";
  ExpectRoundTrip(text);
}

}  // namespace
