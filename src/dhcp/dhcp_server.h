// The DHCP server: reads requests from the DHCP sockets' buffers, assigns
// addresses from the pools of the DHCP interfaces, keeps the lease table and
// its file, and answers through the socket that received the request.
//
// The shell's part:
//  - bind one socket per DHCP interface (indexes from 1) and announce it with
//    SetSocket(k, sender, local address); CloseSocket(k) when it goes;
//  - hand every received datagram to DataArrival(k, bytes, sender address);
//  - set DHCPRefresh (redraw the lease list from ActiveLeases()) and
//    LeasesChanged (save the lease file, coalesced, with Save());
//  - call Load() at start-up and Save() at close; DeleteClient() is the lease
//    list's delete command;
//  - redraw the lease list also at NextExpiry(), when a lease runs out without
//    a request; LeasesVersion() tells whether the table changed since a redraw.
// Every procedure catches its own faults and hands them to the error reporter
// under "modDHCP <procedure>"; none throws.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dhcp/lease_table.h"
#include "dhcp/message.h"
#include "store/dhcp_if.h"
#include "store/lease_source.h"
#include "store/options.h"
#include "store/record_list.h"
#include "wire/services.h"

namespace korvane {

namespace modDHCP {

constexpr int kSocketCount = 11;  // socket indexes 0 to 10
constexpr int kClientPort = 68;

// Two upper-case hexadecimal digits per byte, no separators.
std::string HWToHex(std::string_view bytes, ErrorReporter& errors = DefaultErrorReporter());
// One byte per pair of characters; a pair that is not hexadecimal gives 0,
// an odd last character is ignored.
std::string HexToHW(std::string_view text, ErrorReporter& errors = DefaultErrorReporter());

}  // namespace modDHCP

// How full one pool is: active leases of addresses inside it, and its size.
struct PoolUse {
  std::string IPaddr;  // the DHCP interface's own address
  std::uint64_t inUse = 0;
  std::uint64_t size = 0;
};

class DhcpServer : public LeaseSource {
 public:
  // The DHCP interfaces, options and records are read at each use, so reloads
  // of them need no call here. `folder` is the program folder (no trailing "/").
  DhcpServer(const DHCPifList& DHCPifs, const Options& options, const RecordList& records,
             const Clock& clock, LogSink& log, ErrorReporter& errors, std::string folder);

  // The lease list redraw; called after every change made by a request.
  std::function<void()> DHCPRefresh;
  // Called after every change of the lease table.
  std::function<void()> LeasesChanged;

  // Socket k (0 to 10) sends through `sender` (not owned, may be null) and
  // holds `localAddress`. Out-of-range k is ignored.
  void SetSocket(int k, DatagramSender* sender, std::string localAddress);
  void CloseSocket(int k);

  // Appends a received datagram to socket k's buffer and reads it. An index
  // outside 0..10 is reported and the datagram dropped.
  void DataArrival(int k, std::string_view datagram, const std::string& sender);
  // Reads the message held in DHCPBuffers(k); `sender` is its source address.
  // An incomplete message is kept for the next datagram, up to 64 KiB.
  void Arrival(int16_t k, const std::string& sender);

  void Discover(const clDHCPRequest& request);
  void Request(const clDHCPRequest& request);
  // Ends the first lease of this identity now; the lease stays in the table.
  void Release(const std::string& clientID);
  // May `address` be given to a client named `name`? False when cut short.
  bool ValidLease(const clDHCPif& interface, const std::string& address, const std::string& name,
                  bool reuse);
  // Removes every lease of `address`, and of `name` when it is not empty.
  void Remove(const std::string& address, const std::string& name);
  // Builds the reply of `type` (2, 5 or 6) and sends it through the request's socket.
  void Send(const clDHCPRequest& request, int16_t type, const std::string& address);
  // Removes every lease of this identity (the lease list's delete).
  void DeleteClient(const std::string& clientID);

  // Writes "dhcp.dat" whole. False (and reported) when it cannot be written.
  bool Save();
  // Replaces the leases by those of "dhcp.dat"; a missing file leaves none.
  // Logs each line it skips or cuts and a summary; returns how many lines
  // it warned about.
  int Load();
  std::string LeaseFilePath() const { return folder_ + "/dhcp.dat"; }

  const LeaseTable& Leases() const { return leases_; }
  // The lease list's rows: the leases whose Expires is later than now, in
  // table order. A row's ClientID is the identity DeleteClient takes.
  std::vector<clLease> ActiveLeases() const;
  // The earliest Expires among the active leases: the moment the lease list
  // next changes without a request. nullopt when no lease is active.
  std::optional<DateTime> NextExpiry() const;
  // One entry per DHCP interface, in their order; for a status display that
  // asks once a second (a walk of the table per pool).
  std::vector<PoolUse> PoolsInUse() const;
  // Grows with every change of the lease table (requests, Load, DeleteClient),
  // so an unchanged value means the same table; the passing of time does not
  // count (see NextExpiry).
  std::uint64_t LeasesVersion() const { return leases_.Version(); }
  const std::string& DHCPBuffers(int k) const { return buffers_.at(k); }

  // LeaseSource
  std::vector<LeaseView> LeasesNamed(const std::string& name) const override;
  std::vector<LeaseView> LeasesOfAddress(const std::string& ip) const override;

 private:
  struct Socket {
    DatagramSender* sender = nullptr;
    std::string localAddress;
  };

  void ReadMessage(int16_t k, const std::string& sender);
  const clDHCPif* InterfaceOf(const std::string& localAddress) const;
  void Dispatch(modDHCP::ParsedMessage& parsed, const std::string& sender,
                const std::string& localAddress);
  void LogReply(int16_t type, const std::string& clientName, const std::string& address);
  std::vector<LeaseView> Views(const LeaseTable::Ids& ids) const;
  // Checks 5, 6 and 7 of ValidLease, which do not depend on the address.
  bool NameMayLease(const std::string& name, bool reuse) const;
  // The lowest pool address ValidLease accepts, as the upward walk from
  // ScopeFrom would find it.
  std::optional<std::string> SearchPool(const clDHCPif& interface, const std::string& name,
                                        bool reuse);
  void RemoveFirstOf(const std::string& clientID);
  // Runs `change`, reports its fault under `tag`, and calls LeasesChanged
  // when the table changed.
  template <class Change>
  void Changing(const char* tag, Change change);
  void Refresh();
  void Fault(const char* tag, const std::exception& error);

  const DHCPifList& DHCPifs_;
  const Options& options_;
  const RecordList& records_;
  const Clock& clock_;
  LogSink& log_;
  ErrorReporter& errors_;
  std::string folder_;

  LeaseTable leases_;
  std::array<std::string, modDHCP::kSocketCount> buffers_;
  std::array<Socket, modDHCP::kSocketCount> sockets_;
};

}  // namespace korvane
