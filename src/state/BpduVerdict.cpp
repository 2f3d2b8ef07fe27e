#include <stptxrx/state/BpduVerdict.h>

#include <ostream>

namespace StpTxRx {

const char* bpduKindName(BpduKind kind) {
  switch (kind) {
    case BpduKind::Config: return "config";
    case BpduKind::Tcn: return "tcn";
    case BpduKind::Rst: return "rst";
    case BpduKind::Mst: return "mst";
    case BpduKind::Rejected: break;
  }
  return "reject";
}

std::ostream& operator<<(std::ostream& os, BpduKind kind) { return os << bpduKindName(kind); }

namespace {

struct ReasonNames {
  const char* name;
  const char* text;
};

// Indexed by BpduReason.
constexpr ReasonNames reasonNames[bpduReasonCount] = {
    {"none", "valid"},
    {"frameTooShort", "frame too short for its link header"},
    {"notLengthField", "length/type field is not an 802.3 length"},
    {"lengthBelowLlc", "length field shorter than the LLC header"},
    {"lengthBeyondFrame", "length field beyond the frame"},
    {"notStpLlc", "not LLC 42 42 03"},
    {"bpduTooShort", "BPDU shorter than 4 octets"},
    {"protocolIdentifier", "protocol identifier not 0"},
    {"configTooShort", "configuration BPDU shorter than 35 octets"},
    {"messageAgeNotBelowMaxAge", "message age not below max age"},
    {"rstTooShort", "RST BPDU shorter than 36 octets"},
    {"unknownType", "unknown BPDU type or version"},
    {"mstiIdZero", "MSTI message with MSTID 0"},
    {"mstiIdRepeated", "MSTI message repeats an MSTID"},
    {"notPvstSnap", "SNAP not OUI 00 00 0C, protocol 01 0B"},
    {"pvstVersion", "PVST+ BPDU of version 3 or higher"},
    {"pvstNoVlanTlv", "PVST+ BPDU without its originating-VLAN TLV"},
    {"pvstTlvTooShort", "originating-VLAN TLV cut short"},
    {"pvstTlvLength", "originating-VLAN TLV length not 2"},
    {"pvstVlanOutOfRange", "originating VLAN outside 1-4094"},
    {"pvstVlanMismatch", "originating VLAN differs from the tag"},
    {"mstTooShort", "MST BPDU shorter than 102 octets"},
    {"mstVersion1Length", "version 1 length not 0"},
    {"mstVersion3Length", "version 3 length not 64 + 16 x n with n <= 64"},
    {"mstBeyondBpdu", "version 3 length beyond the BPDU"},
    {"rateLimited", "dropped by the rate limit"},
};

const ReasonNames& reasonNamesOf(BpduReason reason) {
  const auto i = static_cast<std::size_t>(reason);
  return reasonNames[i < bpduReasonCount ? i : 0];
}

}  // namespace

const char* bpduReasonText(BpduReason reason) { return reasonNamesOf(reason).text; }
const char* bpduReasonName(BpduReason reason) { return reasonNamesOf(reason).name; }

std::ostream& operator<<(std::ostream& os, const PortCounters& c) {
  os << "config=" << c.configRx << " tcn=" << c.tcnRx << " rst=" << c.rstRx << " mst=" << c.mstRx
     << " rejected=" << c.rejected << " rate-limited=" << c.rateLimited;
  if (c.pvstRx != 0) os << " pvst=" << c.pvstRx;
  for (std::size_t i = 0; i < c.rejectedBy.size(); ++i) {
    if (c.rejectedBy[i] != 0) os << " " << bpduReasonName(static_cast<BpduReason>(i + 1)) << "=" << c.rejectedBy[i];
  }
  return os;
}

}  // namespace StpTxRx
