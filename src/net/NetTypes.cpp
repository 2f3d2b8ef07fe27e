// Printing and ordering of the network value types.
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/IntfId.h>

#include <cctype>
#include <cstdio>
#include <ostream>

namespace Nelk {

std::ostream& operator<<(std::ostream& os, const EthAddr& a) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", a[0], a[1], a[2], a[3], a[4], a[5]);
  return os << text;
}

std::optional<EthAddr> EthAddr::fromText(std::string_view text) {
  auto digit = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::array<std::uint8_t, 6> octets{};
  std::size_t pos = 0;
  for (std::size_t i = 0; i < octets.size(); ++i) {
    if (i > 0) {
      if (pos >= text.size() || text[pos] != ':') return std::nullopt;
      ++pos;
    }
    unsigned value = 0;
    std::size_t digits = 0;
    for (int d; digits < 2 && pos < text.size() && (d = digit(text[pos])) >= 0; ++pos, ++digits) {
      value = value * 16 + static_cast<unsigned>(d);
    }
    if (digits == 0) return std::nullopt;
    octets[i] = static_cast<std::uint8_t>(value);
  }
  if (pos != text.size()) return std::nullopt;
  return EthAddr(octets);
}

Zek::String IntfId::shortName() const {
  std::string_view n = name_.view();
  std::size_t word = 0;
  while (word < n.size() && std::isalpha(static_cast<unsigned char>(n[word]))) ++word;
  if (word <= 2) return name_;
  std::string s(n.substr(0, 2));
  s.append(n.substr(word));
  return Zek::String(s);
}

bool IntfId::naturalLess(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  auto digit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
  while (i < a.size() && j < b.size()) {
    if (digit(a[i]) && digit(b[j])) {
      std::size_t ei = i, ej = j;
      while (ei < a.size() && a[ei] == '0') ++ei;
      while (ej < b.size() && b[ej] == '0') ++ej;
      std::size_t si = ei, sj = ej;
      while (ei < a.size() && digit(a[ei])) ++ei;
      while (ej < b.size() && digit(b[ej])) ++ej;
      std::string_view da = a.substr(si, ei - si), db = b.substr(sj, ej - sj);
      if (da.size() != db.size()) return da.size() < db.size();
      if (da != db) return da < db;
      // Equal values: fewer leading zeros first, so that the order stays strict.
      if (ei - i != ej - j) return ei - i < ej - j;
      i = ei;
      j = ej;
    } else {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i;
      ++j;
    }
  }
  return a.size() - i < b.size() - j;
}

std::ostream& operator<<(std::ostream& os, const IntfId& i) { return os << i.name(); }

}  // namespace Nelk
