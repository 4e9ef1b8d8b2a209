// IPv4 addresses as dotted text and as 4-byte data. Parsing is lenient and
// never fails: bad text becomes zeros (or 255 for large numbers).
#pragma once

#include <string>
#include <string_view>

namespace korvane {

namespace modIP {

std::string IPToData(std::string_view text);
std::string DataToIP(std::string_view data);
// The address normalised, or "" when it reads as 0.0.0.0.
std::string CleanIP(std::string_view text);
// 32 characters "0"/"1", most significant bit first.
std::string IPToBin(std::string_view text);
// The following address; 255.255.255.255 is followed by 0.0.0.0.
std::string NextIP(std::string_view text);
// Same network under `mask`, counting the mask up to its last 1 bit.
bool SameNet(std::string_view a, std::string_view b, std::string_view mask);
// May be handed out: not empty, not the network or broadcast address, not 127.x.
bool ValidIP(std::string_view address, std::string_view mask);

// Four decimal numbers of 0 to 255 with dots between, and nothing else: an
// address as an operator means it (the readers above take much more).
bool IsDottedQuad(std::string_view text);

// One address byte from text: the leading number's absolute value (see
// text::LeadingNumber), rounded half to even, 255 at most.
int OctetValue(std::string_view text);

}  // namespace modIP

}  // namespace korvane
