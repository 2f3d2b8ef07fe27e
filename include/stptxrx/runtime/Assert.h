#pragma once
#include <stptxrx/runtime/Export.h>

namespace Zek {

/// Reports a failed assertion on stderr (file, line, function, expression) and aborts. Never returns.
/// Assertions are always compiled in: they guard arguments that the library does not support, and a
/// frame built from such arguments would be worse than a stopped process.
[[noreturn]] STPTXRX_EXPORT void assertionFailed(const char* expression, const char* file, int line,
                                                 const char* function) noexcept;

}  // namespace Zek

/// Asserts `expr`; the text printed on failure is the expression as written ("!vlan", "0", ...).
#define ZEK_ASSERT(expr) \
  ((expr) ? static_cast<void>(0) : ::Zek::assertionFailed(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))

/// As ZEK_ASSERT, with the function named by the caller (a stable, documented signature text instead of
/// the compiler's spelling of the current function).
#define ZEK_ASSERT_IN(function, expr) \
  ((expr) ? static_cast<void>(0) : ::Zek::assertionFailed(#expr, __FILE__, __LINE__, function))
