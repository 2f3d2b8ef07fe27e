#pragma once
// libpcap for the tools, the examples and the tests: capture files read (classic pcap and pcapng, link
// type Ethernet) and written (classic pcap), and a live port that receives BPDUs and sends frames.
// Header-only; whatever includes it links libpcap (CMake finds it with pkg-config and defines
// STPTXRX_HAVE_PCAP). The library itself never does, and no libpcap type leaves this header's classes.
//
// Files are written exactly as given: a BPDU frame of 53 octets is shorter than the 60-octet Ethernet
// minimum and is NOT padded, so the capture shows the octets the library built and nothing else.
#include <stptxrx/net/Pkt.h>

#include <pcap/pcap.h>
#include <poll.h>

#include <cerrno>

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace StpTxRx::tools {

/// One frame of a capture.
struct PcapFrame {
  double time = 0;  ///< seconds since the epoch
  std::uint32_t origLen = 0;
  std::vector<std::uint8_t> data;
};

namespace detail {
inline void copyFrame(const pcap_pkthdr& h, const u_char* data, double fractionUnit, PcapFrame& frame) {
  frame.data.assign(data, data + h.caplen);
  frame.origLen = h.len;
  frame.time = static_cast<double>(h.ts.tv_sec) + static_cast<double>(h.ts.tv_usec) / fractionUnit;
}
}  // namespace detail

/// Reads a capture file frame by frame. A damaged file never crashes the reader: an unreadable header,
/// an unknown format, a link type other than Ethernet or a record cut off by the end of the file end
/// the reading with an error text. Not copyable.
///
///   PcapReader in("frames.pcapng");
///   PcapFrame f;
///   while (in.next(f)) ...
///   if (!in.error().empty()) ...
class PcapReader {
 public:
  explicit PcapReader(const std::string& path) {
    char err[PCAP_ERRBUF_SIZE] = "";
    // Nanosecond precision keeps the timestamps of nanosecond files whole; microsecond files convert
    // exactly.
    handle_ = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, err);
    if (!handle_) {
      error_ = err;
    } else if (pcap_datalink(handle_) != DLT_EN10MB) {
      error_ = "link type " + std::to_string(pcap_datalink(handle_)) + " is not Ethernet";
    } else {
      ok_ = true;
    }
  }
  PcapReader(const PcapReader&) = delete;
  PcapReader& operator=(const PcapReader&) = delete;
  ~PcapReader() {
    if (handle_) pcap_close(handle_);
  }

  /// The next frame into `frame`; false at the end of the file or on damage (then error() says what).
  bool next(PcapFrame& frame) {
    if (!ok_) return false;
    pcap_pkthdr* h = nullptr;
    const u_char* data = nullptr;
    const int rc = pcap_next_ex(handle_, &h, &data);
    if (rc == PCAP_ERROR_BREAK) return ok_ = false;  // a clean end
    if (rc != 1) {
      error_ = "frame " + std::to_string(frames_ + 1) + ": " + pcap_geterr(handle_);
      return ok_ = false;
    }
    detail::copyFrame(*h, data, 1e9, frame);
    ++frames_;
    return true;
  }

  /// Empty while the file reads well.
  const std::string& error() const { return error_; }
  std::size_t frames() const { return frames_; }

 private:
  pcap_t* handle_ = nullptr;
  bool ok_ = false;
  std::size_t frames_ = 0;
  std::string error_;
};

/// Writes a classic pcap file (microsecond timestamps, link type Ethernet) frame by frame. Opening
/// writes the file header; the file is complete after every write() and closed by close() or the
/// destructor. Not copyable.
class PcapWriter {
 public:
  static constexpr std::uint32_t snapLen = 65535;

  explicit PcapWriter(const std::string& path) {
    dead_ = pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapLen, PCAP_TSTAMP_PRECISION_MICRO);
    if (!dead_) {
      error_ = "libpcap could not make a writer";
      return;
    }
    dumper_ = pcap_dump_open(dead_, path.c_str());
    if (!dumper_) {
      error_ = pcap_geterr(dead_);
      return;
    }
    ok_ = flushed();
  }
  PcapWriter(const PcapWriter&) = delete;
  PcapWriter& operator=(const PcapWriter&) = delete;
  ~PcapWriter() {
    close();
    if (dead_) pcap_close(dead_);
  }

  /// False when the file could not be opened or a write failed; error() then says why.
  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }
  std::size_t frames() const { return frames_; }

  /// Appends `size` octets at `data` with the given timestamp (frames longer than the snap length are
  /// cut to it). False on a write error.
  bool write(const std::uint8_t* data, std::size_t size, std::uint32_t tsSec, std::uint32_t tsUsec) {
    if (!ok_) return false;
    pcap_pkthdr h{};
    h.ts.tv_sec = static_cast<decltype(h.ts.tv_sec)>(tsSec);
    h.ts.tv_usec = static_cast<decltype(h.ts.tv_usec)>(tsUsec);
    h.len = static_cast<bpf_u_int32>(size);
    h.caplen = static_cast<bpf_u_int32>(size < snapLen ? size : snapLen);
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &h, data);
    ok_ = flushed();
    if (ok_) ++frames_;
    return ok_;
  }

  /// Appends a packet's data. Frame n (from 0) gets the timestamp n seconds after the epoch, so that a
  /// file of the same frames is the same file.
  bool write(const Nelk::Pkt& pkt) { return write(pkt.data(), pkt.size(), static_cast<std::uint32_t>(frames_), 0); }

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
    if (!dumper_) return ok_;
    ok_ = ok_ && flushed();
    pcap_dump_close(dumper_);
    dumper_ = nullptr;
    return ok_;
  }

 private:
  bool flushed() {
    if (pcap_dump_flush(dumper_) == 0 && !std::ferror(pcap_dump_file(dumper_))) return true;
    error_ = "write failed";
    return false;
  }

  pcap_t* dead_ = nullptr;
  pcap_dumper_t* dumper_ = nullptr;
  std::size_t frames_ = 0;
  bool ok_ = false;
  std::string error_;
};

/// An interface opened through libpcap: it receives the BPDUs that arrive on it (filtered in the kernel
/// to frames for 01:80:C2:00:00:00 with LLC 42 42 03, tagged or not, inbound only) and sends frames as
/// given. A VLAN tag that the kernel took off a received frame is back in the frame's data (libpcap
/// puts it back). Not copyable.
class PcapPort {
 public:
  enum class Use { receive, send };

  /// Opens `iface`; error() is empty when it worked, else one line naming the interface and why.
  PcapPort(const std::string& iface, Use use) {
    char err[PCAP_ERRBUF_SIZE] = "";
    handle_ = pcap_create(iface.c_str(), err);
    if (!handle_) {
      error_ = iface + ": " + err;
      return;
    }
    if (use == Use::receive) {
      // Promiscuous: the bridge group address is a multicast address no interface joins by itself.
      // Immediate: each BPDU is handed over as it arrives, not when a buffer fills.
      pcap_set_snaplen(handle_, 65535);
      pcap_set_promisc(handle_, 1);
      pcap_set_immediate_mode(handle_, 1);
    } else {
      pcap_set_snaplen(handle_, 64);
      pcap_set_buffer_size(handle_, 64 * 1024);
    }
    const int rc = pcap_activate(handle_);
    if (rc < 0) {
      error_ = iface + ": " + activateError(rc, use);
      return;
    }
    if (use == Use::send) {
      // Nothing received is read: a filter that matches nothing keeps the ring empty.
      if (!filter("less 1")) error_ = iface + ": " + pcap_geterr(handle_);
      return;
    }
    // The tagged branch matters where the kernel leaves a tag in the frame; Linux takes it off before
    // the filter runs, so the untagged branch matches those frames too.
    // Non-blocking: next() waits in poll(), which a timeout or a signal ends; libpcap's own wait
    // would not end without traffic.
    if (pcap_setnonblock(handle_, 1, err) != 0 || pcap_setdirection(handle_, PCAP_D_IN) != 0 ||
        !filter("ether dst 01:80:c2:00:00:00 and ("
                "(ether[12:2] <= 1500 and ether[14:2] = 0x4242 and ether[16] = 3) or "
                "(ether[12:2] = 0x8100 and ether[16:2] <= 1500 and ether[18:2] = 0x4242 and ether[20] = 3))")) {
      error_ = iface + ": " + pcap_geterr(handle_);
    }
  }
  PcapPort(const PcapPort&) = delete;
  PcapPort& operator=(const PcapPort&) = delete;
  ~PcapPort() {
    if (handle_) pcap_close(handle_);
  }

  const std::string& error() const { return error_; }

  /// The next BPDU, waiting for it at most `waitMs` milliseconds (a signal ends the wait early): 1 a
  /// frame, 0 none yet, -1 an error (pcapError() says which).
  int next(PcapFrame& frame, int waitMs) {
    for (int pass = 0; pass < 2; ++pass) {
      pcap_pkthdr* h = nullptr;
      const u_char* data = nullptr;
      const int rc = pcap_next_ex(handle_, &h, &data);
      if (rc == 1) detail::copyFrame(*h, data, 1e6, frame);
      if (rc != 0) return rc == 1 ? 1 : -1;
      pollfd ready{pcap_get_selectable_fd(handle_), POLLIN, 0};
      if (pass == 0 && ::poll(&ready, 1, waitMs) < 0 && errno != EINTR) return -1;
    }
    return 0;
  }

  /// Sends `size` octets at `data` as one frame; false on failure (pcapError() says why).
  bool send(const std::uint8_t* data, std::size_t size) {
    return pcap_inject(handle_, data, size) == static_cast<int>(size);
  }

  std::string pcapError() const { return pcap_geterr(handle_); }

 private:
  bool filter(const char* expression) {
    bpf_program program{};
    if (pcap_compile(handle_, &program, expression, 1, PCAP_NETMASK_UNKNOWN) != 0) return false;
    const bool set = pcap_setfilter(handle_, &program) == 0;
    pcap_freecode(&program);
    return set;
  }

  std::string activateError(int rc, Use use) const {
    switch (rc) {
      case PCAP_ERROR_NO_SUCH_DEVICE: return "no such interface";
      case PCAP_ERROR_PERM_DENIED:
        return std::string("no permission to ") + (use == Use::receive ? "capture" : "send") +
               " on it (needs root or CAP_NET_RAW)";
      case PCAP_ERROR_IFACE_NOT_UP: return "interface is not up";
      default: return pcap_geterr(handle_);
    }
  }

  pcap_t* handle_ = nullptr;
  std::string error_;
};

}  // namespace StpTxRx::tools
