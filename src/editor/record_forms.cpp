#include "editor/record_forms.h"

#include <functional>

#include "store/record.h"
#include "wire/clean_name.h"
#include "wire/ip.h"
#include "wire/ip_fields.h"
#include "wire/soa_data.h"
#include "wire/text.h"

namespace korvane {

namespace modEditor {

const char* const kInvalidName = "Invalid name! Use only letters, digits, \"-\" and \".\".";
const char* const kZeroTTL = "The TTL cannot be zero!";

namespace {

using modMain::CleanName;
using F = RecordField;

const RecordCheck kPass{};

// True when another entry than `editing` matches.
bool AnyOther(const PermModel& model, int editing, const std::function<bool(const clPermRec&)>& match) {
  for (int id : model.Ids())
    if (id != editing && match(*model.Entry(id))) return true;
  return false;
}

std::string Owner(const std::string& name, const std::string& domain) {
  return CleanName(name + "." + domain);
}

// True when another entry than `editing` has this type and owner (and, when
// given, this data).
bool Holds(const PermModel& model, int editing, int type, const std::string& owner,
           const std::string* data = nullptr) {
  return AnyOther(model, editing, [&](const clPermRec& e) {
    return e.RecType == type && OwnerOf(e) == owner && (!data || e.Data == *data);
  });
}

std::string TargetData(std::string_view name) { return CleanName(name) + "."; }

// The last label is all digits: an address typed where a name belongs.
bool LooksLikeAddress(const std::string& name) {
  const std::string last = name.substr(name.rfind('.') + 1);
  return !last.empty() && last.find_first_not_of("0123456789") == std::string::npos;
}

clPermRec Record(int type, const std::string& domain, const std::string& name, std::string data,
                 int32_t ttl, int32_t pref = 0) {
  return {type, domain, CleanName(name), std::move(data), ttl, pref};
}

std::string DomainName(std::string_view typed) {
  return text::TrimBlanks(typed) == "<root>" ? "" : CleanName(typed);
}

}  // namespace

bool ValidNameText(std::string_view text) {
  text = text::TrimBlanks(text);
  for (char c : text)
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.'))
      return false;
  // A doubled dot is an empty label; CleanName would join the labels round it.
  if (text.find("..") != std::string_view::npos || text.starts_with('.')) return false;
  const std::string name = CleanName(text);
  if (name.empty() || name.size() > 253) return false;
  std::size_t start = 0;
  for (std::size_t dot = name.find('.'); ; dot = name.find('.', start)) {
    const std::size_t end = dot == std::string::npos ? name.size() : dot;
    if (end - start > 63) return false;
    if (dot == std::string::npos) return true;
    start = dot + 1;
  }
}

RecordCheck CheckHost(const HostForm& form, const PermModel& model, int editing) {
  const std::string address = std::string(text::TrimBlanks(form.address));
  if (!modIP::DottedAddress(address) || modIP::CleanIP(address).empty() || address == "255.255.255.255")
    return Refuse("Invalid IP Address!", F::kData);
  const std::string owner = Owner(form.name, form.domain);
  const std::string data = modIP::IPToData(address);
  if (Holds(model, editing, RecordType::kA, owner, &data))
    return Refuse("Record already exists!", F::kData);
  if (Holds(model, editing, RecordType::kCNAME, owner))
    return Refuse("CNAME-Record already exists for this name!", F::kName);
  if (!text::TrimBlanks(form.name).empty() && !ValidNameText(form.name)) return Refuse(kInvalidName, F::kName);
  if (form.ttl <= 0) return Refuse(kZeroTTL, F::kTTL);
  return kPass;
}

clPermRec HostEntry(const HostForm& form) {
  return Record(RecordType::kA, form.domain, form.name, modIP::IPToData(text::TrimBlanks(form.address)), form.ttl);
}

RecordCheck CheckNS(const NSForm& form, const PermModel& model, int editing) {
  if (text::TrimBlanks(form.server).empty()) return Refuse("Please enter Name Server.", F::kData);
  const std::string owner = CleanName(form.domain);
  const std::string data = TargetData(form.server);
  if (Holds(model, editing, RecordType::kNS, owner, &data))
    return Refuse("Record already exists!", F::kData);
  if (!ValidNameText(form.server)) return Refuse(kInvalidName, F::kData);
  if (form.ttl <= 0) return Refuse(kZeroTTL, F::kTTL);
  return kPass;
}

clPermRec NSEntry(const NSForm& form) {
  return Record(RecordType::kNS, form.domain, "", TargetData(form.server), form.ttl);
}

RecordCheck CheckCNAME(const CNAMEForm& form, const PermModel& model, int editing) {
  if (text::TrimBlanks(form.name).empty()) return Refuse("Please enter host name!", F::kName);
  if (text::TrimBlanks(form.target).empty()) return Refuse("Please enter Alias for", F::kData);
  const std::string owner = Owner(form.name, form.domain);
  if (Holds(model, editing, RecordType::kA, owner))
    return Refuse("A-Record already exists for this name!", F::kName);
  if (Holds(model, editing, RecordType::kCNAME, owner))
    return Refuse("Record already exist!", F::kName);
  if (!ValidNameText(form.name)) return Refuse(kInvalidName, F::kName);
  if (!ValidNameText(form.target)) return Refuse(kInvalidName, F::kData);
  if (form.ttl <= 0) return Refuse(kZeroTTL, F::kTTL);
  return kPass;
}

clPermRec CNAMEEntry(const CNAMEForm& form) {
  return Record(RecordType::kCNAME, form.domain, form.name, TargetData(form.target), form.ttl);
}

RecordCheck CheckMX(const MXForm& form, const PermModel& model, int editing) {
  if (text::TrimBlanks(form.server).empty()) return Refuse("Please enter Mail Server.", F::kData);
  const std::string owner = CleanName(form.domain);
  const std::string data = TargetData(form.server);
  if (Holds(model, editing, RecordType::kMX, owner, &data))
    return Refuse("Record already exists!", F::kData);
  if (!ValidNameText(form.server)) return Refuse(kInvalidName, F::kData);
  if (form.pref < 0 || form.pref > 65535) return Refuse("Invalid preference!", F::kPref);
  if (form.ttl <= 0) return Refuse(kZeroTTL, F::kTTL);
  return kPass;
}

clPermRec MXEntry(const MXForm& form) {
  return Record(RecordType::kMX, form.domain, "", TargetData(form.server), form.ttl, form.pref);
}

RecordCheck CheckDomain(const DomainForm& form, const PermModel& model, int editing,
                        const std::string& ownName) {
  if (form.authority != kAuthorityNone) {
    const std::string primary = CleanName(form.primary);
    if (text::TrimBlanks(form.primary).empty()) return Refuse("Please enter Primary DNS server!", F::kPrim);
    // A server the record could not point to: not a name, a bare label, an
    // address, or (for a secondary) this server itself.
    if (!ValidNameText(form.primary) || primary.find('.') == std::string::npos || LooksLikeAddress(primary) ||
        (form.authority == kAuthoritySecondary && primary == CleanName(ownName)))
      return Refuse("Please specify another Primary DNS server!", F::kPrim);
  }
  const std::string email = CleanEMail(form.email);
  const std::size_t at = email.find('@');
  if (at == std::string::npos || at == 0 || at + 1 == email.size()) return Refuse("Invalid e-mail address!", F::kEMail);
  const std::string name = DomainName(form.name);
  const clPermRec* edited = model.Entry(editing);
  const bool root = edited && edited->Domain.empty();
  if (name.empty() && !root) return Refuse("Please enter Domain Name.", F::kName);
  if (AnyOther(model, editing, [&](const clPermRec& e) { return e.RecType == RecordType::kSOA && e.Domain == name; }))
    return Refuse("Domain already exists!", F::kName);
  if (!root && !ValidNameText(form.name)) return Refuse(kInvalidName, F::kName);
  return kPass;
}

clPermRec DomainEntry(const DomainForm& form, const clPermRec* edited) {
  modDNS::SoaData soa;
  soa.Primary = TargetData(form.primary);
  std::string mailbox = CleanEMail(form.email);
  const std::size_t at = mailbox.find('@');
  if (at != std::string::npos) mailbox[at] = '.';
  soa.Mailbox = TargetData(mailbox);
  soa.Serial = edited ? modDNS::SoaData::Parse(edited->Data).Serial : 1;
  if (soa.Serial == 0) soa.Serial = 1;
  soa.Refresh = static_cast<uint32_t>(form.refresh);
  soa.Retry = static_cast<uint32_t>(form.retry);
  soa.Expire = static_cast<uint32_t>(form.expire);
  soa.Minimum = static_cast<uint32_t>(form.ttl);
  const int32_t ttl = edited && edited->TTL > 0 ? edited->TTL : form.ttl;
  return {RecordType::kSOA, DomainName(form.name), "", soa.Pack(), ttl, form.authority};
}

DomainForm DomainFormOf(const clPermRec& entry) {
  DomainForm form;
  form.name = DomainCaption(entry.Domain);
  form.authority = entry.Pref >= kAuthorityNone && entry.Pref <= kAuthoritySecondary ? entry.Pref : kAuthorityPrimary;
  if (entry.Data.empty()) return form;
  const modDNS::SoaData soa = modDNS::SoaData::Parse(entry.Data);
  form.primary = CleanName(soa.Primary);
  // The mailbox's first label is the part before "@".
  const std::string mailbox = CleanName(soa.Mailbox);
  const std::size_t dot = mailbox.find('.');
  form.email = dot == std::string::npos ? mailbox : mailbox.substr(0, dot) + "@" + mailbox.substr(dot + 1);
  form.refresh = static_cast<int32_t>(std::min<uint32_t>(soa.Refresh, 2147483647u));
  form.retry = static_cast<int32_t>(std::min<uint32_t>(soa.Retry, 2147483647u));
  form.expire = static_cast<int32_t>(std::min<uint32_t>(soa.Expire, 2147483647u));
  form.ttl = static_cast<int32_t>(std::min<uint32_t>(soa.Minimum, 2147483647u));
  return form;
}

DomainForm NewDomainForm(const PermModel& model, const std::string& parent, const std::string& ownName) {
  DomainForm form;
  const clPermRec* above = model.Entry(model.DomainEntry(parent));
  if (above && above->Pref != kAuthorityNone && !above->Data.empty()) form = DomainFormOf(*above);
  else form.primary = CleanName(ownName);
  form.name = parent.empty() ? "" : "." + parent;
  form.email.clear();
  return form;
}

std::string DefaultEMail(std::string_view name) {
  const std::string domain = DomainName(name);
  return domain.empty() ? "" : "hostmaster@" + domain;
}

std::string CleanEMail(std::string_view email) {
  const std::size_t at = email.find('@');
  if (at == std::string_view::npos) return std::string(email);
  std::string mailbox(email.substr(0, at));
  for (char& c : mailbox)
    if (c == '.') c = '-';
  return CleanName(mailbox) + "@" + CleanName(email.substr(at + 1));
}

}  // namespace modEditor

}  // namespace korvane
