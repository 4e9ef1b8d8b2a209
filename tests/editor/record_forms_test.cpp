#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "editor/record_forms.h"
#include "store/record.h"
#include "wire/ip.h"
#include "wire/soa_data.h"

using namespace korvane;
using namespace korvane::modEditor;

namespace {

using F = RecordField;

// example.com with www A 10.0.0.1, alias CNAME, NS ns1 and MX mail; the
// editing id of each row is one of these.
struct Fixture {
  PermModel model;
  int www = 0, alias = 0, ns = 0, mx = 0, domain = 0;
  Fixture() {
    const std::string soa = modDNS::SoaData{"ns1.example.com.", "h.example.com.", 5, 1, 2, 3, 4}.Pack();
    domain = model.AddRec({RecordType::kSOA, "example.com", "", soa, 3600, kAuthorityPrimary});
    model.AddRec({RecordType::kSOA, "other.org", "", soa, 3600, kAuthorityNone});
    www = model.AddRec({RecordType::kA, "example.com", "www", modIP::IPToData("10.0.0.1"), 60, 0});
    alias = model.AddRec({RecordType::kCNAME, "example.com", "alias", "www.example.com.", 60, 0});
    ns = model.AddRec({RecordType::kNS, "example.com", "", "ns1.example.com.", 60, 0});
    mx = model.AddRec({RecordType::kMX, "example.com", "", "mail.example.com.", 60, 10});
  }
  int Id(const std::string& which) const {
    if (which == "www") return www;
    if (which == "alias") return alias;
    if (which == "ns") return ns;
    if (which == "mx") return mx;
    if (which == "domain") return domain;
    return 0;
  }
};

const std::string kPass;
const std::string kBad = kInvalidName;

struct HostRow {
  const char* name;
  const char* address;
  int32_t ttl;
  const char* editing;
  std::string message;
  F focus;
};

TEST(RecordForms, HostChecksInOrder) {
  const std::string longLabel(64, 'a');
  const HostRow rows[] = {
      {"pc", "", 60, "", "Invalid IP Address!", F::kData},
      {"pc", "255.255.255.255", 60, "", "Invalid IP Address!", F::kData},
      {"pc", "0.0.0.0", 60, "", "Invalid IP Address!", F::kData},
      {"pc", "300.1.1.1", 60, "", "Invalid IP Address!", F::kData},
      {"pc", "10.0.0", 60, "", "Invalid IP Address!", F::kData},
      {"pc", "10..0.1", 60, "", "Invalid IP Address!", F::kData},
      {"WWW.", "10.0.0.1", 60, "", "Record already exists!", F::kData},
      {"www", "10.0.0.1", 60, "www", kPass, F::kNone},  // itself, edited
      {"www", "10.0.0.2", 60, "", kPass, F::kNone},     // a second address
      {"alias", "10.0.0.2", 60, "", "CNAME-Record already exists for this name!", F::kName},
      {"", "10.0.0.2", 60, "", kPass, F::kNone},  // the domain's own address
      {"my host", "10.0.0.2", 60, "", kBad, F::kName},
      {"my_host", "10.0.0.2", 60, "", kBad, F::kName},
      {"a..b", "10.0.0.2", 60, "", kBad, F::kName},
      {longLabel.c_str(), "10.0.0.2", 60, "", kBad, F::kName},
      {" Upper.Case. ", "10.0.0.2", 60, "", kPass, F::kNone},
      {"pc", "10.0.0.2", 0, "", kZeroTTL, F::kTTL},
  };
  Fixture f;
  for (const HostRow& row : rows) {
    SCOPED_TRACE(std::string(row.name) + " " + row.address);
    const RecordCheck check = CheckHost({"example.com", row.name, row.address, row.ttl}, f.model, f.Id(row.editing));
    EXPECT_EQ(check.message, row.message);
    EXPECT_EQ(check.focus, row.focus);
  }
  const clPermRec entry = HostEntry({"example.com", " Upper.Case. ", "10.0.0.2", 60});
  EXPECT_EQ(entry.Name, "upper.case");
  EXPECT_EQ(entry.Data, modIP::IPToData("10.0.0.2"));
}

struct NameRow {
  const char* kind;  // "ns", "mx", "cname"
  const char* name;
  const char* data;
  int32_t pref;
  int32_t ttl;
  const char* editing;
  std::string message;
  F focus;
};

RecordCheck Check(const NameRow& row, const Fixture& f) {
  const std::string kind = row.kind;
  if (kind == "ns") return CheckNS({"example.com", row.data, row.ttl}, f.model, f.Id(row.editing));
  if (kind == "mx") return CheckMX({"example.com", row.data, row.pref, row.ttl}, f.model, f.Id(row.editing));
  return CheckCNAME({"example.com", row.name, row.data, row.ttl}, f.model, f.Id(row.editing));
}

TEST(RecordForms, NameServerMailServerAndAliasChecksInOrder) {
  const NameRow rows[] = {
      {"ns", "", " ", 0, 60, "", "Please enter Name Server.", F::kData},
      {"ns", "", "NS1.example.com.", 0, 60, "", "Record already exists!", F::kData},
      {"ns", "", "ns1.example.com", 0, 60, "ns", kPass, F::kNone},
      {"ns", "", "ns 2.example.com", 0, 60, "", kBad, F::kData},
      {"ns", "", "ns2.example.com", 0, 0, "", kZeroTTL, F::kTTL},
      {"mx", "", "", 10, 60, "", "Please enter Mail Server.", F::kData},
      {"mx", "", "mail.example.com", 20, 60, "", "Record already exists!", F::kData},
      {"mx", "", "mail.example.com", 20, 60, "mx", kPass, F::kNone},
      {"mx", "", "mx_2.example.com", 20, 60, "", kBad, F::kData},
      {"mx", "", "mx2.example.com", 65536, 60, "", "Invalid preference!", F::kPref},
      {"mx", "", "mx2.example.com", -1, 60, "", "Invalid preference!", F::kPref},
      {"mx", "", "mx2.example.com", 65535, 0, "", kZeroTTL, F::kTTL},
      {"cname", "", "www.example.com", 0, 60, "", "Please enter host name!", F::kName},
      {"cname", "ftp", "", 0, 60, "", "Please enter Alias for", F::kData},
      {"cname", "www", "web.example.com", 0, 60, "", "A-Record already exists for this name!", F::kName},
      {"cname", "Alias", "web.example.com", 0, 60, "", "Record already exist!", F::kName},
      {"cname", "alias", "web.example.com", 0, 60, "alias", kPass, F::kNone},
      {"cname", "f tp", "www.example.com", 0, 60, "", kBad, F::kName},
      {"cname", "ftp", "www..example.com", 0, 60, "", kBad, F::kData},
      {"cname", "ftp", "www.example.com.", 0, 0, "", kZeroTTL, F::kTTL},
  };
  Fixture f;
  for (const NameRow& row : rows) {
    SCOPED_TRACE(std::string(row.kind) + " " + row.name + " " + row.data);
    const RecordCheck check = Check(row, f);
    EXPECT_EQ(check.message, row.message);
    EXPECT_EQ(check.focus, row.focus);
    // Asking for a missing entry carries the information icon.
    EXPECT_EQ(check.information, row.message.starts_with("Please enter"));
  }
  EXPECT_EQ(NSEntry({"example.com", " NS2.Example.com. ", 60}).Data, "ns2.example.com.");
  const clPermRec mx = MXEntry({"example.com", "mx2.example.com", 20, 60});
  EXPECT_EQ(mx.Data, "mx2.example.com.");
  EXPECT_EQ(mx.Pref, 20);
  EXPECT_EQ(CNAMEEntry({"example.com", "FTP", "www.example.com", 60}).Data, "www.example.com.");
}

struct DomainRow {
  const char* name;
  int32_t authority;
  const char* primary;
  const char* email;
  const char* editing;
  std::string message;
  F focus;
};

TEST(RecordForms, DomainChecksInOrder) {
  const DomainRow rows[] = {
      {"new.org", kAuthorityPrimary, " ", "h@new.org", "", "Please enter Primary DNS server!", F::kPrim},
      {"new.org", kAuthoritySecondary, "", "h@new.org", "", "Please enter Primary DNS server!", F::kPrim},
      {"new.org", kAuthorityNone, "", "h@new.org", "", kPass, F::kNone},
      {"new.org", kAuthorityPrimary, "ns1", "h@new.org", "", "Please specify another Primary DNS server!", F::kPrim},
      {"new.org", kAuthorityPrimary, "192.168.0.1", "h@new.org", "", "Please specify another Primary DNS server!",
       F::kPrim},
      {"new.org", kAuthorityPrimary, "ns_1.new.org", "h@new.org", "", "Please specify another Primary DNS server!",
       F::kPrim},
      {"new.org", kAuthoritySecondary, "DNS.Self.Example.", "h@new.org", "",
       "Please specify another Primary DNS server!", F::kPrim},
      {"new.org", kAuthorityPrimary, "dns.self.example", "h@new.org", "", kPass, F::kNone},
      {"new.org", kAuthoritySecondary, "ns.new.org", "hostmaster", "", "Invalid e-mail address!", F::kEMail},
      {"new.org", kAuthorityPrimary, "ns.new.org", "@new.org", "", "Invalid e-mail address!", F::kEMail},
      {"new.org", kAuthorityPrimary, "ns.new.org", "h@", "", "Invalid e-mail address!", F::kEMail},
      {"  ", kAuthorityPrimary, "ns.new.org", "h@new.org", "", "Please enter Domain Name.", F::kName},
      {"Example.COM.", kAuthorityPrimary, "ns.new.org", "h@new.org", "", "Domain already exists!", F::kName},
      {"example.com", kAuthorityPrimary, "ns.new.org", "h@new.org", "domain", kPass, F::kNone},
      {"other.org", kAuthorityPrimary, "ns.new.org", "h@new.org", "domain", "Domain already exists!", F::kName},
      {"new org", kAuthorityPrimary, "ns.new.org", "h@new.org", "", kBad, F::kName},
  };
  Fixture f;
  for (const DomainRow& row : rows) {
    SCOPED_TRACE(std::string(row.name) + " " + row.primary + " " + row.email);
    DomainForm form;
    form.name = row.name;
    form.authority = row.authority;
    form.primary = row.primary;
    form.email = row.email;
    const RecordCheck check = CheckDomain(form, f.model, f.Id(row.editing), "dns.self.example");
    EXPECT_EQ(check.message, row.message);
    EXPECT_EQ(check.focus, row.focus);
  }
}

TEST(RecordForms, DomainEntryStoresTheStartOfAuthority) {
  Fixture f;
  DomainForm form;
  form.name = "New.Org";
  form.primary = "NS1.new.org";
  form.email = "john.doe@New.Org";
  form = {form.name, kAuthoritySecondary, form.primary, CleanEMail(form.email), 1, 2, 3, 4};
  EXPECT_EQ(form.email, "john-doe@new.org");
  clPermRec entry = DomainEntry(form, nullptr);
  EXPECT_EQ(entry.Domain, "new.org");
  EXPECT_EQ(entry.Pref, kAuthoritySecondary);
  EXPECT_EQ(entry.TTL, 4);
  EXPECT_EQ(entry.Data, (modDNS::SoaData{"ns1.new.org.", "john-doe.new.org.", 1, 1, 2, 3, 4}.Pack()));
  // Edited, a domain keeps its serial and TTL, and its fields read back.
  const clPermRec* edited = f.model.Entry(f.domain);
  entry = DomainEntry(DomainFormOf(*edited), edited);
  EXPECT_EQ(entry.Data, edited->Data);
  EXPECT_EQ(entry.TTL, edited->TTL);
  EXPECT_EQ(DomainFormOf(*edited).email, "h@example.com");
}

TEST(RecordForms, EMailFieldBehaviour) {
  const std::pair<std::string, std::string> defaults[] = {
      {"Office.Example", "hostmaster@office.example"}, {"", ""}, {"<root>", ""}, {".office.example", "hostmaster@office.example"}};
  for (const auto& [name, email] : defaults) EXPECT_EQ(DefaultEMail(name), email) << name;
  const std::pair<std::string, std::string> cleaned[] = {
      {"John.Doe@Example.COM.", "john-doe@example.com"}, {"no-at-sign", "no-at-sign"}, {" a b@c d", "ab@cd"}};
  for (const auto& [typed, email] : cleaned) EXPECT_EQ(CleanEMail(typed), email) << typed;
}

TEST(RecordForms, NewSubDomainStartsFromItsParent) {
  Fixture f;
  DomainForm sub = NewDomainForm(f.model, "example.com", "dns.self.example");
  EXPECT_EQ(sub.name, ".example.com");
  EXPECT_EQ(sub.primary, "ns1.example.com");
  EXPECT_EQ(sub.authority, kAuthorityPrimary);
  EXPECT_EQ(sub.refresh, 1);
  EXPECT_EQ(sub.email, "");
  DomainForm top = NewDomainForm(f.model, "", "dns.self.example");
  EXPECT_EQ(top.name, "");
  EXPECT_EQ(top.primary, "dns.self.example");
  EXPECT_EQ(top.refresh, 10800);
}

}  // namespace
