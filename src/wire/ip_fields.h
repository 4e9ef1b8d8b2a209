// The address entry's rules apart from its widgets: an address as four
// octet fields, what a field accepts while typing, and the dotted text the
// fields make.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace korvane {

namespace modIP {

using IPFields = std::array<std::string, 4>;

// A field may hold this text while typing: "" or one to three digits worth 255 at most.
bool OctetAccepts(std::string_view text);
// Exactly four fields of one to three digits, each 255 at most.
bool DottedAddress(std::string_view text);
// The fields of a whole address ("" gives four empty fields). False, and
// `fields` untouched, when `text` is not a dotted address.
bool SplitIPFields(std::string_view text, IPFields& fields);
// The fields joined by dots; "" when all four are empty. A field left empty
// stays empty, so that a half-typed address is not mistaken for a whole one.
std::string JoinIPFields(const IPFields& fields);

}  // namespace modIP

}  // namespace korvane
