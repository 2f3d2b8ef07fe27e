#pragma once
// Records of every BPDU kind built from plain values, and from the text form that stptxrx-pcap takes
// after --record: comma-separated FIELD=VALUE items (see recordFromText). Every value is checked against
// the field it goes to; one that does not fit is refused with a named reason, never cut to fit.
#include <stptxrx/Stp/BpduLink.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace StpTxRx {

/// The values of a common-instance entry that a Configuration or RST BPDU carries.
struct CistValues {
  Stp::RstpBpduFlags flags;
  Stp::BridgeId rootId;
  Stp::PathCost rootPathCost = 0;
  Stp::BridgeId bridgeId;
  Stp::PortId portId;
  Stp::TimerVal messageAge;
  Stp::TimerVal maxAge;
  Stp::TimerVal helloTime;
  Stp::TimerVal fwdDelay;
};

/// The reference entry: root 32768.1.00:11:22:33:44:55 at cost 20000, bridge 4096.0.00:aa:bb:cc:dd:ee,
/// port 128.3, timers 0 / 20 s / 2 s / 15 s, flags 0x3c (designated, learning, forwarding).
STPTXRX_EXPORT CistValues goldenCist();

/// The values one MSTI configuration message carries. The message holds only the priorities of the
/// bridge and port identifiers; the record gets the rest as a decode fills it (see mstRecordEntry).
struct MstiValues {
  std::uint16_t mstid = 1;
  Stp::RstpBpduFlags flags;
  std::uint16_t regionalRootPriority = 0;
  Nelk::EthAddr regionalRootAddress;
  Stp::PathCost intRootPathCost = 0;
  std::uint16_t bridgePriority = 0;
  std::uint8_t portPriority = 0;
  std::uint8_t remainingHops = 0;
};

/// The values of a whole record: version and type (they pick the BPDU kind), the common instance, and
/// what only an MST BPDU carries: the configuration identifier, the CIST regional root, internal cost
/// and hops, and the MSTIs. The defaults make an RST record with the golden entry; the CIST regional
/// fields default to recognisable non-zero values so that a kind that does not carry them visibly
/// leaves them out.
struct RecordValues {
  Stp::StpBpduVersion version{2};
  Stp::StpBpduType type{2};
  CistValues cist = goldenCist();
  std::string configName;
  std::uint16_t configRevision = 0;
  Stp::MstpConfigDigest configDigest;
  Stp::BridgeId cistRegionalRoot{0x7000, 7, Nelk::EthAddr(0x02, 0, 0, 0, 0, 0x77)};
  Stp::PathCost cistIntRootPathCost = 777;
  std::uint8_t cistRemainingHops = 19;
  std::vector<MstiValues> mstis;  ///< in any order; the encoder sends them by ascending MSTID
};

/// Fills the MSTI entry `e` from `m` as decoding its message would: the regional root and bridge
/// identifier carry the MSTID as their extension, the bridge identifier the CIST bridge address and the
/// port identifier the CIST port number; the attributes a message does not carry are left alone. A record
/// written and read back is therefore the same record.
STPTXRX_EXPORT void mstRecordEntry(IntxMstiInfo& e, const MstiValues& m, const CistValues& cist);

/// A new record of `v` (no VLAN): entry 0 holds the common instance, one entry per MSTI follows. Entry
/// 0's MSTI regional root, which no BPDU carries, holds a recognisable non-zero value. Nothing is checked
/// here: recordFromText checks text, and the encoder reports what it cannot send.
STPTXRX_EXPORT IntxInfo::Ptr intxRecord(const RecordValues& v);
/// An RST record (version 2, type 2, no VLAN) whose entry 0 holds `v`.
STPTXRX_EXPORT IntxInfo::Ptr rstRecord(const CistValues& v);

/// A record's values and the frame to send it in: IEEE or PVST+, tagged or not. A PVST+ frame is for
/// VLAN `vlan`, tagged with it when `tagged` (a VLAN other than the port's native one) and untagged
/// otherwise (the native VLAN).
struct BpduRecipe {
  RecordValues values;
  bool tagged = false;
  Bridging::VlanIdOrNone vlan;  ///< 1 to 4094 when tagged or PVST+: the tag's and the PVST+ VLAN
  BpduEncapsulation encapsulation = BpduEncapsulation::ieee;
};

/// Why a record text was refused. Each has a text (recordTextErrorText).
enum class RecordTextError : std::uint8_t {
  none,
  emptyRecord,        ///< "empty record"
  notFieldValue,      ///< "not FIELD=VALUE"
  unknownField,       ///< "unknown field"
  repeatedField,      ///< "field given more than once"
  repeatedMsti,       ///< "MSTI given more than once"
  badValue,           ///< "not a valid value for the field"
  tooWide,            ///< "value wider than the field"
  bridgePriority,     ///< "bridge priority not a multiple of 4096 from 0 to 61440"
  systemIdExtension,  ///< "system-id extension above 4095"
  portPriority,       ///< "port priority not a multiple of 16 from 0 to 240"
  portNumber,         ///< "port number above 4095"
  vlan,               ///< "VLAN outside 1 to 4094"
  mstiId,             ///< "MSTI id outside 1 to 4095"
  pvstVlanMismatch,   ///< "vlan differs from pvst: a PVST+ frame is tagged with its own VLAN"
};
STPTXRX_EXPORT const char* recordTextErrorText(RecordTextError error);

/// The outcome of recordFromText: the recipe, or the first item refused and why.
struct RecordTextResult {
  BpduRecipe recipe;  ///< meaningful only when error is none
  RecordTextError error = RecordTextError::none;
  std::string item;   ///< the refused item as given (empty for emptyRecord)
  explicit operator bool() const { return error == RecordTextError::none; }
  /// "ITEM: REASON" ("empty record" alone for an empty text); "" when nothing was refused.
  STPTXRX_EXPORT std::string message() const;
};

/// Builds a recipe from `items`, comma-separated FIELD=VALUE items; fields not given keep the values of
/// RecordValues{}. Fields (numbers decimal or 0x hex):
///   version, type (0-255), vlan (1-4094, tags the frame), pvst (1-4094: a PVST+ frame for that VLAN,
///   untagged, or tagged with it when vlan gives the same VLAN; another vlan is refused, as the
///   receiver rejects a PVST+ frame whose tag is not its VLAN), flags (0-255), cost, intcost (32-bit),
///   root, bridge, regroot (PRIORITY/EXTENSION/MAC), port (PRIORITY/NUMBER),
///   age, maxage, hello, fwd (0-0xffff, 1/256 s), name (text without ','; longer than 32 octets the
///   encoder refuses it, BpduEncodeError::nameTooLong), revision (16-bit),
///   digest (32 hex digits), hops (0-255),
///   msti=ID/FLAGS/ROOTPRIO/ROOTMAC/COST/BRIDGEPRIO/PORTPRIO/HOPS (repeatable, each ID once).
/// A bridge priority is a multiple of 4096 up to 61440, an extension or port number at most 4095, a port
/// priority a multiple of 16 up to 240, an MSTI id 1 to 4095. Every field but msti is given at most once.
/// An empty text is refused (it names no record). Allocates; not for hot paths.
STPTXRX_EXPORT RecordTextResult recordFromText(std::string_view items);

/// A non-negative number: decimal, or hex after "0x" (a leading 0 is not octal). Empty when the text is
/// not one or the value exceeds `max`.
STPTXRX_EXPORT std::optional<unsigned long> numberFromText(std::string_view text, unsigned long max);

}  // namespace StpTxRx
