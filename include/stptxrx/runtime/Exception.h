#pragma once
#include <stptxrx/runtime/Export.h>

#include <exception>
#include <string>
#include <string_view>

namespace Zek {

/// Base of the runtime's exceptions. The runtime raises them for misuse of a mutator; the library never
/// catches them, so they reach the caller that made the change.
class STPTXRX_EXPORT Exception : public std::exception {
 public:
  explicit Exception(std::string what) : what_(std::move(what)) {}
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  std::string what_;
};

/// A create-or-return mutator was given a null entity pointer.
class STPTXRX_EXPORT MutatorArgNullPointerException : public Exception {
 public:
  using Exception::Exception;
};

/// An instantiating collection already holds a member under the key, built from other arguments.
class STPTXRX_EXPORT MutatorReinstantiatingException : public Exception {
 public:
  using Exception::Exception;
};

/// A value outside its range, or a lookup that had to succeed and did not.
class STPTXRX_EXPORT RangeException : public Exception {
 public:
  using Exception::Exception;
};

/// Raises MutatorArgNullPointerException; what(): "<type>::<attribute>: null pointer argument".
[[noreturn]] STPTXRX_EXPORT void throwMutatorArgNullPointerException(std::string_view type,
                                                                      std::string_view attribute);

/// Raises MutatorReinstantiatingException; what() names the type, the attribute and both values:
/// "<type>::<attribute>: reinstantiating with <newValue>, existing <oldValue>".
[[noreturn]] STPTXRX_EXPORT void throwMutatorReinstantiating(std::string_view type, std::string_view attribute,
                                                              std::string_view oldValue,
                                                              std::string_view newValue);

/// The value text of an object in a reinstantiation error, where what differs is the object's identity:
/// "(null)" for null; otherwise its address, preceded by `type` + "@" and followed by " " + `detail`
/// when those are given ("IntxInfo@0x55d0c8 vlan=10").
STPTXRX_EXPORT std::string identityText(const void* object, std::string_view type = {},
                                        std::string_view detail = {});

/// Raises RangeException with `text` as what(), unchanged.
[[noreturn]] STPTXRX_EXPORT void throwRangeException(std::string_view text);

}  // namespace Zek
