#include "dhcp/message.h"

#include <algorithm>

#include "wire/bounded_reader.h"
#include "wire/clean_name.h"
#include "wire/ip.h"

namespace korvane {

namespace modDHCP {

namespace {

using modDNS::BoundedReader;

constexpr std::size_t kHeaderLength = 240;  // fixed header and magic cookie
constexpr std::size_t kBeforeChaddr = 28;
constexpr std::size_t kChaddrLength = 16;
constexpr uint8_t kPadOption = 0;
constexpr uint8_t kEndOption = 255;

std::string Lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

// The host name option's data as the client's name.
std::string ClientNameOf(std::string_view data) {
  std::string_view name = data.substr(0, data.find('\0'));
  // Control characters and blanks would forge log lines and lease-file
  // fields; ";" would start a comment there.
  std::string clean;
  for (char c : name.substr(0, name.find('.')))
    if (static_cast<unsigned char>(c) > ' ' && c != 0x7f && c != ';') clean.push_back(c);
  return Lower(clean);
}

void StoreOption(uint8_t code, std::string_view data, ParsedMessage& parsed) {
  clDHCPRequest& request = parsed.request;
  switch (code) {
    case 12:
      request.ClientName = ClientNameOf(data);
      // An empty name must match no other lease, also with the domain added.
      request.DomainName =
          request.ClientName.empty() ? "" : request.ClientName + "." + request.Interface->Domain;
      break;
    case 50:
      request.ReqIP = modIP::DataToIP(data);
      break;
    case 53:
      parsed.messageType = data.empty() ? 0 : static_cast<uint8_t>(data[0]);
      break;
    case 54:
      parsed.serverIdentifier = modIP::DataToIP(data);
      break;
    case 61:
      request.ClientID = std::string(data);
      break;
    default:
      break;
  }
}

// Reads the fixed header behind op; `reader` holds at least the rest of it.
void ReadHeader(BoundedReader& reader, clDHCPRequest& request) {
  uint32_t htype = 0, hlen = 0;
  std::string_view skipped, xid, ciaddr, hardware;
  reader.TakeNumber(1, htype);
  reader.TakeNumber(1, hlen);
  reader.Take(1, skipped);  // hops
  reader.Take(4, xid);
  reader.Take(4, skipped);  // secs, flags
  reader.Take(4, ciaddr);
  reader.Take(12, skipped);  // yiaddr, siaddr, giaddr
  // A long hardware address runs on into sname and beyond, as far as the
  // message goes.
  BoundedReader(reader.Rest()).Take(std::min<std::size_t>(hlen, reader.Rest().size()), hardware);
  reader.Take(kHeaderLength - kBeforeChaddr, skipped);  // chaddr, sname, file, cookie
  request.HWType = static_cast<int16_t>(htype);
  request.txID = std::string(xid);
  request.ClientIP = modIP::DataToIP(ciaddr);
  request.HWAddr = std::string(hardware);
}

// The first `width` bytes of `bytes`, zero-filled to `width`.
void AppendPadded(std::string& out, std::string_view bytes, std::size_t width) {
  bytes = bytes.substr(0, width);
  out += bytes;
  out.append(width - bytes.size(), '\0');
}

void AppendOption(std::string& out, uint8_t code, std::string_view data) {
  // Lengths come from one-byte option lengths, except a long domain; a longer
  // value would corrupt every option after it.
  if (data.size() > 255) data = data.substr(0, 255);
  out += static_cast<char>(code);
  out += static_cast<char>(data.size());
  out += data;
}

std::string FourBytes(uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>((value >> shift) & 255);
  return bytes;
}

}  // namespace

ParsedMessage ParseMessage(std::string_view bytes, const clDHCPif* interface) {
  ParsedMessage parsed;
  BoundedReader reader(bytes);
  uint32_t op = 0;
  if (!reader.Has(kHeaderLength + 1) || !reader.TakeNumber(1, op)) return parsed;
  if (op != 1) {
    parsed.outcome = ParseOutcome::kNotRequest;
    return parsed;
  }
  if (!interface) {
    parsed.outcome = ParseOutcome::kNoInterface;
    return parsed;
  }
  clDHCPRequest& request = parsed.request;
  request.Interface = interface;
  ReadHeader(reader, request);

  std::string_view skipped, data;
  for (uint8_t code = 0; reader.PeekByte(code) && code != kEndOption;) {
    reader.Take(1, skipped);
    if (code == kPadOption) continue;
    uint8_t length = 0;
    if (!reader.PeekByte(length) || !reader.Has(length + 2u)) return parsed;
    reader.Take(1, skipped);
    reader.Take(length, data);
    StoreOption(code, data, parsed);
  }
  if (!reader.Has(1)) return parsed;  // no end option yet

  // An empty option 61 identifies no one: such clients fall back to their
  // hardware address like those that send none.
  request.Identity = !request.ClientID.empty() ? request.ClientID
                                               : static_cast<char>(request.HWType) + request.HWAddr;
  parsed.outcome = ParseOutcome::kRead;
  return parsed;
}

std::string BuildReply(const clDHCPRequest& request, int16_t type, const std::string& address,
                       const clDHCPif& interface, const std::string& dnsBind) {
  std::string reply;
  reply.reserve(kHeaderLength + 80);
  reply += '\x02';
  reply += static_cast<char>(request.HWType);
  reply += static_cast<char>(request.HWAddr.size());
  reply += '\0';
  AppendPadded(reply, request.txID, 4);
  reply.append(4, '\0');  // secs, flags
  reply += modIP::IPToData(request.ClientIP);
  bool carriesAddress = type == kOffer || type == kAck;
  AppendPadded(reply, carriesAddress ? modIP::IPToData(address) : "", 4);
  reply.append(8, '\0');  // siaddr, giaddr
  AppendPadded(reply, request.HWAddr, kChaddrLength);
  reply.append(192, '\0');  // sname, file
  reply += "\x63\x82\x53\x63";

  AppendOption(reply, 53, std::string(1, static_cast<char>(type)));
  // A client that sent no identifier gets none back: a zero-length option
  // 61 makes common clients throw the whole reply away.
  if (!request.ClientID.empty()) AppendOption(reply, 61, request.ClientID);
  AppendOption(reply, 1, modIP::IPToData(interface.Subnet));
  AppendOption(reply, 54, modIP::IPToData(interface.IPaddr));
  AppendOption(reply, 51, FourBytes(static_cast<uint32_t>(interface.TTL)));
  AppendOption(reply, 6, modIP::IPToData(dnsBind.empty() ? interface.IPaddr : dnsBind));
  if (interface.Gateway != "0.0.0.0") AppendOption(reply, 3, modIP::IPToData(interface.Gateway));
  AppendOption(reply, 12, request.ClientName);
  AppendOption(reply, 15, modMain::CleanName(interface.Domain));
  reply += static_cast<char>(kEndOption);
  return reply;
}

}  // namespace modDHCP

}  // namespace korvane
