// The companion library's capture files and live ports, on libpcap.
#include <stptxrx/pcap/Pcap.h>

#include <pcap/pcap.h>
#include <poll.h>

#include <cerrno>
#include <cstdio>

namespace StpTxRx::pcap {

// Owns one libpcap handle and, for a writer, its dumper; closes both.
struct PcapHandle {
  pcap_t* pcap = nullptr;
  pcap_dumper_t* dumper = nullptr;
  ~PcapHandle() {
    if (dumper) pcap_dump_close(dumper);
    if (pcap) pcap_close(pcap);
  }
};

namespace {

// libpcap names the path in some of its texts and not in others; the caller names it once.
std::string withoutPath(const std::string& text, const std::string& path) {
  const std::string named = path + ": ";
  return text.starts_with(named) ? text.substr(named.size()) : text;
}

void copyFrame(const pcap_pkthdr& h, const u_char* data, double fractionUnit, PcapFrame& frame) {
  frame.data.assign(data, data + h.caplen);
  frame.origLen = h.len;
  frame.time = static_cast<double>(h.ts.tv_sec) + static_cast<double>(h.ts.tv_usec) / fractionUnit;
}

}  // namespace

PcapReader::PcapReader(const std::string& path) : handle_(std::make_unique<PcapHandle>()) {
  char err[PCAP_ERRBUF_SIZE] = "";
  // Nanosecond precision keeps the timestamps of nanosecond files whole; microsecond files convert
  // exactly.
  handle_->pcap = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, err);
  if (!handle_->pcap) {
    error_ = withoutPath(err, path);
  } else if (pcap_datalink(handle_->pcap) != DLT_EN10MB) {
    error_ = "link type " + std::to_string(pcap_datalink(handle_->pcap)) + " is not Ethernet";
  } else {
    ok_ = true;
  }
}

PcapReader::~PcapReader() = default;

bool PcapReader::next(PcapFrame& frame) {
  if (!ok_) return false;
  pcap_pkthdr* h = nullptr;
  const u_char* data = nullptr;
  const int rc = pcap_next_ex(handle_->pcap, &h, &data);
  if (rc == PCAP_ERROR_BREAK) return ok_ = false;  // a clean end
  if (rc != 1) {
    error_ = "frame " + std::to_string(frames_ + 1) + ": " + pcap_geterr(handle_->pcap);
    return ok_ = false;
  }
  copyFrame(*h, data, 1e9, frame);
  ++frames_;
  return true;
}

PcapWriter::PcapWriter(const std::string& path) : handle_(std::make_unique<PcapHandle>()) {
  handle_->pcap = pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapLen, PCAP_TSTAMP_PRECISION_MICRO);
  if (!handle_->pcap) {
    error_ = "libpcap could not make a writer";
    return;
  }
  handle_->dumper = pcap_dump_open(handle_->pcap, path.c_str());
  if (!handle_->dumper) {
    error_ = withoutPath(pcap_geterr(handle_->pcap), path);
    return;
  }
  ok_ = flushed();
}

PcapWriter::~PcapWriter() { close(); }

bool PcapWriter::write(const std::uint8_t* data, std::size_t size, std::uint32_t tsSec, std::uint32_t tsUsec) {
  if (!ok_) return false;
  pcap_pkthdr h{};
  h.ts.tv_sec = static_cast<decltype(h.ts.tv_sec)>(tsSec);
  h.ts.tv_usec = static_cast<decltype(h.ts.tv_usec)>(tsUsec);
  h.len = static_cast<bpf_u_int32>(size);
  h.caplen = static_cast<bpf_u_int32>(size < snapLen ? size : snapLen);
  pcap_dump(reinterpret_cast<u_char*>(handle_->dumper), &h, data);
  ok_ = flushed();
  if (ok_) ++frames_;
  return ok_;
}

bool PcapWriter::write(const Nelk::Pkt& pkt) {
  return write(pkt.data(), pkt.size(), static_cast<std::uint32_t>(frames_), 0);
}

// A double holds any 32-bit second count to well under half a microsecond, so the timestamp of a
// microsecond capture comes back exactly. The file's seconds field is read back as a signed 32-bit
// count (libpcap does), so the latest time written is 2^31 - 1 s plus 999999 us.
bool PcapWriter::write(const Nelk::Pkt& pkt, double time) {
  constexpr std::uint32_t maxSec = 0x7fffffff;
  constexpr double maxTime = maxSec;
  const double t = time > 0 ? (time < maxTime ? time : maxTime) : 0;
  auto sec = static_cast<std::uint32_t>(t);
  auto usec = static_cast<std::uint32_t>((t - sec) * 1e6 + 0.5);
  if (usec >= 1000000) {  // rounded up to the next second, which is at most maxSec: t < maxTime here
    usec = 0;
    ++sec;
  }
  return write(pkt.data(), pkt.size(), sec, usec);
}

bool PcapWriter::close() {
  if (!handle_->dumper) return ok_;
  ok_ = ok_ && flushed();
  pcap_dump_close(handle_->dumper);
  handle_->dumper = nullptr;
  return ok_;
}

bool PcapWriter::flushed() {
  if (pcap_dump_flush(handle_->dumper) == 0 && !std::ferror(pcap_dump_file(handle_->dumper))) return true;
  error_ = "write failed";
  return false;
}

PcapPort::PcapPort(const std::string& iface, Use use) : handle_(std::make_unique<PcapHandle>()) {
  char err[PCAP_ERRBUF_SIZE] = "";
  pcap_t* p = handle_->pcap = pcap_create(iface.c_str(), err);
  if (!p) {
    error_ = iface + ": " + err;
    return;
  }
  if (use == Use::receive) {
    // Promiscuous: the bridge group address is a multicast address no interface joins by itself.
    // Immediate: each BPDU is handed over as it arrives, not when a buffer fills.
    pcap_set_snaplen(p, 65535);
    pcap_set_promisc(p, 1);
    pcap_set_immediate_mode(p, 1);
  } else {
    pcap_set_snaplen(p, 64);
    pcap_set_buffer_size(p, 64 * 1024);
  }
  const int rc = pcap_activate(p);
  if (rc < 0) {
    switch (rc) {
      case PCAP_ERROR_NO_SUCH_DEVICE: error_ = iface + ": no such interface"; break;
      case PCAP_ERROR_PERM_DENIED:
        error_ = iface + ": no permission to " + (use == Use::receive ? "capture" : "send") +
                 " on it (needs root or CAP_NET_RAW)";
        break;
      case PCAP_ERROR_IFACE_NOT_UP: error_ = iface + ": interface is not up"; break;
      default: error_ = iface + ": " + pcap_geterr(p);
    }
    return;
  }
  if (use == Use::send) {
    // Nothing received is read: a filter that matches nothing keeps the ring empty.
    if (!filter("less 1")) error_ = iface + ": " + pcap_geterr(p);
    return;
  }
  // The tagged branch matters where the kernel leaves a tag in the frame; Linux takes it off before
  // the filter runs, so the untagged branch matches those frames too.
  // Non-blocking: next() waits in poll(), which a timeout or a signal ends; libpcap's own wait
  // would not end without traffic.
  if (pcap_setnonblock(p, 1, err) != 0 || pcap_setdirection(p, PCAP_D_IN) != 0 ||
      !filter("(ether dst 01:80:c2:00:00:00 and ("
              "(ether[12:2] <= 1500 and ether[14:2] = 0x4242 and ether[16] = 3) or "
              "(ether[12:2] = 0x8100 and ether[16:2] <= 1500 and ether[18:2] = 0x4242 and ether[20] = 3))) or "
              // PVST+: LLC AA AA 03, SNAP 00 00 0C / 01 0B.
              "(ether dst 01:00:0c:cc:cc:cd and ("
              "(ether[12:2] <= 1500 and ether[14:4] = 0xaaaa0300 and ether[18:4] = 0x000c010b) or "
              "(ether[12:2] = 0x8100 and ether[16:2] <= 1500 and ether[18:4] = 0xaaaa0300 and "
              "ether[22:4] = 0x000c010b)))")) {
    error_ = iface + ": " + pcap_geterr(p);
  }
}

PcapPort::~PcapPort() = default;

int PcapPort::next(PcapFrame& frame, int waitMs) {
  for (int pass = 0; pass < 2; ++pass) {
    pcap_pkthdr* h = nullptr;
    const u_char* data = nullptr;
    const int rc = pcap_next_ex(handle_->pcap, &h, &data);
    if (rc == 1) copyFrame(*h, data, 1e6, frame);
    if (rc != 0) return rc == 1 ? 1 : -1;
    pollfd ready{pcap_get_selectable_fd(handle_->pcap), POLLIN, 0};
    if (pass == 0 && ::poll(&ready, 1, waitMs) < 0 && errno != EINTR) return -1;
  }
  return 0;
}

bool PcapPort::send(const std::uint8_t* data, std::size_t size) {
  return pcap_inject(handle_->pcap, data, size) == static_cast<int>(size);
}

std::string PcapPort::pcapError() const { return handle_->pcap ? pcap_geterr(handle_->pcap) : error_; }

bool PcapPort::filter(const char* expression) {
  bpf_program program{};
  if (pcap_compile(handle_->pcap, &program, expression, 1, PCAP_NETMASK_UNKNOWN) != 0) return false;
  const bool set = pcap_setfilter(handle_->pcap, &program) == 0;
  pcap_freecode(&program);
  return set;
}

}  // namespace StpTxRx::pcap
