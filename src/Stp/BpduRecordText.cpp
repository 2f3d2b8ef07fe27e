// Records from plain values and from FIELD=VALUE text.
#include <stptxrx/Stp/BpduRecordText.h>

#include <charconv>
#include <initializer_list>
#include <limits>
#include <set>

namespace StpTxRx {

CistValues goldenCist() {
  CistValues v;
  v.flags = Stp::RstpBpduFlags{0x3c};
  v.rootId = Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)};
  v.rootPathCost = 20000;
  v.bridgeId = Stp::BridgeId{4096, 0, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee)};
  v.portId = Stp::PortId(128, 3);
  v.messageAge = Stp::TimerVal(0x00, 0x00);
  v.maxAge = Stp::TimerVal(0x14, 0x00);
  v.helloTime = Stp::TimerVal(0x02, 0x00);
  v.fwdDelay = Stp::TimerVal(0x0f, 0x00);
  return v;
}

void mstRecordEntry(IntxMstiInfo& e, const MstiValues& m, const CistValues& cist) {
  e.flagsIs(m.flags);
  e.regionalRootBridgeIdIs(Stp::BridgeId{m.regionalRootPriority, m.mstid, m.regionalRootAddress});
  e.intRootPathCostIs(m.intRootPathCost);
  e.bridgeIdIs(Stp::BridgeId{m.bridgePriority, m.mstid, cist.bridgeId.address});
  e.portIdIs(Stp::PortId(m.portPriority, cist.portId.portNumber));
  e.remainingHopsIs(m.remainingHops);
}

IntxInfo::Ptr intxRecord(const RecordValues& v) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  info->stpVersionIs(v.version);
  info->intxInfoTypeIs(v.type);
  info->configRevisionLevelIs(v.configRevision);
  info->configNameStringIs(Zek::String(v.configName));
  info->configDigestIs(v.configDigest);
  Zek::Ptr<IntxMstiInfo> e = info->mstiNIs(Stp::BridgeSystemId(0));
  e->flagsIs(v.cist.flags);
  e->bridgeIdIs(v.cist.bridgeId);
  e->portIdIs(v.cist.portId);
  e->cistRootBridgeIdIs(v.cist.rootId);
  e->cistExtRootPathCostIs(v.cist.rootPathCost);
  e->cistRegionalRootBridgeIdIs(v.cistRegionalRoot);
  e->intRootPathCostIs(v.cistIntRootPathCost);
  e->regionalRootBridgeIdIs(Stp::BridgeId{0x7000, 7, Nelk::EthAddr(0x02, 0, 0, 0, 0, 0x78)});
  e->remainingHopsIs(v.cistRemainingHops);
  e->messageAgeIs(v.cist.messageAge);
  e->maxAgeIs(v.cist.maxAge);
  e->helloTimeIs(v.cist.helloTime);
  e->fwdDelayIs(v.cist.fwdDelay);
  for (const MstiValues& m : v.mstis) mstRecordEntry(*info->mstiNIs(Stp::BridgeSystemId(m.mstid)), m, v.cist);
  return info;
}

IntxInfo::Ptr rstRecord(const CistValues& v) {
  RecordValues r;
  r.cist = v;
  return intxRecord(r);
}

const char* recordTextErrorText(RecordTextError error) {
  switch (error) {
    case RecordTextError::none: return "no error";
    case RecordTextError::emptyRecord: return "empty record";
    case RecordTextError::notFieldValue: return "not FIELD=VALUE";
    case RecordTextError::unknownField: return "unknown field";
    case RecordTextError::repeatedField: return "field given more than once";
    case RecordTextError::repeatedMsti: return "MSTI given more than once";
    case RecordTextError::badValue: return "not a valid value for the field";
    case RecordTextError::tooWide: return "value wider than the field";
    case RecordTextError::bridgePriority: return "bridge priority not a multiple of 4096 from 0 to 61440";
    case RecordTextError::systemIdExtension: return "system-id extension above 4095";
    case RecordTextError::portPriority: return "port priority not a multiple of 16 from 0 to 240";
    case RecordTextError::portNumber: return "port number above 4095";
    case RecordTextError::vlan: return "VLAN outside 1 to 4094";
    case RecordTextError::mstiId: return "MSTI id outside 1 to 4095";
    case RecordTextError::pvstVlanMismatch: return "vlan differs from pvst: a PVST+ frame is tagged with its own VLAN";
  }
  return "unknown error";
}

std::string RecordTextResult::message() const {
  if (error == RecordTextError::none) return {};
  if (item.empty()) return recordTextErrorText(error);
  return "'" + item + "': " + recordTextErrorText(error);
}

std::optional<unsigned long> numberFromText(std::string_view text, unsigned long max) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  unsigned long v = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v, hex ? 16 : 10);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || v > max) return std::nullopt;
  return v;
}

namespace {

using Error = RecordTextError;
constexpr unsigned long anyNumber = std::numeric_limits<unsigned long>::max();

// `text` cut at every '/'.
std::vector<std::string_view> slashParts(std::string_view text) {
  std::vector<std::string_view> parts;
  for (std::size_t slash; (slash = text.find('/')) != std::string_view::npos; text.remove_prefix(slash + 1)) {
    parts.push_back(text.substr(0, slash));
  }
  parts.push_back(text);
  return parts;
}

// A number for a field of at most `max`: badValue when it is not a number, tooWide when it is above.
template <class T>
Error numberInto(std::string_view text, unsigned long max, T& out) {
  const auto n = numberFromText(text, anyNumber);
  if (!n) return Error::badValue;
  if (*n > max) return Error::tooWide;
  out = static_cast<T>(*n);
  return Error::none;
}

// The first error of a list of checks, none when all passed.
Error firstOf(std::initializer_list<Error> errors) {
  for (Error e : errors) {
    if (e != Error::none) return e;
  }
  return Error::none;
}

Error bridgePriority(std::string_view text, std::uint16_t& out) {
  const auto n = numberFromText(text, anyNumber);
  if (!n) return Error::badValue;
  if (*n % 4096 != 0 || *n > Stp::BridgePriority::maxBridgePriority) return Error::bridgePriority;
  out = static_cast<std::uint16_t>(*n);
  return Error::none;
}

Error portPriority(std::string_view text, std::uint8_t& out) {
  const auto n = numberFromText(text, anyNumber);
  if (!n) return Error::badValue;
  if (*n % 16 != 0 || *n > 240) return Error::portPriority;
  out = static_cast<std::uint8_t>(*n);
  return Error::none;
}

// A 12-bit quantity (extension, port number) refused above 4095 with `reason`.
Error twelveBits(std::string_view text, Error reason, std::uint16_t& out) {
  const auto n = numberFromText(text, anyNumber);
  if (!n) return Error::badValue;
  if (*n > 0x0fff) return reason;
  out = static_cast<std::uint16_t>(*n);
  return Error::none;
}

Error mac(std::string_view text, Nelk::EthAddr& out) {
  const auto a = Nelk::EthAddr::fromText(text);
  if (!a) return Error::badValue;
  out = *a;
  return Error::none;
}

// "PRIORITY/EXTENSION/MAC"
Error bridgeId(std::string_view text, Stp::BridgeId& out) {
  const auto p = slashParts(text);
  if (p.size() != 3) return Error::badValue;
  Stp::BridgeId id;
  const Error e = firstOf({bridgePriority(p[0], id.priority), twelveBits(p[1], Error::systemIdExtension, id.systemIdExtension),
                           mac(p[2], id.address)});
  if (e == Error::none) out = id;
  return e;
}

// "PRIORITY/NUMBER"
Error portId(std::string_view text, Stp::PortId& out) {
  const auto p = slashParts(text);
  if (p.size() != 2) return Error::badValue;
  Stp::PortId id;
  const Error e = firstOf({portPriority(p[0], id.priority), twelveBits(p[1], Error::portNumber, id.portNumber)});
  if (e == Error::none) out = id;
  return e;
}

// 32 hex digits, optionally after "0x".
Error digest(std::string_view text, Stp::MstpConfigDigest& out) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  if (text.size() != 2 * out.octets.size()) return Error::badValue;
  Stp::MstpConfigDigest d;
  for (std::size_t i = 0; i < d.octets.size(); ++i) {
    const char* first = text.data() + 2 * i;
    const auto [end, ec] = std::from_chars(first, first + 2, d.octets[i], 16);
    if (ec != std::errc() || end != first + 2) return Error::badValue;
  }
  out = d;
  return Error::none;
}

// "ID/FLAGS/ROOTPRIO/ROOTMAC/COST/BRIDGEPRIO/PORTPRIO/HOPS"
Error msti(std::string_view text, MstiValues& out) {
  const auto p = slashParts(text);
  if (p.size() != 8) return Error::badValue;
  MstiValues m;
  const Error e = firstOf({twelveBits(p[0], Error::mstiId, m.mstid), numberInto(p[1], 0xff, m.flags.value),
                           bridgePriority(p[2], m.regionalRootPriority), mac(p[3], m.regionalRootAddress),
                           numberInto(p[4], 0xffffffff, m.intRootPathCost), bridgePriority(p[5], m.bridgePriority),
                           portPriority(p[6], m.portPriority), numberInto(p[7], 0xff, m.remainingHops)});
  if (e != Error::none) return e;
  if (m.mstid == 0) return Error::mstiId;
  out = m;
  return Error::none;
}

Error timer(std::string_view text, Stp::TimerVal& out) {
  std::uint16_t wire = 0;
  const Error e = numberInto(text, 0xffff, wire);
  if (e == Error::none) out = Stp::TimerVal::fromWire(wire);
  return e;
}

// vlan= (`e` ieee: tags the frame) or pvst= (`e` pvst: a PVST+ frame for the VLAN). 0 is no VLAN and
// 4095 reserved: neither goes in a tag or a PVST+ frame. Given both, they name one VLAN, in any order.
Error recipeVlan(std::string_view text, BpduRecipe& r, BpduEncapsulation e) {
  const auto n = numberFromText(text, anyNumber);
  if (!n) return Error::badValue;
  if (*n < 1 || *n > maxVlanId) return Error::vlan;
  const Bridging::VlanIdOrNone vlan(static_cast<std::uint16_t>(*n));
  const bool otherGiven = e == BpduEncapsulation::pvst ? r.tagged : r.encapsulation == BpduEncapsulation::pvst;
  if (otherGiven && r.vlan != vlan) return Error::pvstVlanMismatch;
  if (e == BpduEncapsulation::pvst) {
    r.encapsulation = e;
  } else {
    r.tagged = true;
  }
  r.vlan = vlan;
  return Error::none;
}

// One scalar field: its name and how its value goes into the recipe.
struct Field {
  std::string_view name;
  Error (*parse)(std::string_view value, BpduRecipe& r);
};

constexpr Field fields[] = {
    {"version", [](std::string_view t, BpduRecipe& r) { return numberInto(t, 0xff, r.values.version.value); }},
    {"type", [](std::string_view t, BpduRecipe& r) { return numberInto(t, 0xff, r.values.type.value); }},
    {"vlan", [](std::string_view t, BpduRecipe& r) { return recipeVlan(t, r, BpduEncapsulation::ieee); }},
    {"pvst", [](std::string_view t, BpduRecipe& r) { return recipeVlan(t, r, BpduEncapsulation::pvst); }},
    {"flags", [](std::string_view t, BpduRecipe& r) { return numberInto(t, 0xff, r.values.cist.flags.value); }},
    {"root", [](std::string_view t, BpduRecipe& r) { return bridgeId(t, r.values.cist.rootId); }},
    {"cost", [](std::string_view t, BpduRecipe& r) { return numberInto(t, 0xffffffff, r.values.cist.rootPathCost); }},
    {"bridge", [](std::string_view t, BpduRecipe& r) { return bridgeId(t, r.values.cist.bridgeId); }},
    {"port", [](std::string_view t, BpduRecipe& r) { return portId(t, r.values.cist.portId); }},
    {"age", [](std::string_view t, BpduRecipe& r) { return timer(t, r.values.cist.messageAge); }},
    {"maxage", [](std::string_view t, BpduRecipe& r) { return timer(t, r.values.cist.maxAge); }},
    {"hello", [](std::string_view t, BpduRecipe& r) { return timer(t, r.values.cist.helloTime); }},
    {"fwd", [](std::string_view t, BpduRecipe& r) { return timer(t, r.values.cist.fwdDelay); }},
    {"name",
     [](std::string_view t, BpduRecipe& r) {
       r.values.configName = std::string(t);  // a name too long to send is the encoder's to refuse
       return Error::none;
     }},
    {"revision", [](std::string_view t, BpduRecipe& r) { return numberInto(t, 0xffff, r.values.configRevision); }},
    {"digest", [](std::string_view t, BpduRecipe& r) { return digest(t, r.values.configDigest); }},
    {"regroot", [](std::string_view t, BpduRecipe& r) { return bridgeId(t, r.values.cistRegionalRoot); }},
    {"intcost",
     [](std::string_view t, BpduRecipe& r) { return numberInto(t, 0xffffffff, r.values.cistIntRootPathCost); }},
    {"hops", [](std::string_view t, BpduRecipe& r) { return numberInto(t, 0xff, r.values.cistRemainingHops); }},
};
constexpr std::size_t fieldCount = sizeof fields / sizeof fields[0];

}  // namespace

RecordTextResult recordFromText(std::string_view items) {
  RecordTextResult result;
  if (items.empty()) {
    result.error = Error::emptyRecord;
    return result;
  }
  bool seen[fieldCount] = {};
  std::set<std::uint16_t> mstids;
  for (bool last = false; !last;) {
    const std::size_t comma = items.find(',');
    last = comma == std::string_view::npos;
    const std::string_view item = items.substr(0, comma);
    if (!last) items.remove_prefix(comma + 1);
    auto refuse = [&](Error e) {
      result.error = e;
      result.item = std::string(item);
      return result;
    };
    const std::size_t eq = item.find('=');
    if (eq == std::string_view::npos) return refuse(Error::notFieldValue);
    const std::string_view name = item.substr(0, eq);
    const std::string_view value = item.substr(eq + 1);
    if (name == "msti") {
      MstiValues m;
      if (const Error e = msti(value, m); e != Error::none) return refuse(e);
      if (!mstids.insert(m.mstid).second) return refuse(Error::repeatedMsti);
      result.recipe.values.mstis.push_back(m);
      continue;
    }
    std::size_t i = 0;
    while (i < fieldCount && fields[i].name != name) ++i;
    if (i == fieldCount) return refuse(Error::unknownField);
    if (seen[i]) return refuse(Error::repeatedField);
    seen[i] = true;
    if (const Error e = fields[i].parse(value, result.recipe); e != Error::none) return refuse(e);
  }
  return result;
}

}  // namespace StpTxRx
