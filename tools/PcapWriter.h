#pragma once
// Writing frames to a classic pcap capture file (magic 0xa1b2c3d4, format 2.4, link type 1 Ethernet),
// the format every packet analyser opens. Header-only so that the tools, the tests and the examples use
// the same writer without a library of their own.
//
// Frames are written exactly as given: a BPDU frame of 53 octets (or 17 for an empty body) is shorter
// than the 60-octet Ethernet minimum and is NOT padded, so the capture shows the octets the library
// built and nothing else (a NIC would pad on transmission; analysers accept short frames).
#include <stptxrx/net/Pkt.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace StpTxRx::tools {

/// File header of a classic pcap file, fields in the writer's byte order (readers tell the order from
/// the magic number).
struct PcapFileHeader {
  std::uint32_t magicNumber;   ///< 0xa1b2c3d4: microsecond timestamps, byte order of the writer
  std::uint16_t versionMajor;  ///< 2
  std::uint16_t versionMinor;  ///< 4
  std::int32_t thisZone;       ///< offset of local time from UTC, always 0
  std::uint32_t sigFigs;       ///< accuracy of the timestamps, always 0
  std::uint32_t snapLen;       ///< longest frame stored whole
  std::uint32_t linkType;      ///< 1: Ethernet
};
static_assert(sizeof(PcapFileHeader) == 24);

/// Header in front of each frame of a classic pcap file.
struct PcapRecordHeader {
  std::uint32_t tsSec;    ///< timestamp, seconds since the epoch
  std::uint32_t tsUsec;   ///< timestamp, microseconds
  std::uint32_t inclLen;  ///< octets stored in the file
  std::uint32_t origLen;  ///< octets of the frame on the wire
};
static_assert(sizeof(PcapRecordHeader) == 16);

inline constexpr std::uint32_t pcapMagic = 0xa1b2c3d4;
inline constexpr std::uint32_t pcapLinkTypeEthernet = 1;

/// Writes a pcap file frame by frame. Opening writes the file header; the file is complete after every
/// write() and closed by close() or the destructor. Not copyable.
///
///   StpTxRx::tools::PcapWriter out("frames.pcap");
///   if (!out.ok()) ...
///   out.write(*pkt);
class PcapWriter {
 public:
  static constexpr std::uint32_t defaultSnapLen = 65535;

  explicit PcapWriter(const std::string& path, std::uint32_t snapLen = defaultSnapLen) : snapLen_(snapLen) {
    file_ = std::fopen(path.c_str(), "wb");
    if (!file_) return;
    const PcapFileHeader header{pcapMagic, 2, 4, 0, 0, snapLen_, pcapLinkTypeEthernet};
    ok_ = std::fwrite(&header, sizeof header, 1, file_) == 1 && std::fflush(file_) == 0;
  }
  PcapWriter(const PcapWriter&) = delete;
  PcapWriter& operator=(const PcapWriter&) = delete;
  ~PcapWriter() { close(); }

  /// False when the file could not be opened or a write failed.
  bool ok() const { return ok_; }
  std::size_t frames() const { return frames_; }

  /// Appends `size` octets at `data` with the given timestamp; frames longer than the snap length are
  /// cut to it (origLen keeps the full length). False on a write error.
  bool write(const std::uint8_t* data, std::size_t size, std::uint32_t tsSec, std::uint32_t tsUsec) {
    if (!ok_) return false;
    const auto stored = static_cast<std::uint32_t>(size < snapLen_ ? size : snapLen_);
    const PcapRecordHeader record{tsSec, tsUsec, stored, static_cast<std::uint32_t>(size)};
    ok_ = std::fwrite(&record, sizeof record, 1, file_) == 1 &&
          (stored == 0 || std::fwrite(data, stored, 1, file_) == 1) && std::fflush(file_) == 0;
    if (ok_) ++frames_;
    return ok_;
  }

  /// Appends a packet's data. Frame n (from 0) gets the timestamp n seconds after the epoch, so that a
  /// file of the same frames is the same file.
  bool write(const Nelk::Pkt& pkt) {
    return write(pkt.data(), pkt.size(), static_cast<std::uint32_t>(frames_), 0);
  }

  /// Appends a packet's data with a timestamp in seconds since the epoch (as PcapReader gives it),
  /// rounded to the nearest microsecond. A double holds any 32-bit second count to well under half a
  /// microsecond, so the timestamp of a microsecond capture comes back exactly.
  bool write(const Nelk::Pkt& pkt, double time) {
    constexpr double maxTime = 4294967295.0;
    const double t = time > 0 ? (time < maxTime ? time : maxTime) : 0;
    auto sec = static_cast<std::uint32_t>(t);
    auto usec = static_cast<std::uint32_t>((t - sec) * 1e6 + 0.5);
    if (usec >= 1000000) {
      usec = sec == 0xffffffff ? 999999 : 0;
      sec += usec == 0 ? 1 : 0;
    }
    return write(pkt.data(), pkt.size(), sec, usec);
  }

  /// Closes the file; false when a write had failed or closing fails.
  bool close() {
    if (!file_) return ok_;
    if (std::fclose(file_) != 0) ok_ = false;
    file_ = nullptr;
    return ok_;
  }

 private:
  std::FILE* file_ = nullptr;
  std::uint32_t snapLen_;
  std::size_t frames_ = 0;
  bool ok_ = false;
};

}  // namespace StpTxRx::tools
