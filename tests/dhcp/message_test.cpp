// Reading a client's message and building a reply, without a server.
#include <gtest/gtest.h>

#include <utility>

#include "dhcp_world.h"

using namespace korvane;

namespace {

using modDHCP::ParseOutcome;

const clDHCPif kInterface{"10.0.0.1", "10.0.0.10", "10.0.0.20", "255.255.255.0", "0.0.0.0", 86400,
                          "example.com."};

// The fixed header and cookie of the test client (no option byte yet).
std::string Header(const Client& c = Client{}) { return MessageBody(-1, c); }

const char* OutcomeName(ParseOutcome outcome) {
  switch (outcome) {
    case ParseOutcome::kRead: return "read";
    case ParseOutcome::kIncomplete: return "incomplete";
    case ParseOutcome::kNotRequest: return "not a request";
    case ParseOutcome::kNoInterface: return "no interface";
  }
  return "?";
}

// --- ParseMessage ----------------------------------------------------------

TEST(DhcpParse, OptionWalk) {
  const std::string end = "\xff";
  const std::string pad(1, '\0');
  struct {
    const char* what;
    std::string options;
    ParseOutcome outcome;
    int type = 0;
    std::string serverID{}, reqIP{}, clientID{}, clientName{}, domainName{};
  } cases[] = {
      {"end at once", end, ParseOutcome::kRead},
      {"pad before end", pad + pad + end, ParseOutcome::kRead},
      {"message type", Option(53, "\x03") + end, ParseOutcome::kRead, 3},
      {"empty message type", Option(53, "") + end, ParseOutcome::kRead, 0},
      {"later type wins", Option(53, "\x01") + Option(53, "\x07") + end, ParseOutcome::kRead, 7},
      {"server identifier", Option(54, Bytes({10, 0, 0, 1})) + end, ParseOutcome::kRead, 0, "10.0.0.1"},
      {"requested address", Option(50, Bytes({10, 0, 0, 17})) + end, ParseOutcome::kRead, 0, "",
       "10.0.0.17"},
      {"client identifier", Option(61, Bytes({1, 0xAA, 0})) + end, ParseOutcome::kRead, 0, "", "",
       Bytes({1, 0xAA, 0})},
      {"host name", Option(12, "PC1.Example.com") + end, ParseOutcome::kRead, 0, "", "", "", "pc1",
       "pc1.example.com."},
      {"host name cut at NUL", Option(12, std::string("abc\0def.x", 9)) + end, ParseOutcome::kRead, 0,
       "", "", "", "abc", "abc.example.com."},
      {"host name of a dot only", Option(12, ".lan") + end, ParseOutcome::kRead},
      {"unknown option skipped by its length", Option(99, Bytes({53, 1, 5})) + Option(53, "\x01") + end,
       ParseOutcome::kRead, 1},
      {"bytes after the end", end + Option(53, "\x01"), ParseOutcome::kRead, 0},
      {"no option byte", "", ParseOutcome::kIncomplete},
      {"pad only", pad + pad, ParseOutcome::kIncomplete},
      {"no end option", Option(53, "\x01"), ParseOutcome::kIncomplete},
      {"code without length", Option(53, "\x01") + "\x0c", ParseOutcome::kIncomplete},
      {"length beyond the data", Bytes({12, 5}) + "abc", ParseOutcome::kIncomplete},
      {"data up to the last byte", Bytes({12, 3}) + "abc", ParseOutcome::kIncomplete},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    modDHCP::ParsedMessage parsed = modDHCP::ParseMessage(Header() + c.options, &kInterface);
    ASSERT_EQ(OutcomeName(parsed.outcome), std::string(OutcomeName(c.outcome)));
    if (c.outcome != ParseOutcome::kRead) continue;
    const clDHCPRequest& r = parsed.request;
    EXPECT_EQ(parsed.messageType, c.type);
    EXPECT_EQ(parsed.serverIdentifier, c.serverID);
    EXPECT_EQ(r.ReqIP, c.reqIP);
    EXPECT_EQ(r.ClientID, c.clientID);
    EXPECT_EQ(r.ClientName, c.clientName);
    EXPECT_EQ(r.DomainName, c.domainName);
    EXPECT_EQ(r.Interface, &kInterface);
  }
}

// The size rule comes first, then op, then the interface; the options are
// read only after all three.
TEST(DhcpParse, WhyNotReadInOrder) {
  std::string complete = Header() + "\xff";
  std::string reply = complete;
  reply[0] = 2;
  struct {
    const char* what;
    std::string bytes;
    const clDHCPif* interface;
    ParseOutcome outcome;
  } cases[] = {
      {"header alone", Header(), &kInterface, ParseOutcome::kIncomplete},
      {"short reply", reply.substr(0, 240), &kInterface, ParseOutcome::kIncomplete},
      {"short, no interface", Header(), nullptr, ParseOutcome::kIncomplete},
      {"reply", reply, &kInterface, ParseOutcome::kNotRequest},
      {"reply, no interface", reply, nullptr, ParseOutcome::kNotRequest},
      {"reply with cut options", reply.substr(0, 240) + "\x0c", &kInterface, ParseOutcome::kNotRequest},
      {"no interface", complete, nullptr, ParseOutcome::kNoInterface},
      {"no interface, cut options", Header() + "\x0c", nullptr, ParseOutcome::kNoInterface},
      {"request", complete, &kInterface, ParseOutcome::kRead},
  };
  for (const auto& c : cases)
    EXPECT_EQ(OutcomeName(modDHCP::ParseMessage(c.bytes, c.interface).outcome),
              std::string(OutcomeName(c.outcome)))
        << c.what;
}

TEST(DhcpParse, HeaderFields) {
  Client c;
  c.ciaddr = "10.0.0.14";
  c.cookie = "nope";  // not checked
  modDHCP::ParsedMessage parsed = modDHCP::ParseMessage(Header(c) + "\xff", &kInterface);
  ASSERT_EQ(parsed.outcome, ParseOutcome::kRead);
  EXPECT_EQ(parsed.request.txID, Bytes({0x12, 0x34, 0x56, 0x78}));
  EXPECT_EQ(parsed.request.ClientIP, "10.0.0.14");
  EXPECT_EQ(parsed.request.HWType, 1);
  EXPECT_EQ(parsed.request.HWAddr, c.mac);
  EXPECT_EQ(parsed.request.WSIndex, 0);
}

// A client is known by option 61 when it sends one with data, else by
// htype and the hlen bytes from chaddr on.
TEST(DhcpParse, IdentityAndHardwareAddress) {
  const std::string mac = Bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55});
  const std::string twenty = "ABCDEFGHIJKLMNOPQRST";
  struct {
    const char* what;
    int htype, hlen;
    std::string chaddr;  // the bytes from chaddr on, 208 at least
    std::optional<std::string> clientID;
    std::string hwAddr, identity;
  } cases[] = {
      {"no option 61", 1, 6, mac, std::nullopt, mac, "\x01" + mac},
      {"empty option 61", 1, 6, mac, "", mac, "\x01" + mac},
      {"option 61", 1, 6, mac, Bytes({1, 0xAA}), mac, Bytes({1, 0xAA})},
      {"other hardware type", 6, 6, mac, std::nullopt, mac, "\x06" + mac},
      {"no hardware address", 1, 0, mac, std::nullopt, "", "\x01"},
      {"into sname", 1, 20, twenty, std::nullopt, twenty, "\x01" + twenty},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Client client;
    client.clientID = c.clientID;
    std::string bytes = Header(client);
    bytes[1] = static_cast<char>(c.htype);
    bytes[2] = static_cast<char>(c.hlen);
    bytes.replace(28, c.chaddr.size(), c.chaddr);
    modDHCP::ParsedMessage parsed = modDHCP::ParseMessage(bytes + "\xff", &kInterface);
    ASSERT_EQ(parsed.outcome, ParseOutcome::kRead);
    EXPECT_EQ(parsed.request.HWType, c.htype);
    EXPECT_EQ(parsed.request.HWAddr, c.hwAddr);
    EXPECT_EQ(parsed.request.Identity, c.identity);
  }
}

TEST(DhcpParse, HardwareLengthBeyondTheMessageStopsAtItsEnd) {
  std::string bytes = Header() + "\xff";
  bytes[2] = static_cast<char>(255);
  modDHCP::ParsedMessage parsed = modDHCP::ParseMessage(bytes, &kInterface);
  ASSERT_EQ(parsed.outcome, ParseOutcome::kRead);
  EXPECT_EQ(parsed.request.HWAddr, bytes.substr(28));
}

// --- BuildReply ------------------------------------------------------------

using OptionList = std::vector<std::pair<int, std::string>>;

// The reply's options in order, up to the end option.
OptionList OptionsOf(const std::string& reply) {
  OptionList out;
  std::size_t at = 240;
  while (at < reply.size() && static_cast<unsigned char>(reply[at]) != 255) {
    std::size_t length = static_cast<unsigned char>(reply.at(at + 1));
    out.emplace_back(static_cast<unsigned char>(reply[at]), reply.substr(at + 2, length));
    at += 2 + length;
  }
  EXPECT_EQ(at + 1, reply.size()) << "the end option closes the reply";
  return out;
}

clDHCPRequest SampleRequest() {
  clDHCPRequest r;
  r.HWType = 1;
  r.HWAddr = Bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55});
  r.txID = Bytes({0x12, 0x34, 0x56, 0x78});
  r.ClientIP = "0.0.0.0";
  r.ClientName = "pc1";
  return r;
}

TEST(DhcpBuildReply, OptionsInOrder) {
  const std::string subnet = Bytes({255, 255, 255, 0}), server = Bytes({10, 0, 0, 1});
  const std::string day = Bytes({0, 1, 81, 128});
  struct {
    const char* what;
    std::string clientID, clientName, gateway, dnsBind, domain;
    int32_t ttl;
    OptionList expected;
  } cases[] = {
      {"plain", "", "pc1", "0.0.0.0", "", "example.com.", 86400,
       {{53, "\x05"}, {1, subnet}, {54, server}, {51, day}, {6, server}, {12, "pc1"}, {15, "example.com"}}},
      {"identifier, gateway, bound DNS", "\x01id", "pc1", "10.0.0.254", "10.0.0.53", "example.com.", 3600,
       {{53, "\x05"}, {61, "\x01id"}, {1, subnet}, {54, server}, {51, Bytes({0, 0, 14, 16})},
        {6, Bytes({10, 0, 0, 53})}, {3, Bytes({10, 0, 0, 254})}, {12, "pc1"}, {15, "example.com"}}},
      {"no name, domain cleaned", "", "", "0.0.0.0", "", "Example.COM.", 86400,
       {{53, "\x05"}, {1, subnet}, {54, server}, {51, day}, {6, server}, {12, ""}, {15, "example.com"}}},
      {"long domain cut to one option", "", "pc1", "0.0.0.0", "", std::string(300, 'a'), 86400,
       {{53, "\x05"}, {1, subnet}, {54, server}, {51, day}, {6, server}, {12, "pc1"}, {15, std::string(255, 'a')}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    clDHCPRequest request = SampleRequest();
    request.ClientID = c.clientID;
    request.ClientName = c.clientName;
    clDHCPif interface = kInterface;
    interface.Gateway = c.gateway;
    interface.Domain = c.domain;
    interface.TTL = c.ttl;
    EXPECT_EQ(OptionsOf(modDHCP::BuildReply(request, modDHCP::kAck, "10.0.0.12", interface, c.dnsBind)),
              c.expected);
  }
}

TEST(DhcpBuildReply, FixedHeader) {
  const std::string twenty = "ABCDEFGHIJKLMNOPQRST";
  struct {
    const char* what;
    int type;
    std::string hwAddr, ciaddr;
    std::string yiaddr;  // as bytes
  } cases[] = {
      {"offer", modDHCP::kOffer, "\x01\x02", "0.0.0.0", Bytes({10, 0, 0, 12})},
      {"acknowledgement to a renewing client", modDHCP::kAck, "\x01\x02", "10.0.0.12", Bytes({10, 0, 0, 12})},
      {"negative", modDHCP::kNak, "\x01\x02", "0.0.0.0", Bytes({0, 0, 0, 0})},
      {"hardware address cut to 16", modDHCP::kOffer, twenty, "0.0.0.0", Bytes({10, 0, 0, 12})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    clDHCPRequest request = SampleRequest();
    request.HWType = 6;
    request.HWAddr = c.hwAddr;
    request.ClientIP = c.ciaddr;
    std::string reply = modDHCP::BuildReply(request, static_cast<int16_t>(c.type), "10.0.0.12", kInterface, "");
    ASSERT_GT(reply.size(), 243u);
    std::string chaddr = (c.hwAddr + std::string(16, '\0')).substr(0, 16);
    EXPECT_EQ(reply.substr(0, 240),
              Bytes({2, 6, static_cast<int>(c.hwAddr.size()), 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 0}) +
                  modIP::IPToData(c.ciaddr) + c.yiaddr + std::string(8, '\0') + chaddr +
                  std::string(192, '\0') + Bytes({99, 130, 83, 99}));
    EXPECT_EQ(OptionsOf(reply).front(), std::make_pair(53, std::string(1, static_cast<char>(c.type))));
  }
}

// What the server reads from a message is what it echoes in the reply.
TEST(DhcpBuildReply, EchoesWhatWasParsed) {
  Client c = Named("Laptop.lan");
  c.clientID = Bytes({1, 2, 3});
  modDHCP::ParsedMessage parsed =
      modDHCP::ParseMessage(Message(modDHCP::kDiscover, c), &kInterface);
  ASSERT_EQ(parsed.outcome, ParseOutcome::kRead);
  std::string reply = modDHCP::BuildReply(parsed.request, modDHCP::kOffer, "10.0.0.10", kInterface, "");
  EXPECT_EQ(reply.substr(4, 4), parsed.request.txID);
  EXPECT_EQ(reply.substr(28, 6), c.mac);
  OptionList options = OptionsOf(reply);
  EXPECT_EQ(options.at(1), std::make_pair(61, *c.clientID));
  EXPECT_EQ(options.at(6), std::make_pair(12, std::string("laptop")));
}

}  // namespace
