#include "wire/dns_codec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "support/fakes.h"

using namespace modDNS;

namespace {

std::string Header() { return Bytes({0x12, 0x34, 0x81, 0x80, 0, 1, 0, 3, 0, 0, 0, 0}); }

std::string Pointer(std::size_t offset) {
  return Bytes({static_cast<int>(offset / 256 + 192), static_cast<int>(offset % 256)});
}

std::string Zip(std::string_view message, std::string_view name) {
  RecordingErrorReporter errors;
  std::string wire = ZipName(message, name, errors);
  EXPECT_TRUE(errors.errors.empty()) << name;
  return wire;
}

// --- ZipName ---------------------------------------------------------------

struct ZipCase {
  const char* what;
  std::string message;
  std::string name;
  std::string expected;
};

class ZipNameTest : public testing::TestWithParam<ZipCase> {};

TEST_P(ZipNameTest, Encodes) {
  const ZipCase& c = GetParam();
  EXPECT_EQ(Zip(c.message, c.name), c.expected) << c.what;
}

const std::string kExampleCom = Bytes({7}) + "example" + Bytes({3}) + "com" + Bytes({0});

INSTANTIATE_TEST_SUITE_P(
    Cases, ZipNameTest,
    testing::Values(
        ZipCase{"empty is root", "", "", Bytes({0})},
        ZipCase{"dot is root", Header() + kExampleCom, ".", Bytes({0})},
        ZipCase{"only dots and blanks", "", " .. . ", Bytes({0})},
        ZipCase{"no trailing dot", "", "host.example.com",
                Bytes({4}) + "host" + kExampleCom},
        ZipCase{"trailing dot", "", "host.example.com.",
                Bytes({4}) + "host" + kExampleCom},
        ZipCase{"blanks and empty labels vanish", "", "  host . .example..com ",
                Bytes({4}) + "host" + kExampleCom},
        ZipCase{"case kept", "", "WwW.x", Bytes({3}) + "WwW" + Bytes({1}) + "x" + Bytes({0})},
        ZipCase{"suffix after header", Header() + kExampleCom, "mail.example.com",
                Bytes({4}) + "mail" + Bytes({192, 12})},
        ZipCase{"whole name present", Header() + kExampleCom, "example.com", Bytes({192, 12})},
        // The search is byte for byte, so case counts.
        ZipCase{"case differs", Header() + kExampleCom, "EXAMPLE.com",
                Bytes({7}) + "EXAMPLE" + Bytes({192, 20})},
        // The target is inside record data, not where a name starts.
        ZipCase{"suffix inside other data",
                Header() + Bytes({0, 1, 0, 1, 0, 4, 3}) + "com" + Bytes({0, 9}), "a.com",
                Bytes({1}) + "a" + Bytes({192, 18})},
        // Search is for the longest suffix first, even if a shorter one comes earlier.
        ZipCase{"longest suffix chosen",
                Header() + Bytes({3}) + "com" + Bytes({0}) + kExampleCom, "www.example.com",
                Bytes({3}) + "www" + Bytes({192, 17})},
        // Pass 1 gives www+pointer(12); pass 2 finds those exact bytes at 25.
        ZipCase{"www plus pointer on a later pass",
                Header() + kExampleCom + Bytes({3}) + "www" + Bytes({192, 12}),
                "www.example.com", Bytes({192, 25})},
        // Only the message is searched, never the name being written.
        ZipCase{"no pointer into the name itself", "", "a.a.a",
                Bytes({1}) + "a" + Bytes({1}) + "a" + Bytes({1}) + "a" + Bytes({0})},
        ZipCase{"label of 70 cut at 63", "", std::string(70, 'x') + ".com",
                Bytes({63}) + std::string(63, 'x') + Bytes({3}) + "com" + Bytes({0})},
        ZipCase{"label of 63 kept", "", std::string(63, 'y'),
                Bytes({63}) + std::string(63, 'y') + Bytes({0})},
        ZipCase{"label of 64 cut", "", std::string(64, 'z'),
                Bytes({63}) + std::string(63, 'z') + Bytes({0})}),
    [](const testing::TestParamInfo<ZipCase>& info) {
      std::string name = info.param.what;
      for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
      return name;
    });

TEST(ZipName, PointerOffsetLimit) {
  std::string message(16383, 'z');
  message += kExampleCom;
  EXPECT_EQ(Zip(message, "example.com"), Bytes({255, 255}));

  message.insert(0, "z");
  RecordingErrorReporter errors;
  EXPECT_EQ(ZipName(message, "example.com", errors), "");
  ASSERT_EQ(errors.errors.size(), 1u);
  EXPECT_EQ(errors.errors[0].tag, "modDNS ZipName");
  EXPECT_EQ(errors.errors[0].number, ErrorNumber::kInvalidCall);
  EXPECT_EQ(errors.errors[0].description, "Invalid procedure call or argument");
}

TEST(ZipName, BuiltMessageDecodesBack) {
  const std::vector<std::string> names = {
      "example.com", "www.example.com", "mail.EXAMPLE.com.", "www.example.com",
      "a.b.c.example.com", "b.c.example.com", "example.org", "www.example.org", ".", "x"};
  std::string message = Header();
  std::vector<int> offsets;
  for (const auto& name : names) {
    offsets.push_back(static_cast<int>(message.size()));
    message += Zip(message, name);
  }
  EXPECT_LT(message.size(), 100u) << "names were not compressed";
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::string expected;
    for (char c : names[i]) expected.push_back(static_cast<char>(tolower(c)));
    if (expected == ".") expected = "";
    else if (expected.back() != '.') expected += '.';
    EXPECT_EQ(UnzipName(message, offsets[i]), expected) << names[i];
  }
}

// --- Decoding hostile input ----------------------------------------------

// Name "end." at 0, then `count` pointers, each to the one before it.
std::string PointerChain(int count, int& last) {
  std::string message = Bytes({3}) + "end" + Bytes({0});
  std::size_t previous = 0;
  for (int i = 0; i < count; ++i) {
    std::size_t here = message.size();
    message += Pointer(previous);
    previous = here;
  }
  last = static_cast<int>(previous);
  return message;
}

struct HostileCase {
  const char* what;
  std::function<std::string(int&)> build;  // sets the offset to decode
  std::string expected;
  bool too_long;  // a pointer loop or overlong chain
};

class HostileNameTest : public testing::TestWithParam<HostileCase> {};

TEST_P(HostileNameTest, UnzipNameGivesResultWithoutCrash) {
  const HostileCase& c = GetParam();
  int offset = 12;
  std::string message = c.build(offset);
  RecordingErrorReporter errors;
  EXPECT_EQ(UnzipName(message, offset, errors), c.too_long ? "" : c.expected) << c.what;
  if (c.too_long) {
    ASSERT_EQ(errors.errors.size(), 1u) << c.what;
    EXPECT_EQ(errors.errors[0].tag, "modDNS UnzipName");
    EXPECT_EQ(errors.errors[0].number, ErrorNumber::kOutOfStack);
    EXPECT_EQ(errors.errors[0].description, "Out of stack space");
  } else {
    EXPECT_TRUE(errors.errors.empty()) << c.what;
  }
}

TEST_P(HostileNameTest, ExtractNameGivesResultWithoutCrash) {
  const HostileCase& c = GetParam();
  int offset = 12;
  std::string message = c.build(offset);
  // A remainder cannot start before the message: an empty one stands in.
  std::string_view remainder =
      offset < 0 ? std::string_view{}
                 : std::string_view(message).substr(
                       std::min(message.size(), static_cast<std::size_t>(offset)));
  RecordingErrorReporter errors;
  std::string name = ExtractName(message, remainder, true, errors);
  if (c.too_long) {
    EXPECT_EQ(name, "") << c.what;
    ASSERT_EQ(errors.errors.size(), 1u) << c.what;
    EXPECT_EQ(errors.errors[0].tag, "modDNS ExtractName");
    EXPECT_EQ(errors.errors[0].number, ErrorNumber::kOutOfStack);
    EXPECT_TRUE(remainder.empty());
  } else {
    EXPECT_EQ(name, c.expected.empty() ? "." : c.expected) << c.what;
    EXPECT_TRUE(errors.errors.empty()) << c.what;
    if (name == "incomplete.") {
      EXPECT_TRUE(remainder.empty()) << c.what;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, HostileNameTest,
    testing::Values(
        HostileCase{"self pointer", [](int&) { return Header() + Pointer(12); }, "", true},
        HostileCase{"two pointer loop",
                    [](int&) { return Header() + Pointer(14) + Pointer(12); }, "", true},
        HostileCase{"loop through labels",
                    [](int&) { return Header() + Bytes({3}) + "abc" + Pointer(12); }, "", true},
        HostileCase{"pointer out of bounds", [](int&) { return Header() + Bytes({0xC3, 0xFF}); },
                    "incomplete.", false},
        HostileCase{"labels then pointer out of bounds",
                    [](int&) { return Header() + Bytes({3}) + "www" + Bytes({0xFF, 0xFF}); },
                    "www.incomplete.", false},
        HostileCase{"pointer to a cut label run",
                    [](int&) { return Header() + Bytes({3}) + "www" + Pointer(18) + Bytes({3}) + "ab"; },
                    "www.incomplete.", false},
        HostileCase{"pointer cut in half", [](int&) { return Header() + Bytes({0xC0}); },
                    "incomplete.", false},
        HostileCase{"label past the end", [](int&) { return Header() + Bytes({5}) + "ab"; },
                    "incomplete.", false},
        HostileCase{"label without terminator", [](int&) { return Header() + Bytes({3}) + "abc"; },
                    "incomplete.", false},
        HostileCase{"offset at the end", [](int&) { return Header(); }, "incomplete.", false},
        HostileCase{"negative offset",
                    [](int& offset) {
                      offset = -1;
                      return Header() + kExampleCom;
                    },
                    "incomplete.", false},
        HostileCase{"length 64 to 191 read as plain length",
                    [](int&) { return Header() + Bytes({100}) + std::string(100, 'Q') + Bytes({0}); },
                    std::string(100, 'q') + ".", false},
        HostileCase{"upper case label",
                    [](int&) { return Header() + Bytes({7}) + "ExAmPle" + Bytes({0}); },
                    "example.", false},
        HostileCase{"root", [](int&) { return Header() + Bytes({0}); }, "", false},
        HostileCase{"chain of 127 pointers",
                    [](int& offset) { return PointerChain(127, offset); }, "end.", false},
        HostileCase{"chain of 128 pointers",
                    [](int& offset) { return PointerChain(128, offset); }, "end.", false},
        HostileCase{"chain of 129 pointers",
                    [](int& offset) { return PointerChain(129, offset); }, "", true}),
    [](const testing::TestParamInfo<HostileCase>& info) {
      std::string name = info.param.what;
      for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
      return name;
    });

// --- Reading a whole reply, cut at every byte --------------------------------

// A reply to www.example.com A: a CNAME to web.example.com, its A record and
// an MX for example.com, all compressed.
std::string ReplyMessage() {
  std::string m = Header();
  m += Bytes({3}) + "www" + kExampleCom + Bytes({0, 1, 0, 1});  // question at 12
  std::string rdata = Bytes({3}) + "web" + Pointer(16);
  m += Pointer(12) + Bytes({0, 5, 0, 1, 0, 0, 0x0E, 0x10, 0, static_cast<int>(rdata.size())});
  std::size_t web = m.size();
  m += rdata;
  m += Pointer(web) + Bytes({0, 1, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0, 4, 10, 0, 0, 7});
  std::string mx = Bytes({0, 10}) + Bytes({4}) + "MAIL" + Pointer(16);
  m += Pointer(16) + Bytes({0, 15, 0, 1, 0, 0, 0x0E, 0x10, 0, static_cast<int>(mx.size())}) + mx;
  return m;
}

struct Field {
  std::string value;
  std::size_t end;  // offset just after the field in the whole message
};

// Reads the reply's layout field by field, the way a caller would.
std::vector<Field> ReadReply(std::string_view message) {
  std::vector<Field> fields;
  std::string_view rest = message;
  auto end = [&] { return message.size() - rest.size(); };
  auto shorts = [&](int count) {
    for (int i = 0; i < count; ++i) fields.push_back({std::to_string(ExtractShort(rest, true)), end()});
  };
  auto name = [&] { fields.push_back({ExtractName(message, rest, true), end()}); };
  auto ttl = [&] { fields.push_back({std::to_string(ExtractLong(rest, true)), end()}); };
  shorts(6);
  name();
  shorts(2);
  for (int type : {5, 1, 15}) {
    name();
    shorts(2);
    ttl();
    shorts(1);
    if (type == 1) ttl();
    if (type == 15) shorts(1);
    if (type != 1) name();
  }
  return fields;
}

TEST(ReadReply, WholeMessage) {
  std::string message = ReplyMessage();
  std::vector<Field> fields = ReadReply(message);
  std::vector<std::string> values;
  for (const auto& f : fields) values.push_back(f.value);
  EXPECT_EQ(values, (std::vector<std::string>{
                        "4660", "33152", "1", "3", "0", "0", "www.example.com.", "1", "1",
                        "www.example.com.", "5", "1", "3600.000000", "6", "web.example.com.",
                        "web.example.com.", "1", "1", "2147483647.000000", "4", "167772167.000000",
                        "example.com.", "15", "1", "3600.000000", "9", "10", "mail.example.com."}));
  EXPECT_EQ(fields.back().end, message.size());
}

TEST(ReadReply, CutAtEveryByte) {
  const std::string message = ReplyMessage();
  const std::vector<Field> whole = ReadReply(message);
  for (std::size_t cut = 0; cut < message.size(); ++cut) {
    std::vector<Field> fields = ReadReply(std::string_view(message).substr(0, cut));
    ASSERT_EQ(fields.size(), whole.size());
    for (std::size_t i = 0; i < whole.size(); ++i) {
      if (whole[i].end <= cut) {
        EXPECT_EQ(fields[i].value, whole[i].value) << "cut " << cut << " field " << i;
      } else {
        EXPECT_TRUE(fields[i].value == "incomplete." || fields[i].value == "0" ||
                    fields[i].value == "0.000000")
            << "cut " << cut << " field " << i << ": " << fields[i].value;
      }
    }
  }
}

TEST(ExtractName, WithoutUpdateKeepsRemainder) {
  std::string message = Header() + kExampleCom + Bytes({4}) + "mail" + Pointer(12) + "tail";
  std::string_view rest = std::string_view(message).substr(25);
  EXPECT_EQ(ExtractName(message, rest, false), "mail.example.com.");
  EXPECT_EQ(rest.size(), 11u);
  EXPECT_EQ(ExtractName(message, rest, true), "mail.example.com.");
  EXPECT_EQ(rest, "tail");
}

// --- Numbers -------------------------------------------------------------------

struct NumberCase {
  std::string bytes;
  double value;
  std::size_t left;  // remainder bytes after an updating read
};

TEST(ExtractShort, Table) {
  for (const auto& c : std::vector<NumberCase>{{Bytes({}), 0, 0},
                                               {Bytes({7}), 0, 0},
                                               {Bytes({1, 2}), 258, 0},
                                               {Bytes({255, 255, 9}), 65535, 1}}) {
    std::string_view rest = c.bytes;
    EXPECT_EQ(ExtractShort(rest, false), c.value);
    EXPECT_EQ(rest.size(), c.bytes.size());
    EXPECT_EQ(ExtractShort(rest, true), c.value);
    EXPECT_EQ(rest.size(), c.left);
  }
}

TEST(ExtractLong, Table) {
  for (const auto& c : std::vector<NumberCase>{{Bytes({1, 2, 3}), 0, 0},
                                               {Bytes({0, 0, 0x0E, 0x10}), 3600, 0},
                                               {Bytes({0x7F, 255, 255, 255, 1}), 2147483647, 1},
                                               {Bytes({0x80, 0, 0, 0}), 2147483647, 0},
                                               {Bytes({255, 255, 255, 255}), 2147483647, 0},
                                               {Bytes({1, 2, 3, 4}), 16909060, 0}}) {
    std::string_view rest = c.bytes;
    EXPECT_EQ(ExtractLong(rest, false), c.value);
    EXPECT_EQ(rest.size(), c.bytes.size());
    EXPECT_EQ(ExtractLong(rest, true), c.value);
    EXPECT_EQ(rest.size(), c.left);
  }
}

TEST(MakeShort, Table) {
  EXPECT_EQ(MakeShort(0), Bytes({0, 0}));
  EXPECT_EQ(MakeShort(258), Bytes({1, 2}));
  EXPECT_EQ(MakeShort(65535), Bytes({255, 255}));
  EXPECT_EQ(MakeShort(65536 + 3), Bytes({0, 3}));
  EXPECT_EQ(MakeShort(-1), Bytes({0, 255}));  // the quotient truncates towards zero
}

TEST(MakeLong, Table) {
  struct Case {
    double value;
    std::string bytes;
  };
  for (const auto& c : std::vector<Case>{{0, Bytes({0, 0, 0, 0})},
                                         {3600, Bytes({0, 0, 0x0E, 0x10})},
                                         {3600.9, Bytes({0, 0, 0x0E, 0x10})},
                                         {16909060, Bytes({1, 2, 3, 4})},
                                         {2147483647, Bytes({0x7F, 255, 255, 255})},
                                         {-1, Bytes({255, 255, 255, 255})},
                                         {-2147483648.0, Bytes({0x80, 0, 0, 0})}}) {
    RecordingErrorReporter errors;
    EXPECT_EQ(MakeLong(c.value, errors), c.bytes) << c.value;
    EXPECT_TRUE(errors.errors.empty());
    std::string_view rest = c.bytes;
    if (c.value >= 0) {
      EXPECT_EQ(ExtractLong(rest, false), std::floor(c.value));
    }
  }
}

TEST(MakeLong, OverflowReported) {
  for (double value : {2147483648.0, -2147483649.0, 1e300, std::nan("")}) {
    RecordingErrorReporter errors;
    EXPECT_EQ(MakeLong(value, errors), "") << value;
    ASSERT_EQ(errors.errors.size(), 1u) << value;
    EXPECT_EQ(errors.errors[0].tag, "modDNS MakeLong");
    EXPECT_EQ(errors.errors[0].number, ErrorNumber::kOverflow);
    EXPECT_EQ(errors.errors[0].description, "Overflow");
  }
}

// --- Texts ---------------------------------------------------------------------

TEST(RTypeN, Table) {
  const std::vector<std::pair<int, std::string>> cases = {
      {1, "A"},      {2, "NS"},      {3, "MD"},    {4, "MF"},     {5, "CNAME"}, {6, "SOA"},
      {7, "MB"},     {8, "MG"},      {9, "MR"},    {10, "NULL"},  {11, "WKS"},  {12, "PTR"},
      {13, "HINFO"}, {14, "MINFO"},  {15, "MX"},   {16, "TXT"},   {252, "AXFR"}, {253, "MAILB"},
      {254, "MAILA"}, {255, "*"},    {-1, "A"},    {-15, "MX"},   {0, "?0?"},   {17, "?17?"},
      {99, "?99?"},  {251, "?251?"}, {256, "?256?"}, {-1001, "?1001?"}, {-32768, "?32768?"}};
  for (const auto& [type, text] : cases) EXPECT_EQ(RTypeN(type), text) << type;
}

TEST(RCodeN, Table) {
  const std::vector<std::pair<int, std::string>> cases = {
      {0, "No Error"},
      {1, "Format Error - could not interpret the query."},
      {2, "Server Failure."},
      {3, "Name does not exist!"},
      {4, "Not implemented - no support for this query type."},
      {5, "Refused - will not answer this client or this query type."},
      {6, "Unknown error."},
      {-1, "Unknown error."}};
  for (const auto& [code, text] : cases) EXPECT_EQ(RCodeN(code), text) << code;
}

}  // namespace
