#include "wire/dns_codec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <vector>

#include "support/fakes.h"

using namespace korvane;

using namespace modDNS;

namespace {

std::string Header() { return Bytes({0x12, 0x34, 0x81, 0x80, 0, 1, 0, 3, 0, 0, 0, 0}); }

std::string Pointer(std::size_t offset) {
  return Bytes({static_cast<int>(offset / 256 + 192), static_cast<int>(offset % 256)});
}

// One length-prefixed label.
std::string L(const std::string& label) { return Bytes({static_cast<int>(label.size())}) + label; }

const std::string kEnd = Bytes({0});
const std::string kExampleCom = L("example") + L("com") + kEnd;

void ExpectOneError(const RecordingErrorReporter& errors, const char* tag, int number,
                    const char* description) {
  ASSERT_EQ(errors.errors.size(), 1u) << tag;
  EXPECT_EQ(errors.errors[0].tag, tag);
  EXPECT_EQ(errors.errors[0].number, number);
  EXPECT_EQ(errors.errors[0].description, description);
}

// --- ZipName ---------------------------------------------------------------

TEST(ZipName, Table) {
  const std::string h = Header() + kExampleCom;  // example.com at 12
  const std::string x63 = std::string(63, 'x');
  struct Case {
    const char* what;
    std::string message, name, expected;
  } cases[] = {
      {"empty is root", "", "", kEnd},
      {"dot is root", h, ".", kEnd},
      {"only dots and blanks", "", " .. . ", kEnd},
      {"no trailing dot", "", "host.example.com", L("host") + kExampleCom},
      {"trailing dot", "", "host.example.com.", L("host") + kExampleCom},
      {"blanks and empty labels vanish", "", "  host . .example..com ", L("host") + kExampleCom},
      {"case kept", "", "WwW.x", L("WwW") + L("x") + kEnd},
      {"suffix after header", h, "mail.example.com", L("mail") + Pointer(12)},
      {"whole name present", h, "example.com", Pointer(12)},
      // The search is byte for byte, so case counts.
      {"case differs", h, "EXAMPLE.com", L("EXAMPLE") + Pointer(20)},
      // The target is inside record data, not where a name starts.
      {"suffix inside other data", Header() + Bytes({0, 1, 0, 1, 0, 4}) + L("com") + Bytes({0, 9}),
       "a.com", L("a") + Pointer(18)},
      // The longest suffix wins even when a shorter one comes earlier.
      {"longest suffix", Header() + L("com") + kEnd + kExampleCom, "www.example.com",
       L("www") + Pointer(17)},
      // Pass 1 gives www+pointer(12); pass 2 finds those exact bytes at 25.
      {"later pass", h + L("www") + Pointer(12), "www.example.com", Pointer(25)},
      // Only the message is searched, never the name being written.
      {"no pointer into the name itself", "", "a.a.a", L("a") + L("a") + L("a") + kEnd},
      {"label of 70 cut at 63", "", std::string(70, 'x') + ".com", L(x63) + L("com") + kEnd},
      {"label of 63 kept", "", x63, L(x63) + kEnd},
      {"label of 64 cut", "", x63 + "x", L(x63) + kEnd}};
  for (const Case& c : cases) {
    RecordingErrorReporter errors;
    EXPECT_EQ(ZipName(c.message, c.name, errors), c.expected) << c.what;
    EXPECT_TRUE(errors.errors.empty()) << c.what;
  }
}

TEST(ZipName, PointerOffsetLimit) {
  std::string message = std::string(16383, 'z') + kExampleCom;
  RecordingErrorReporter errors;
  EXPECT_EQ(ZipName(message, "example.com", errors), Bytes({255, 255}));
  EXPECT_TRUE(errors.errors.empty());
  EXPECT_EQ(ZipName("z" + message, "example.com", errors), "");
  ExpectOneError(errors, "modDNS ZipName", ErrorNumber::kInvalidCall, "Invalid procedure call or argument");
}

// --- Decoding hostile input ----------------------------------------------

// Name "end." at 0, then `count` pointers, each to the one before it; the
// last one is at 3 + 2 * count.
std::string PointerChain(int count) {
  std::string message = L("end") + kEnd + Pointer(0);
  for (int i = 1; i < count; ++i) message += Pointer(message.size() - 2);
  return message;
}

TEST(HostileNames, UnzipAndExtractGiveAResultWithoutCrash) {
  const std::optional<std::string> kTooLong;  // a pointer loop or overlong chain
  struct Case {
    const char* what;
    std::string message;
    int offset;
    std::optional<std::string> expected;
  } cases[] = {
      {"self pointer", Header() + Pointer(12), 12, kTooLong},
      {"two pointer loop", Header() + Pointer(14) + Pointer(12), 12, kTooLong},
      {"loop through labels", Header() + L("abc") + Pointer(12), 12, kTooLong},
      {"pointer out of bounds", Header() + Bytes({0xC3, 0xFF}), 12, "incomplete."},
      {"labels then pointer out of bounds", Header() + L("www") + Bytes({0xFF, 0xFF}), 12,
       "www.incomplete."},
      {"pointer to a cut label run", Header() + L("www") + Pointer(18) + Bytes({3}) + "ab", 12,
       "www.incomplete."},
      {"pointer cut in half", Header() + Bytes({0xC0}), 12, "incomplete."},
      {"label past the end", Header() + Bytes({5}) + "ab", 12, "incomplete."},
      {"label without terminator", Header() + L("abc"), 12, "incomplete."},
      {"offset at the end", Header(), 12, "incomplete."},
      {"negative offset", Header() + kExampleCom, -1, "incomplete."},
      {"length 64 to 191 is a plain length", Header() + L(std::string(100, 'Q')) + kEnd, 12,
       std::string(100, 'q') + "."},
      {"upper case label", Header() + L("ExAmPle") + kEnd, 12, "example."},
      {"root", Header() + kEnd, 12, ""},
      {"chain of 127 pointers", PointerChain(127), 257, "end."},
      {"chain of 128 pointers", PointerChain(128), 259, "end."},
      {"chain of 129 pointers", PointerChain(129), 261, kTooLong}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    RecordingErrorReporter unzipErrors, extractErrors;
    EXPECT_EQ(UnzipName(c.message, c.offset, unzipErrors), c.expected.value_or(""));
    // A remainder cannot start before the message: an empty one stands in.
    std::string_view rest = c.offset < 0 ? std::string_view{}
                                         : std::string_view(c.message).substr(std::min<std::size_t>(
                                               c.message.size(), static_cast<std::size_t>(c.offset)));
    std::string extracted = ExtractName(c.message, rest, true, extractErrors);
    if (!c.expected) {
      ExpectOneError(unzipErrors, "modDNS UnzipName", ErrorNumber::kOutOfStack, "Out of stack space");
      ExpectOneError(extractErrors, "modDNS ExtractName", ErrorNumber::kOutOfStack, "Out of stack space");
      EXPECT_EQ(extracted, "");
      EXPECT_TRUE(rest.empty());
      continue;
    }
    EXPECT_TRUE(unzipErrors.errors.empty() && extractErrors.errors.empty());
    EXPECT_EQ(extracted, c.expected->empty() ? "." : *c.expected);
    if (extracted == "incomplete.") {
      EXPECT_TRUE(rest.empty());
    }
  }
}

// --- Reading a whole reply, cut at every byte --------------------------------

// A reply to www.example.com A: a CNAME to web.example.com, its A record and
// an MX for example.com, all compressed.
std::string ReplyMessage() {
  std::string m = Header() + L("www") + kExampleCom + Bytes({0, 1, 0, 1});  // question at 12
  std::string rdata = L("web") + Pointer(16);
  m += Pointer(12) + Bytes({0, 5, 0, 1, 0, 0, 0x0E, 0x10, 0, static_cast<int>(rdata.size())});
  std::size_t web = m.size();
  m += rdata;
  m += Pointer(web) + Bytes({0, 1, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0, 4, 10, 0, 0, 7});
  std::string mx = Bytes({0, 10}) + L("MAIL") + Pointer(16);
  m += Pointer(16) + Bytes({0, 15, 0, 1, 0, 0, 0x0E, 0x10, 0, static_cast<int>(mx.size())}) + mx;
  return m;
}

struct Field {
  std::string value;
  std::size_t end;  // offset just after the field in the whole message
};

// Reads the reply's layout field by field, the way a caller would: s a
// short, l a long, n a name.
std::vector<Field> ReadReply(std::string_view message) {
  std::vector<Field> fields;
  std::string_view rest = message;
  for (char kind : std::string_view("ssssssnss" "nsslsn" "nsslsl" "nsslssn")) {
    std::string value = kind == 's'   ? std::to_string(ExtractShort(rest, true))
                        : kind == 'l' ? std::to_string(ExtractLong(rest, true))
                                      : ExtractName(message, rest, true);
    fields.push_back({value, message.size() - rest.size()});
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
  std::string message = Header() + kExampleCom + L("mail") + Pointer(12) + "tail";
  std::string_view rest = std::string_view(message).substr(25);
  EXPECT_EQ(ExtractName(message, rest, false), "mail.example.com.");
  EXPECT_EQ(rest.size(), 11u);
  EXPECT_EQ(ExtractName(message, rest, true), "mail.example.com.");
  EXPECT_EQ(rest, "tail");
}

// --- Numbers -------------------------------------------------------------------

TEST(ExtractNumbers, ShortAndLong) {
  struct Case {
    int width;
    std::string bytes;
    double value;
    std::size_t left;  // remainder bytes after an updating read
  } cases[] = {{2, Bytes({}), 0, 0},     {2, Bytes({7}), 0, 0},
               {2, Bytes({1, 2}), 258, 0}, {2, Bytes({255, 255, 9}), 65535, 1},
               {4, Bytes({1, 2, 3}), 0, 0}, {4, Bytes({1, 2, 3, 4}), 16909060, 0},
               {4, Bytes({0x7F, 255, 255, 255, 1}), 2147483647, 1},
               // The top bit set reads as the largest positive TTL.
               {4, Bytes({0x80, 0, 0, 0}), 2147483647, 0}, {4, Bytes({255, 255, 255, 255}), 2147483647, 0}};
  for (const Case& c : cases) {
    auto read = [&](std::string_view& rest, bool update) {
      return c.width == 2 ? ExtractShort(rest, update) : ExtractLong(rest, update);
    };
    std::string_view rest = c.bytes;
    EXPECT_EQ(read(rest, false), c.value) << c.value;
    EXPECT_EQ(rest.size(), c.bytes.size());
    EXPECT_EQ(read(rest, true), c.value) << c.value;
    EXPECT_EQ(rest.size(), c.left) << c.value;
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
  const std::vector<std::pair<double, std::string>> cases = {
      {0, Bytes({0, 0, 0, 0})},         {3600.9, Bytes({0, 0, 0x0E, 0x10})},
      {16909060, Bytes({1, 2, 3, 4})},  {2147483647, Bytes({0x7F, 255, 255, 255})},
      {-1, Bytes({255, 255, 255, 255})}, {-2147483648.0, Bytes({0x80, 0, 0, 0})}};
  for (const auto& [value, bytes] : cases) {
    RecordingErrorReporter errors;
    EXPECT_EQ(MakeLong(value, errors), bytes) << value;
    EXPECT_TRUE(errors.errors.empty());
  }
  for (double value : {2147483648.0, -2147483649.0, 1e300, std::nan("")}) {
    RecordingErrorReporter errors;
    EXPECT_EQ(MakeLong(value, errors), "") << value;
    ExpectOneError(errors, "modDNS MakeLong", ErrorNumber::kOverflow, "Overflow");
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
  const char* texts[] = {"No Error",
                         "Format Error - could not interpret the query.",
                         "Server Failure.",
                         "Name does not exist!",
                         "Not implemented - no support for this query type.",
                         "Refused - will not answer this client or this query type.",
                         "Unknown error."};
  for (int code = 0; code <= 6; ++code) EXPECT_EQ(RCodeN(code), texts[code]) << code;
  EXPECT_EQ(RCodeN(-1), "Unknown error.");
}

}  // namespace
