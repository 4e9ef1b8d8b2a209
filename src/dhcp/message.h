// DHCP messages as bytes: a client's message read into a clDHCPRequest, and
// the reply built from one. Pure functions: no state, no log, no socket.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "store/dhcp_if.h"

namespace korvane {

// One decoded DHCP message.
struct clDHCPRequest {
  int16_t WSIndex = 0;                  // socket that received it
  const clDHCPif* Interface = nullptr;  // interface of that socket's local address
  std::string DomainName;               // ClientName + "." + Interface->Domain, or "" without a name
  std::string txID;                     // xid, 4 raw bytes
  int16_t HWType = 0;                   // htype
  std::string HWAddr;                   // hlen bytes from chaddr on (as far as the message goes)
  std::string ClientIP;                 // ciaddr, dotted
  std::string ClientID;                 // option 61 data as sent ("" if absent)
  std::string ClientName;               // option 12 up to the first NUL and ".", lower case
  std::string ReqIP;                    // option 50, or the sender for a renewal; "" if absent
  // The lease identity: option 61's data when present and not empty, else
  // the htype byte followed by the hlen bytes of chaddr.
  std::string Identity;
};

namespace modDHCP {

// DHCP message types the server answers with or reads.
constexpr int16_t kDiscover = 1, kOffer = 2, kRequest = 3, kDecline = 4, kAck = 5, kNak = 6,
                  kRelease = 7;

// What became of an attempt to read a message, and so of the bytes held for it.
enum class ParseOutcome {
  kRead,         // read up to its end option: the bytes are used up
  kIncomplete,   // shorter than the header and one option byte, or the options stop
                 // before the end option: keep the bytes, more may follow
  kNotRequest,   // op is not 1: drop the bytes
  kNoInterface,  // no DHCP interface holds the receiving socket's address: drop the bytes
};

struct ParsedMessage {
  ParseOutcome outcome = ParseOutcome::kIncomplete;
  // Filled when kRead, except WSIndex (the caller's to set).
  clDHCPRequest request;
  int messageType = 0;           // option 53's first byte; 0 when absent or empty
  std::string serverIdentifier;  // option 54, dotted; "" when absent
};

// Reads the message at the front of `bytes` (bytes after its end option
// play no part). `interface` is the receiving socket's interface, null when
// there is none. The magic cookie is not checked; pad and unknown options
// are passed over; an option's data must be followed by at least one more
// byte. The host name is cut at the first NUL and ".", loses blanks, control
// characters and ";", and is lower-cased.
ParsedMessage ParseMessage(std::string_view bytes, const clDHCPif* interface);

// The reply of `type` (2 offer, 5 acknowledgement, 6 negative) to `request`
// from `interface`: yiaddr is `address` for an offer or an acknowledgement,
// else 0; the DNS server option is `dnsBind`, or the interface's address
// when `dnsBind` is empty. Option 61 is left out when the request has no
// client identifier, option 3 when the gateway is 0.0.0.0.
std::string BuildReply(const clDHCPRequest& request, int16_t type, const std::string& address,
                       const clDHCPif& interface, const std::string& dnsBind);

}  // namespace modDHCP

}  // namespace korvane
