// The lease file "dhcp.dat" and the hexadecimal form of client identities.
#include <cerrno>

#include "dhcp/dhcp_server.h"
#include "store/files.h"
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

void DhcpServer::Load() {
  try {
    leases_.Clear();
    std::optional<std::string> content = ReadWholeFile(LeaseFilePath());
    text::LineReader lines(content ? std::string_view(*content) : std::string_view());
    for (std::string_view line; lines.Next(line);) {
      line = line.substr(0, line.find(';'));
      // A nameless client's line begins with the blank after its empty name:
      // trimming first would shift its fields and lose its lease.
      const bool nameless = line.starts_with(' ');
      line = text::TrimSpaces(line);
      std::string_view name, address, clientID;
      if (!nameless && !SplitField(line, name)) continue;
      if (!SplitField(line, address) || !SplitField(line, clientID)) continue;
      std::optional<DateTime> expires = ParseDateTime(line);
      if (!expires) continue;
      std::string clientName = nameless ? "" : modMain::CleanName(name) + ".";
      leases_.Append({*expires, modIP::CleanIP(address), std::move(clientName),
                      modDHCP::HexToHW(clientID, errors_)});
    }
    Refresh();
  } catch (const std::exception& error) {
    Fault("modDHCP Load", error);
  }
}

}  // namespace korvane
