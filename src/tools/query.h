// The look-up tool's question: the record types it offers, the checks of
// what the operator typed, the query ID counter and the query's bytes.
// Standard C++ only; the window maps its fields onto these.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

namespace modQuery {

struct QueryType {
  const char* Entry;        // comType's text
  int Type;                 // record type number
  const char* Description;  // LabelType's text
  const char* NameLabel;    // lblName's text
};

// comType's entries, in the order the list shows them.
const std::array<QueryType, 7>& QueryTypes();

constexpr int kPtrType = 12;
constexpr int kDnsPort = 53;
constexpr int kTimeoutSeconds = 5;
constexpr const char* kDefaultServer = "127.0.0.1";

// What the fields ask for, once checked.
struct CheckedQuery {
  // False: no query. With an empty Message there is nothing to do (an empty
  // name); otherwise Message says what is wrong.
  bool Ask = false;
  std::string Message;
  std::string Question;  // the name to send, with its final "."
  std::string Server;    // the server's address, normalised
};

// Checks the name (or, for PTR, the address) and the server field. A name
// must hold no blanks, no empty label, no label over 63 characters and at
// most 255 bytes in wire form; a PTR question takes four numbers 0-255
// joined by dots (or a name under in-addr.arpa.); the server is such an
// address, not 0.0.0.0.
CheckedQuery CheckQuery(std::string_view name, int type, std::string_view server);

// The ID after `last`: one more, back to 1 past 65535.
int32_t NextQueryId(int32_t last);

// The query: the ID, recursion desired, one question of class IN.
std::string BuildQuery(int32_t id, std::string_view question, int type);

// The server asked is this program: 127.0.0.1, the DNS service's bind
// address or one of the machine's own addresses.
bool IsThisServer(std::string_view server, std::string_view dnsBind,
                  const std::vector<std::string>& localIPs);

// "No answer from <server> within 5 seconds."
std::string TimeoutText(std::string_view server);
// The line under an answer: who answered, how long it took.
std::string RoundTripText(std::string_view server, int port, int64_t milliseconds);

}  // namespace modQuery

}  // namespace korvane
