#pragma once
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/String.h>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string_view>

namespace Nelk {

/// Interface identifier: the interface's name ("Ethernet3", "Ethernet1/2", "PortChannel10").
///
/// Ordered naturally (the alphabetic part as text, digit runs by value: "Ethernet2" < "Ethernet10"),
/// hashed by name, printed by name. Copies share the name's buffer.
class STPTXRX_EXPORT IntfId {
 public:
  IntfId() = default;
  explicit IntfId(Zek::String name) : name_(std::move(name)) {}
  explicit IntfId(const char* name) : name_(name) {}

  const Zek::String& name() const { return name_; }
  bool empty() const { return name_.empty(); }

  /// The short name used in trace messages: the first two letters of the leading word, then the rest
  /// ("Ethernet1/2" -> "Et1/2", "PortChannel10" -> "Po10"); names without a leading word stay as they are.
  Zek::String shortName() const;

  friend bool operator==(const IntfId& a, const IntfId& b) { return a.name_ == b.name_; }
  friend bool operator<(const IntfId& a, const IntfId& b) { return naturalLess(a.name_.view(), b.name_.view()); }

 private:
  static bool naturalLess(std::string_view a, std::string_view b);

  Zek::String name_;
};

/// Prints the full name.
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const IntfId& i);

}  // namespace Nelk

template <>
struct std::hash<Nelk::IntfId> {
  std::size_t operator()(const Nelk::IntfId& i) const noexcept { return std::hash<Zek::String>()(i.name()); }
};
