#pragma once
// Reading a classic pcap capture file (either byte order, micro- or nanosecond timestamps, link type 1
// Ethernet) frame by frame. Header-only, beside PcapWriter.h; used by stptxrx-pcap and the tests.
//
// A damaged file never crashes the reader: a short or unreadable header, an unknown magic number, a
// link type other than Ethernet, a record longer than the snap length (or 256 KiB) or cut off by the
// end of the file each end the reading with an error text.
#include "PcapWriter.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace StpTxRx::tools {

/// One frame of a capture.
struct PcapFrame {
  double time = 0;  ///< seconds since the epoch
  std::uint32_t origLen = 0;
  std::vector<std::uint8_t> data;
};

/// Reads a pcap file; see the file comment. Not copyable.
///
///   PcapReader in("frames.pcap");
///   PcapFrame f;
///   while (in.next(f)) ...
///   if (!in.error().empty()) ...
class PcapReader {
 public:
  static constexpr std::uint32_t maxRecordSize = 256 * 1024;

  explicit PcapReader(const std::string& path) {
    file_ = std::fopen(path.c_str(), "rb");
    if (!file_) {
      error_ = "cannot open " + path;
      return;
    }
    PcapFileHeader h{};
    if (std::fread(&h, sizeof h, 1, file_) != 1) {
      error_ = "not a pcap file: shorter than its 24-octet header";
      return;
    }
    switch (h.magicNumber) {
      case pcapMagic: break;
      case 0xa1b23c4d: nanoseconds_ = true; break;
      case 0xd4c3b2a1: swapped_ = true; break;
      case 0x4d3cb2a1: swapped_ = nanoseconds_ = true; break;
      default: error_ = "not a classic pcap file (unknown magic number)"; return;
    }
    snapLen_ = order(h.snapLen);
    if (order(h.linkType) != pcapLinkTypeEthernet) {
      error_ = "link type " + std::to_string(order(h.linkType)) + " is not Ethernet";
      return;
    }
    ok_ = true;
  }
  PcapReader(const PcapReader&) = delete;
  PcapReader& operator=(const PcapReader&) = delete;
  ~PcapReader() {
    if (file_) std::fclose(file_);
  }

  /// The next frame into `frame`; false at the end of the file or on damage (then error() says what).
  bool next(PcapFrame& frame) {
    if (!ok_) return false;
    PcapRecordHeader r{};
    const std::size_t got = std::fread(&r, 1, sizeof r, file_);
    if (got == 0 && std::feof(file_)) return ok_ = false;  // a clean end
    ok_ = false;
    if (got != sizeof r) return fail("record header cut off at the end of the file");
    const std::uint32_t size = order(r.inclLen);
    if (size > maxRecordSize || (snapLen_ != 0 && size > snapLen_ && size > 65535)) {
      return fail("record of " + std::to_string(size) + " octets is longer than the snap length");
    }
    frame.data.resize(size);
    if (size != 0 && std::fread(frame.data.data(), size, 1, file_) != 1) return fail("frame cut off at the end of the file");
    frame.origLen = order(r.origLen);
    frame.time = order(r.tsSec) + order(r.tsUsec) / (nanoseconds_ ? 1e9 : 1e6);
    ++frames_;
    return ok_ = true;
  }

  /// Empty while the file reads well.
  const std::string& error() const { return error_; }
  std::size_t frames() const { return frames_; }

 private:
  std::uint32_t order(std::uint32_t v) const { return swapped_ ? __builtin_bswap32(v) : v; }
  bool fail(std::string text) {
    error_ = "frame " + std::to_string(frames_ + 1) + ": " + std::move(text);
    return false;
  }

  std::FILE* file_ = nullptr;
  bool ok_ = false;
  bool swapped_ = false;
  bool nanoseconds_ = false;
  std::uint32_t snapLen_ = 0;
  std::size_t frames_ = 0;
  std::string error_;
};

}  // namespace StpTxRx::tools
