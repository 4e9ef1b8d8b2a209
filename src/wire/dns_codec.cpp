#include "wire/dns_codec.h"

#include <cmath>
#include <cstdlib>

#include "wire/bounded_reader.h"
#include "wire/ip.h"
#include "wire/text.h"

namespace korvane {

namespace modDNS {

using text::TrimSpaces;

namespace {

constexpr std::string_view kIncomplete = "incomplete.";
constexpr uint8_t kPointerFlag = 192;

void AppendLower(std::string& out, std::string_view label) {
  for (char c : label) out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
}

// How a run of labels ended.
struct LabelRun {
  enum Kind { kRoot, kPointer, kTruncated } kind;
  int target = 0;  // offset a pointer leads to
};

// Reads labels into `out` ("label." each, lower case) up to the zero byte or
// a pointer; both are taken from `in`.
LabelRun ReadLabels(BoundedReader& in, std::string& out) {
  uint8_t length = 0;
  if (!in.PeekByte(length)) return {LabelRun::kTruncated};
  while (length > 0 && length < kPointerFlag) {
    // A label must leave at least one byte after it for what follows.
    if (!in.Has(std::size_t{length} + 2)) return {LabelRun::kTruncated};
    std::string_view label;
    in.Take(1, label);
    in.Take(length, label);
    AppendLower(out, label);
    out.push_back('.');
    in.PeekByte(length);
  }
  uint32_t word = 0;
  if (length == 0) {
    in.TakeNumber(1, word);
    return {LabelRun::kRoot};
  }
  if (!in.TakeNumber(2, word)) return {LabelRun::kTruncated};
  return {LabelRun::kPointer, static_cast<int>(word & 0x3FFF)};
}

enum class Chain { kDone, kTooLong };

// Decodes the name at `offset`, following pointers in a loop. Truncation
// anywhere ends the text with "incomplete." after what the earlier hops gave,
// as nested decoding of each pointer target would.
Chain DecodeAt(std::string_view message, int offset, int hops, std::string& out) {
  while (true) {
    if (offset < 0 || static_cast<std::size_t>(offset) >= message.size()) {
      out += kIncomplete;
      return Chain::kDone;
    }
    BoundedReader in(message.substr(static_cast<std::size_t>(offset)));
    std::size_t kept = out.size();
    LabelRun run = ReadLabels(in, out);
    if (run.kind == LabelRun::kTruncated) {
      out.resize(kept);
      out += kIncomplete;
      return Chain::kDone;
    }
    if (run.kind == LabelRun::kRoot) return Chain::kDone;
    if (++hops > kMaxPointerHops) return Chain::kTooLong;
    offset = run.target;
  }
}

void ReportTooLong(ErrorReporter& errors, const char* tag) {
  errors.Report(tag, "", ErrorNumber::kOutOfStack, "Out of stack space");
}

// Splits the text into length-prefixed labels, cutting long labels at 63.
std::string SplitLabels(std::string_view name) {
  std::string rest(TrimSpaces(name));
  std::string encoded;
  std::size_t at = 0;  // rest[at..] is what is left to split
  while (at < rest.size()) {
    std::size_t dot = rest.find('.', at);
    if (dot == std::string::npos) {
      rest.push_back('.');
      continue;
    }
    if (dot == at) {
      ++at;
      while (at < rest.size() && rest[at] == ' ') ++at;
      continue;
    }
    std::string_view view(rest);
    if (dot - at > 63) {
      std::string cut(TrimSpaces(view.substr(at, 63)));
      cut += TrimSpaces(view.substr(dot));
      rest = std::move(cut);
      at = 0;
      continue;
    }
    std::string_view label = TrimSpaces(view.substr(at, dot - at));
    encoded.push_back(static_cast<char>(label.size()));
    encoded += label;
    at = dot + 1;
    while (at < rest.size() && rest[at] == ' ') ++at;
  }
  encoded.push_back('\0');
  return encoded;
}

}  // namespace

std::string ZipName(std::string_view message, std::string_view name, ErrorReporter& errors) {
  std::string encoded = SplitLabels(name);
  if (encoded.size() == 1) return encoded;

  // Each changing pass replaces a suffix of three or more bytes by a two-byte
  // pointer, so the passes end.
  while (true) {
    std::string previous = encoded;
    std::string_view rest(previous);
    encoded.clear();
    while (!rest.empty()) {
      uint8_t first = static_cast<uint8_t>(rest.front());
      if (first == 0 || first >= kPointerFlag) {
        encoded += rest;
        break;
      }
      std::size_t found = message.find(rest);
      if (found == std::string_view::npos) {
        std::size_t label = std::min<std::size_t>(std::size_t{first} + 1, rest.size());
        encoded += rest.substr(0, label);
        rest.remove_prefix(label);
        continue;
      }
      if (found >= 16384) {
        errors.Report("modDNS ZipName", "", ErrorNumber::kInvalidCall,
                      "Invalid procedure call or argument");
        return "";
      }
      encoded.push_back(static_cast<char>(found / 256 + kPointerFlag));
      encoded.push_back(static_cast<char>(found % 256));
      break;
    }
    if (encoded == previous) return encoded;
  }
}

std::string UnzipName(std::string_view message, int offset, ErrorReporter& errors) {
  std::string out;
  if (DecodeAt(message, offset, 0, out) == Chain::kTooLong) {
    ReportTooLong(errors, "modDNS UnzipName");
    return "";
  }
  return out;
}

std::string TakeName(std::string_view message, BoundedReader& in, ErrorReporter& errors) {
  std::string out;
  LabelRun run = ReadLabels(in, out);
  if (run.kind == LabelRun::kTruncated) {
    in.Drain();
    return std::string(kIncomplete);
  }
  if (run.kind == LabelRun::kPointer &&
      DecodeAt(message, run.target, 1, out) == Chain::kTooLong) {
    ReportTooLong(errors, "modDNS ExtractName");
    in.Drain();
    return "";
  }
  if (out.empty()) return ".";
  return out;
}

std::string ExtractName(std::string_view message, std::string_view& remainder, bool update,
                        ErrorReporter& errors) {
  BoundedReader in(remainder);
  std::string name = TakeName(message, in, errors);
  if (update) remainder = in.Rest();
  return name;
}

int32_t ExtractShort(std::string_view& remainder, bool update) {
  BoundedReader in(remainder);
  uint32_t value = 0;
  bool whole = in.TakeNumber(2, value);
  if (update) remainder = whole ? in.Rest() : std::string_view{};
  return whole ? static_cast<int32_t>(value) : 0;
}

double ExtractLong(std::string_view& remainder, bool update) {
  BoundedReader in(remainder);
  uint32_t value = 0;
  bool whole = in.TakeNumber(4, value);
  if (update) remainder = whole ? in.Rest() : std::string_view{};
  if (!whole) return 0;
  // A TTL is never negative: the top bit set means "as long as possible".
  return value > 2147483647u ? 2147483647.0 : static_cast<double>(value);
}

std::string MakeShort(int32_t value) {
  std::string out;
  out.push_back(static_cast<char>((value / 256) & 255));
  out.push_back(static_cast<char>(value & 255));
  return out;
}

std::string MakeLong(double value, ErrorReporter& errors) {
  double whole = std::floor(value);
  if (!(whole >= -2147483648.0 && whole <= 2147483647.0)) {
    errors.Report("modDNS MakeLong", "", ErrorNumber::kOverflow, "Overflow");
    return "";
  }
  uint32_t bits = static_cast<uint32_t>(static_cast<int32_t>(whole));
  std::string out(4, '\0');
  for (int i = 3; i >= 0; --i) {
    out[static_cast<std::size_t>(i)] = static_cast<char>(bits & 255);
    bits >>= 8;
  }
  return out;
}

std::string RTypeN(int type) {
  constexpr std::string_view kCommon =
      "A    NS   MD   MF   CNAMESOA  MB   MG   MR   NULL WKS  PTR  HINFOMINFOMX   TXT  ";
  constexpr std::string_view kQueryOnly = "AXFR MAILBMAILA*    ";
  long long t = std::llabs(static_cast<long long>(type));
  std::string_view entry;
  if (t >= 1 && t <= 16) {
    entry = kCommon.substr(static_cast<std::size_t>(t * 5 - 5), 5);
  } else if (t >= 252 && t <= 255) {
    entry = kQueryOnly.substr(static_cast<std::size_t>((t - 252) * 5), 5);
  } else {
    return "?" + std::to_string(t) + "?";
  }
  return std::string(TrimSpaces(entry));
}

std::string RCodeN(int code) {
  switch (code) {
    case 0: return "No Error";
    case 1: return "Format Error - could not interpret the query.";
    case 2: return "Server Failure.";
    case 3: return "Name does not exist!";
    case 4: return "Not implemented - no support for this query type.";
    case 5: return "Refused - will not answer this client or this query type.";
    default: return "Unknown error.";
  }
}

std::string IPToArpa(std::string_view ip) {
  std::string data = modIP::IPToData(ip);
  std::string name = "in-addr.arpa.";
  for (char byte : data) name = std::to_string(static_cast<uint8_t>(byte)) + "." + name;
  return name;
}

std::string ArpaToData(std::string_view name) {
  constexpr std::string_view kEnding = ".in-addr.arpa.";
  if (!name.ends_with(kEnding)) return std::string(4, '\0');
  std::string octets(name.substr(0, name.size() - kEnding.size()));
  octets += "....";
  std::string data;
  std::size_t at = 0;
  for (int i = 0; i < 4; ++i) {
    std::size_t dot = octets.find('.', at);
    data.insert(data.begin(), static_cast<char>(modIP::OctetValue(
                                  std::string_view(octets).substr(at, dot - at))));
    at = dot + 1;
  }
  return data;
}

std::string ArpaToIP(std::string_view name) { return modIP::DataToIP(ArpaToData(name)); }

}  // namespace modDNS

}  // namespace korvane
