// The lease file "dhcp.dat" and the hexadecimal form of client identities.
#include <cerrno>

#include "dhcp/dhcp_server.h"
#include "store/files.h"
#include "store/load_report.h"
#include "wire/text.h"
#include "wire/clean_name.h"
#include "wire/datetime.h"
#include "wire/ip.h"

namespace korvane {

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Splits off the text before the first blank; false when there is no blank.
bool SplitField(std::string_view& rest, std::string_view& field) {
  std::size_t blank = rest.find(' ');
  if (blank == std::string_view::npos) return false;
  field = rest.substr(0, blank);
  rest = text::TrimSpaces(rest.substr(blank + 1));
  return true;
}

}  // namespace

namespace modDHCP {

std::string HWToHex(std::string_view bytes, ErrorReporter& errors) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  try {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (char c : bytes) {
      auto value = static_cast<unsigned char>(c);
      text += kDigits[value >> 4];
      text += kDigits[value & 15];
    }
    return text;
  } catch (const std::exception& error) {
    ReportException(errors, "modDHCP HWToHex", error);
    return {};
  }
}

std::string HexToHW(std::string_view text, ErrorReporter& errors) {
  try {
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
      int high = HexDigit(text[i]), low = HexDigit(text[i + 1]);
      bytes += static_cast<char>(high < 0 || low < 0 ? 0 : high * 16 + low);
    }
    return bytes;
  } catch (const std::exception& error) {
    ReportException(errors, "modHDCP HexToHW", error);
    return {};
  }
}

}  // namespace modDHCP

bool DhcpServer::Save() {
  try {
    std::string text = "; Korvane - DHCP Leases\r\n";
    for (const clLease& lease : leases_) {
      text += lease.ClientName + " " + lease.IPaddr + " " + modDHCP::HWToHex(lease.ClientID, errors_) +
              " " + FormatDateTime(lease.Expires) + "\r\n";
    }
    if (WriteFileAtomically(LeaseFilePath(), text)) return true;
    ErrorInfo why = ErrorOfErrno(errno);
    errors_.Report("modDHCP Save", LeaseFilePath(), why.number, why.description);
  } catch (const std::exception& error) {
    Fault("modDHCP Save", error);
  }
  return false;
}

namespace {

bool IsHex(std::string_view text) {
  if (text.size() % 2 != 0) return false;
  for (char c : text)
    if (HexDigit(c) < 0) return false;
  return true;
}

}  // namespace

int DhcpServer::Load() {
  try {
    leases_.Clear();
    std::optional<std::string> content = ReadWholeFile(LeaseFilePath());
    FileReport report(log_, "dhcp.dat");
    text::LineReader lines(content ? std::string_view(*content) : std::string_view());
    std::size_t number = 0;
    for (std::string_view line; lines.Next(line);) {
      ++number;
      line = line.substr(0, line.find(';'));
      // A lease without a name was written with the line beginning with a
      // blank: its fields are read from there, not shifted by one.
      const bool nameless = !line.empty() && line[0] == ' ';
      line = text::TrimSpaces(line);
      if (line.empty()) continue;
      std::string_view name, address, clientID;
      if ((!nameless && !SplitField(line, name)) || !SplitField(line, address) || !SplitField(line, clientID)) {
        report.Skipped(number, "too few fields");
        continue;
      }
      std::optional<DateTime> expires = ParseDateTime(line);
      if (!expires) {
        report.Skipped(number, std::string(line) + " is not a date-time");
        continue;
      }
      const std::string ip = modIP::CleanIP(address);
      if (ip.empty()) report.Cut(number, "bad address " + std::string(address) + ", lease kept without one");
      if (!IsHex(clientID)) report.Cut(number, "client identity " + std::string(clientID) + " is not hexadecimal");
      leases_.Append({*expires, ip, nameless ? std::string() : modMain::CleanName(name) + ".",
                      modDHCP::HexToHW(clientID, errors_)});
      report.Took();
    }
    if (content) report.Summary("lease");
    Refresh();
    return report.warnings();
  } catch (const std::exception& error) {
    Fault("modDHCP Load", error);
    return 0;
  }
}

}  // namespace korvane
