// The record dialogs' rules apart from their widgets: each dialog's fields,
// its checks on OK in their fixed order (message and field to focus), and
// the entry the fields make. `editing` is the id of the entry the dialog
// was opened on (0 for a new one); it is left out of the duplicate checks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "editor/perm_model.h"
#include "store/form_check.h"
#include "store/perm_rec.h"

namespace korvane {

namespace modEditor {

enum class RecordField { kNone, kName, kData, kPref, kTTL, kAuth, kPrim, kEMail };
using RecordCheck = FormCheck<RecordField>;

// Added refusals: a name the record file could not hold as typed, a TTL of zero.
extern const char* const kInvalidName;
extern const char* const kZeroTTL;

// A name as typed may be stored: blanks around it, upper case and a final
// dot are fine (they are cleaned away); other characters, empty labels, a
// label over 63 characters or a name over 253 are not.
bool ValidNameText(std::string_view text);

struct HostForm {      // frmPRHost
  std::string domain;  // txtDomain: the shown domain
  std::string name;    // txtName, may be empty (the domain's own address)
  std::string address; // txtData, dotted
  int32_t ttl = 3600;  // txtTTL
};
RecordCheck CheckHost(const HostForm& form, const PermModel& model, int editing);
clPermRec HostEntry(const HostForm& form);

struct NSForm {        // frmPRNS
  std::string domain;
  std::string server;  // txtData
  int32_t ttl = 86400;
};
RecordCheck CheckNS(const NSForm& form, const PermModel& model, int editing);
clPermRec NSEntry(const NSForm& form);

struct CNAMEForm {     // frmPRCNAME
  std::string domain;
  std::string name;    // txtName
  std::string target;  // txtData ("Alias for:")
  int32_t ttl = 3600;
};
RecordCheck CheckCNAME(const CNAMEForm& form, const PermModel& model, int editing);
clPermRec CNAMEEntry(const CNAMEForm& form);

struct MXForm {        // frmPRMX
  std::string domain;
  std::string server;  // txtData
  int32_t pref = 10;   // txtPref, 0..65535
  int32_t ttl = 3600;  // ctlTTL1
};
RecordCheck CheckMX(const MXForm& form, const PermModel& model, int editing);
clPermRec MXEntry(const MXForm& form);

struct DomainForm {    // frmPRDom
  std::string name;    // txtName; "<root>" stands for the root
  int32_t authority = kAuthorityPrimary;  // comAuth's index
  std::string primary; // txtPrim
  std::string email;   // txtEMail
  int32_t refresh = 10800, retry = 3600, expire = 604800, ttl = 86400;  // txtNum(0..3)
};
// `ownName` is this server's name (the NAME option): a secondary cannot
// name itself as its primary.
RecordCheck CheckDomain(const DomainForm& form, const PermModel& model, int editing,
                        const std::string& ownName);
// A new domain's serial is 1; an edited one keeps its serial and TTL (the
// save raises the serial).
clPermRec DomainEntry(const DomainForm& form, const clPermRec* edited);
// The fields of an existing domain entry.
DomainForm DomainFormOf(const clPermRec& entry);
// The form for a new domain below `parent` (the shown domain): the name
// ends in "." + parent, so that the operator types the new labels in front;
// authority, primary and periods come from the parent's entry, when it has
// authority, else from this server's name and the usual periods.
DomainForm NewDomainForm(const PermModel& model, const std::string& parent, const std::string& ownName);

// Leaving txtName with txtEMail empty: "hostmaster@" + the cleaned name
// ("" when the name cleans to nothing).
std::string DefaultEMail(std::string_view name);
// Leaving txtEMail: an address with "@" has the dots before it turned into
// "-" and both parts cleaned; other text stays as it is.
std::string CleanEMail(std::string_view email);

}  // namespace modEditor

}  // namespace korvane
