// DNS wire format: names, numbers and the texts for types and response codes.
// Byte strings are std::string, one char per byte. Reading operations take a
// "remainder" and, when asked to update, cut what they read off its front.
// Nothing here throws: truncated input gives "incomplete." or 0, and the
// failures below go to the error reporter with the operation's tag.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "wire/bounded_reader.h"
#include "wire/services.h"

namespace korvane {

namespace modDNS {

// Most compression pointers followed while decoding one name; a longer chain
// (a loop) is reported as "Out of stack space" and decodes to "".
constexpr int kMaxPointerHops = 128;

// The name's wire form, compressed against `message` (the bytes that will
// precede it). Returns "" when a pointer offset would be 16384 or more
// (reported as "modDNS ZipName").
std::string ZipName(std::string_view message, std::string_view name,
                    ErrorReporter& errors = DefaultErrorReporter());

// The name starting at 0-based `offset` of `message`, lower case with a
// trailing dot ("" for the root). "incomplete." when it runs past the end;
// "" when the pointer chain is too long (reported as "modDNS UnzipName").
std::string UnzipName(std::string_view message, int offset,
                      ErrorReporter& errors = DefaultErrorReporter());

// The name at the front of `remainder` ("." for the root). "incomplete."
// when cut short (the remainder is then emptied if `update`); "" for a
// pointer loop (reported as "modDNS ExtractName").
std::string ExtractName(std::string_view message, std::string_view& remainder, bool update,
                        ErrorReporter& errors = DefaultErrorReporter());

// ExtractName on a bounded reader over the part of `message` still to read:
// the same text, and the reader is left after the name (emptied when the
// name is cut or its pointers loop).
std::string TakeName(std::string_view message, BoundedReader& in,
                     ErrorReporter& errors = DefaultErrorReporter());

// 16-bit big-endian value at the front; 0 (and an emptied remainder when
// updating) if fewer than 2 bytes are left.
int32_t ExtractShort(std::string_view& remainder, bool update);

// 32-bit big-endian value at the front, capped at 2147483647; 0 (and an
// emptied remainder when updating) if fewer than 4 bytes are left.
double ExtractLong(std::string_view& remainder, bool update);

std::string MakeShort(int32_t value);

// Four bytes, high first. "" for a value outside the 32-bit signed range
// (reported as "modDNS MakeLong", error "Overflow").
std::string MakeLong(double value, ErrorReporter& errors = DefaultErrorReporter());

// Mnemonic of a record type: "A", "MX", "*", or "?99?" for unknown ones.
std::string RTypeN(int type);

// Sentence for a response code.
std::string RCodeN(int code);

// Reverse-lookup names: 1.2.3.4 <-> 4.3.2.1.in-addr.arpa.
std::string IPToArpa(std::string_view ip);
// Four bytes; four zero bytes when the name does not end in ".in-addr.arpa.".
std::string ArpaToData(std::string_view name);
std::string ArpaToIP(std::string_view name);

}  // namespace modDNS

}  // namespace korvane
