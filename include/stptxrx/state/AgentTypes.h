#pragma once
// The spanning-tree agent's own types that this library reads: the port state machine that leads to a
// port's MAC address, the BPDU filter settings and the logging mode of interface events. The agent owns
// and fills them; the library only reads them. The packed views of BPDU bodies are in BpduWire.h.
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/IntfId.h>
#include <stptxrx/net/NetTypes.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/StpTypes.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <utility>

namespace Stp {

// ---------------------------------------------------------------------------------------------------
// Port record and port state machine
// ---------------------------------------------------------------------------------------------------

/// The agent's record of one spanning-tree port: its interface (the key) and the MAC address its BPDUs
/// are sent from. Created with Port::PortIs; the key never changes.
class STPTXRX_EXPORT Port : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<Port>;
  using PtrConst = Zek::Ptr<Port const>;

  // Attribute identifiers, in declaration order (the key first).
  static constexpr Zek::AttributeId idIntfId = 258;
  static constexpr Zek::AttributeId idPortAddr = 259;

  static Ptr PortIs(const Nelk::IntfId& intfId, const Nelk::EthAddr& portAddr = {});

  const Nelk::IntfId& intfId() const { return intfId_; }
  /// Source MAC address of the BPDUs sent on the port.
  const Nelk::EthAddr& portAddr() const { return portAddr_; }
  void portAddrIs(const Nelk::EthAddr& v) { attributeIs(portAddr_, v, idPortAddr); }

 private:
  Port(const Nelk::IntfId& intfId, const Nelk::EthAddr& portAddr) : intfId_(intfId), portAddr_(portAddr) {}

  Nelk::IntfId intfId_;
  Nelk::EthAddr portAddr_;

  ZEK_TYPE(Port);
};

/// The agent's per-port MST state machine, as far as BPDU building needs it: it holds its port record
/// by counted pointer. A state machine without a port record (null `port()`) cannot send BPDUs; giving
/// one to the BPDU encoder is a caller error.
class STPTXRX_EXPORT MstPortSm : public Zek::PtrInterface {
 public:
  using Ptr = Zek::Ptr<MstPortSm>;
  using PtrConst = Zek::Ptr<MstPortSm const>;

  /// A state machine for `port` (may be null; see the class comment).
  static Ptr MstPortSmIs(Port::Ptr port);

  const Port::Ptr& port() const { return port_; }
  void portIs(Port::Ptr port) { port_ = std::move(port); }

 private:
  explicit MstPortSm(Port::Ptr port) : port_(std::move(port)) {}

  Port::Ptr port_;

  ZEK_TYPE(MstPortSm);
};

// ---------------------------------------------------------------------------------------------------
// BPDU filter settings
// ---------------------------------------------------------------------------------------------------

/// BPDU filter setting of one port. Values other than the three named ones may arrive from the agent's
/// configuration; the filter decision treats every value but `followDefault` and `enabled` as off.
enum class BpdufilterMode : std::uint8_t {
  followDefault = 0,  ///< the global default decides (when the port allows it)
  enabled = 1,        ///< always filter
  disabled = 2,       ///< never filter
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, BpdufilterMode m);

/// Configured settings of one port. Created with PortConfig::PortConfigIs (mode followDefault, default
/// not allowed).
class STPTXRX_EXPORT PortConfig : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<PortConfig>;
  using PtrConst = Zek::Ptr<PortConfig const>;

  static constexpr Zek::AttributeId idBpdufilterMode = 258;
  static constexpr Zek::AttributeId idBpdufilterDefaultAllowed = 259;

  static Ptr PortConfigIs(BpdufilterMode mode = BpdufilterMode::followDefault, bool defaultAllowed = false);

  BpdufilterMode bpdufilterMode() const { return bpdufilterMode_; }
  /// Whether the port may follow the global BPDU filter default at all.
  bool bpdufilterDefaultAllowed() const { return bpdufilterDefaultAllowed_; }

  void bpdufilterModeIs(BpdufilterMode v) { attributeIs(bpdufilterMode_, v, idBpdufilterMode); }
  void bpdufilterDefaultAllowedIs(bool v) { attributeIs(bpdufilterDefaultAllowed_, v, idBpdufilterDefaultAllowed); }

 private:
  PortConfig(BpdufilterMode mode, bool defaultAllowed) : bpdufilterMode_(mode), bpdufilterDefaultAllowed_(defaultAllowed) {}

  BpdufilterMode bpdufilterMode_;
  bool bpdufilterDefaultAllowed_;

  ZEK_TYPE(PortConfig);
};

/// Operational status of one port in a spanning-tree instance, as far as BPDU filtering needs it.
/// Created with StpiPortStatus::StpiPortStatusIs.
class STPTXRX_EXPORT StpiPortStatus : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<StpiPortStatus>;
  using PtrConst = Zek::Ptr<StpiPortStatus const>;

  static constexpr Zek::AttributeId idBpdufilterDefaultOper = 258;

  static Ptr StpiPortStatusIs(bool bpdufilterDefaultOper = false);

  /// Whether the global BPDU filter default is operational on the port (e.g. an edge port).
  bool bpdufilterDefaultOper() const { return bpdufilterDefaultOper_; }
  void bpdufilterDefaultOperIs(bool v) { attributeIs(bpdufilterDefaultOper_, v, idBpdufilterDefaultOper); }

 private:
  explicit StpiPortStatus(bool oper) : bpdufilterDefaultOper_(oper) {}

  bool bpdufilterDefaultOper_;

  ZEK_TYPE(StpiPortStatus);
};

/// Global spanning-tree configuration, as far as BPDU filtering needs it. Created with Config::ConfigIs.
class STPTXRX_EXPORT Config : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<Config>;
  using PtrConst = Zek::Ptr<Config const>;

  static constexpr Zek::AttributeId idBpdufilterDefault = 258;

  static Ptr ConfigIs(bool bpdufilterDefault = false);

  /// The global BPDU filter default for ports that follow it.
  bool bpdufilterDefault() const { return bpdufilterDefault_; }
  void bpdufilterDefaultIs(bool v) { attributeIs(bpdufilterDefault_, v, idBpdufilterDefault); }

 private:
  explicit Config(bool bpdufilterDefault) : bpdufilterDefault_(bpdufilterDefault) {}

  bool bpdufilterDefault_;

  ZEK_TYPE(Config);
};

// ---------------------------------------------------------------------------------------------------
// Logging of interface events
// ---------------------------------------------------------------------------------------------------

/// Whether spanning-tree interface events are logged, at one level of configuration (global or per
/// interface). Other values may arrive from the agent; the logging decision treats them as "not on".
enum class IntfLoggingMode : std::uint8_t {
  on = 0,           ///< log
  off = 1,          ///< do not log
  useDefault = 2,   ///< no setting of its own: the wider level decides
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, IntfLoggingMode m);

}  // namespace Stp
