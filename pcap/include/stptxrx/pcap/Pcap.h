#pragma once
// StpTxRx::pcap, the companion library on libpcap (CMake target StpTxRx::pcap, pkg-config stptxrx-pcap):
// capture files read (classic pcap and pcapng, link type Ethernet) and written (classic pcap), and a
// live port that receives BPDUs and sends frames. No libpcap type appears here; a program includes this
// header and links the companion, never libpcap itself.
//
// Files are written exactly as given: a BPDU frame of 53 octets is shorter than the 60-octet Ethernet
// minimum and is NOT padded, so the capture shows the octets the library built and nothing else.
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace StpTxRx::pcap {

/// One frame of a capture or of a live port.
struct PcapFrame {
  double time = 0;           ///< seconds since the epoch
  std::uint32_t origLen = 0; ///< the frame's length on the wire
  std::vector<std::uint8_t> data;  ///< the captured octets: all of them, or the first snap-length ones

  /// The octets captured (data.size()).
  std::size_t capturedLength() const { return data.size(); }
  /// True when the capture kept fewer octets than the frame had on the wire (a snap length cut it).
  bool cutShort() const { return data.size() < origLen; }
};

struct PcapHandle;  // the libpcap handle, owned by the classes below

/// Reads a capture file frame by frame. A damaged file never crashes the reader: an unreadable header,
/// an unknown format, a link type other than Ethernet or a record cut off by the end of the file end
/// the reading with an error text. Not copyable.
///
///   PcapReader in("frames.pcapng");
///   PcapFrame f;
///   while (in.next(f)) ...
///   if (!in.error().empty()) ...
class STPTXRX_EXPORT PcapReader {
 public:
  /// Opens `path`; error() says why when it cannot. Error texts never name the path (the caller does).
  explicit PcapReader(const std::string& path);
  PcapReader(const PcapReader&) = delete;
  PcapReader& operator=(const PcapReader&) = delete;
  ~PcapReader();

  /// The next frame into `frame`; false at the end of the file or on damage (then error() says what).
  bool next(PcapFrame& frame);
  /// Empty while the file reads well.
  const std::string& error() const { return error_; }
  std::size_t frames() const { return frames_; }

 private:
  std::unique_ptr<PcapHandle> handle_;
  bool ok_ = false;
  std::size_t frames_ = 0;
  std::string error_;
};

/// Writes a classic pcap file (microsecond timestamps, link type Ethernet) frame by frame. Opening
/// writes the file header; the file is complete after every write() and closed by close() or the
/// destructor. Not copyable.
class STPTXRX_EXPORT PcapWriter {
 public:
  static constexpr std::uint32_t snapLen = 65535;

  /// Creates (or truncates) `path`; ok() is false and error() says why (without the path) when it cannot.
  explicit PcapWriter(const std::string& path);
  PcapWriter(const PcapWriter&) = delete;
  PcapWriter& operator=(const PcapWriter&) = delete;
  ~PcapWriter();

  /// False when the file could not be opened or a write failed; error() then says why.
  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }
  std::size_t frames() const { return frames_; }

  /// Appends `size` octets at `data` with the given timestamp (frames longer than the snap length are
  /// cut to it). False on a write error.
  bool write(const std::uint8_t* data, std::size_t size, std::uint32_t tsSec, std::uint32_t tsUsec);
  /// Appends a packet's data. Frame n (from 0) gets the timestamp n seconds after the epoch, so that a
  /// file of the same frames is the same file.
  bool write(const Nelk::Pkt& pkt);
  /// Appends a packet's data with a timestamp in seconds since the epoch (as PcapReader gives it),
  /// rounded to the nearest microsecond; times outside 0 to 2^31 - 1 s (what a reader takes back from
  /// the file's seconds field) are held at the nearest end.
  bool write(const Nelk::Pkt& pkt, double time);
  /// Closes the file; false when a write had failed or closing fails.
  bool close();

 private:
  bool flushed();

  std::unique_ptr<PcapHandle> handle_;
  std::size_t frames_ = 0;
  bool ok_ = false;
  std::string error_;
};

/// An interface opened through libpcap: it receives the BPDUs that arrive on it (filtered in the kernel
/// to frames for 01:80:C2:00:00:00 with LLC 42 42 03 and PVST+ frames for 01:00:0C:CC:CC:CD with LLC
/// AA AA 03 and SNAP 00 00 0C / 01 0B, tagged or not, inbound only) and sends frames as
/// given. A VLAN tag that the kernel took off a received frame is back in the frame's data (libpcap
/// puts it back). Needs root or CAP_NET_RAW. Not copyable.
class STPTXRX_EXPORT PcapPort {
 public:
  enum class Use { receive, send };

  /// Opens `iface`; error() is empty when it worked, else one line naming the interface and why.
  PcapPort(const std::string& iface, Use use);
  PcapPort(const PcapPort&) = delete;
  PcapPort& operator=(const PcapPort&) = delete;
  ~PcapPort();

  const std::string& error() const { return error_; }
  /// The next BPDU, waiting for it at most `waitMs` milliseconds (a signal ends the wait early): 1 a
  /// frame, 0 none yet, -1 an error (pcapError() says which).
  int next(PcapFrame& frame, int waitMs);
  /// Sends `size` octets at `data` as one frame; false on failure (pcapError() says why).
  bool send(const std::uint8_t* data, std::size_t size);
  /// libpcap's text for the last failure.
  std::string pcapError() const;

 private:
  bool filter(const char* expression);

  std::unique_ptr<PcapHandle> handle_;
  std::string error_;
};

}  // namespace StpTxRx::pcap
