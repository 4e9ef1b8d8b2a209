#include "wire/ip.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "wire/text.h"

namespace korvane {

namespace modIP {

namespace {

uint8_t Byte(std::string_view data, std::size_t index) {
  return index < data.size() ? static_cast<uint8_t>(data[index]) : 0;
}

// Every received datagram's sender passes through here: no formatting library.
std::string DottedText(const uint8_t bytes[4]) {
  char text[16];
  std::size_t at = 0;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) text[at++] = '.';
    unsigned value = bytes[i];
    if (value >= 100) text[at++] = static_cast<char>('0' + value / 100);
    if (value >= 10) text[at++] = static_cast<char>('0' + value / 10 % 10);
    text[at++] = static_cast<char>('0' + value % 10);
  }
  return std::string(text, at);
}

// Position (1 to 32) of the mask's last 1 bit, 0 when it has none.
int MaskLength(std::string_view mask) {
  std::size_t last = IPToBin(mask).find_last_of('1');
  return last == std::string::npos ? 0 : static_cast<int>(last) + 1;
}

}  // namespace

int OctetValue(std::string_view text) {
  return std::min<int32_t>(255, text::RoundToInt32(std::fabs(text::LeadingNumber(text))));
}

bool IsDottedQuad(std::string_view text) {
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (text.empty() || text[0] != '.') return false;
      text.remove_prefix(1);
    }
    std::size_t digits = 0;
    int value = 0;
    while (digits < text.size() && digits < 3 && text[digits] >= '0' && text[digits] <= '9')
      value = value * 10 + (text[digits++] - '0');
    if (digits == 0 || value > 255) return false;
    text.remove_prefix(digits);
  }
  return text.empty();
}

std::string IPToData(std::string_view text) {
  std::string fields;
  for (char c : text)
    if (c != ' ') fields.push_back(c);
  std::size_t start = fields.find_first_not_of('.');
  fields.erase(0, start == std::string::npos ? fields.size() : start);
  fields += "....";

  std::string data;
  std::size_t at = 0;
  for (int i = 0; i < 4; ++i) {
    std::size_t dot = fields.find('.', at);
    data.push_back(static_cast<char>(OctetValue(std::string_view(fields).substr(at, dot - at))));
    at = dot + 1;
  }
  return data;
}

std::string DataToIP(std::string_view data) {
  uint8_t bytes[4] = {Byte(data, 0), Byte(data, 1), Byte(data, 2), Byte(data, 3)};
  return DottedText(bytes);
}

std::string CleanIP(std::string_view text) {
  std::string ip = DataToIP(IPToData(text));
  return ip == "0.0.0.0" ? "" : ip;
}

std::string IPToBin(std::string_view text) {
  std::string bits;
  for (char byte : IPToData(text)) {
    for (int bit = 7; bit >= 0; --bit) bits.push_back((static_cast<uint8_t>(byte) >> bit) & 1 ? '1' : '0');
  }
  return bits;
}

std::string NextIP(std::string_view text) {
  std::string data = IPToData(text);
  uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = Byte(data, static_cast<std::size_t>(i));
  for (int i = 3; i >= 0; --i) {
    if (++bytes[i] != 0) break;
  }
  return DottedText(bytes);
}

bool SameNet(std::string_view a, std::string_view b, std::string_view mask) {
  std::size_t network = static_cast<std::size_t>(MaskLength(mask));
  return IPToBin(a).compare(0, network, IPToBin(b), 0, network) == 0;
}

bool ValidIP(std::string_view address, std::string_view mask) {
  if (address.empty()) return false;
  std::string host = IPToBin(address).substr(static_cast<std::size_t>(MaskLength(mask)));
  // The network's own address and its broadcast address are never handed out;
  // an empty host part (mask 255.255.255.255) counts as all zeros.
  if (host.find('1') == std::string::npos || host.find('0') == std::string::npos) return false;
  return !address.starts_with("127.");
}

}  // namespace modIP

}  // namespace korvane
