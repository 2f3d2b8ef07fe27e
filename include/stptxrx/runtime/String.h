#pragma once
#include <stptxrx/runtime/Export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Zek {

/// Immutable, reference-counted character string. Copies share one buffer (copying a name into a trace
/// or a collection key allocates nothing); the empty string holds no buffer at all.
class STPTXRX_EXPORT String {
 public:
  String() noexcept = default;
  String(const char* s) : String(std::string_view(s ? s : "")) {}  // NOLINT(google-explicit-constructor)
  String(std::string_view s);                                     // NOLINT(google-explicit-constructor)
  String(const std::string& s) : String(std::string_view(s)) {}    // NOLINT(google-explicit-constructor)
  String(const String& o) noexcept : rep_(o.rep_) { retain(); }
  String(String&& o) noexcept : rep_(o.rep_) { o.rep_ = nullptr; }
  ~String() { release(); }
  String& operator=(const String& o) noexcept;
  String& operator=(String&& o) noexcept;

  std::string_view view() const noexcept { return rep_ ? std::string_view(rep_->data, rep_->size) : std::string_view(); }
  operator std::string_view() const noexcept { return view(); }  // NOLINT(google-explicit-constructor)
  std::string str() const { return std::string(view()); }
  const char* c_str() const noexcept { return rep_ ? rep_->data : ""; }
  std::size_t size() const noexcept { return rep_ ? rep_->size : 0; }
  bool empty() const noexcept { return size() == 0; }

  String& operator+=(std::string_view s);
  friend String operator+(const String& a, std::string_view b) {
    String r(a);
    r += b;
    return r;
  }
  friend String operator+(const String& a, const String& b) { return a + b.view(); }
  friend String operator+(const String& a, const char* b) { return a + std::string_view(b); }
  friend String operator+(std::string_view a, const String& b) { return String(a) + b.view(); }
  friend String operator+(const char* a, const String& b) { return String(a) + b.view(); }

  friend bool operator==(const String& a, const String& b) noexcept {
    return a.rep_ == b.rep_ || a.view() == b.view();
  }
  friend bool operator==(const String& a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(const String& a, const char* b) noexcept { return a.view() == std::string_view(b); }
  friend bool operator<(const String& a, const String& b) noexcept { return a.view() < b.view(); }

 private:
  struct Rep {
    std::uint32_t refs;
    std::size_t size;
    char data[1];
  };
  void retain() const noexcept {
    if (rep_) ++rep_->refs;
  }
  void release() noexcept;

  Rep* rep_ = nullptr;
};

/// A string used as a collection key (group names).
using Name = String;

STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const String& s);

}  // namespace Zek

template <>
struct std::hash<Zek::String> {
  std::size_t operator()(const Zek::String& s) const noexcept { return std::hash<std::string_view>()(s.view()); }
};
