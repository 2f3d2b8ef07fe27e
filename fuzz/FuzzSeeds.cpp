// stptxrx_fuzz_seeds: writes every frame of the given pcap files into a directory, one file per frame,
// as a seed corpus for the fuzz targets (libFuzzer owns the fuzz binaries' command line).
//
//   stptxrx_fuzz_seeds OUT_DIR FILE.pcap...
//
// A frame is written as OUT_DIR/<pcap file stem>-<frame number>, so running it again rewrites the
// same files. PVST+ frames of every kind, tagged and native, built by the library's encoder, are
// written beside them as OUT_DIR/pvst-<n> (no capture of them is at hand). Exits 1 on a bad command line, an unreadable or damaged capture or a failed write, after
// writing what it could; prints the number of frames written.
#include <stptxrx/Stp/BpduRecordText.h>
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/pcap/Pcap.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace {

bool writeFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& data) {
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (!out) return false;
  const bool ok = data.empty() || std::fwrite(data.data(), data.size(), 1, out) == 1;
  return std::fclose(out) == 0 && ok;
}

// PVST+ frames: Config, TCN and RST, native and tagged, and one whose originating VLAN is not its tag's.
std::vector<std::vector<std::uint8_t>> pvstSeeds() {
  using namespace StpTxRx;
  const Nelk::EthAddr mac(0x02, 0x00, 0x00, 0x00, 0x00, 0xaa);
  const auto portSm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), mac));
  std::vector<std::vector<std::uint8_t>> seeds;
  const std::uint8_t kinds[][2] = {{0, 0x00}, {0, 0x80}, {2, 0x02}};  // version, type
  for (const auto& [version, type] : kinds) {
    RecordValues values;  // the reference entry, with this kind's version and type
    values.version = {version};
    values.type = {type};
    const IntxInfo::Ptr info = intxRecord(values);
    for (bool tagged : {false, true}) {
      const BpduEncodeResult r = generatePvstBpduFromIntxInfo(portSm, info, tagged, 10);
      if (r) seeds.emplace_back(r.pkt->data(), r.pkt->data() + r.pkt->size());
    }
  }
  if (!seeds.empty() && seeds.back().size() >= 2) seeds.push_back(seeds.back()), --seeds.back().back();
  return seeds;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s OUT_DIR FILE.pcap...\n", argv[0]);
    return 1;
  }
  const std::filesystem::path outDir(argv[1]);
  std::error_code ec;
  std::filesystem::create_directories(outDir, ec);
  if (ec) {
    std::fprintf(stderr, "%s: cannot create %s: %s\n", argv[0], argv[1], ec.message().c_str());
    return 1;
  }
  int status = 0;
  std::size_t written = 0;
  for (int i = 2; i < argc; ++i) {
    StpTxRx::pcap::PcapReader in(argv[i]);
    const std::string stem = std::filesystem::path(argv[i]).stem().string();
    StpTxRx::pcap::PcapFrame frame;
    while (in.next(frame)) {
      const std::filesystem::path path = outDir / (stem + "-" + std::to_string(in.frames()));
      if (!writeFile(path, frame.data)) {
        std::fprintf(stderr, "%s: cannot write %s\n", argv[0], path.c_str());
        status = 1;
        break;
      }
      ++written;
    }
    if (!in.error().empty()) {
      std::fprintf(stderr, "%s: %s: %s\n", argv[0], argv[i], in.error().c_str());
      status = 1;
    }
  }
  std::size_t n = 0;
  for (const auto& seed : pvstSeeds()) {
    const std::filesystem::path path = outDir / ("pvst-" + std::to_string(++n));
    if (!writeFile(path, seed)) {
      std::fprintf(stderr, "%s: cannot write %s\n", argv[0], path.c_str());
      status = 1;
      break;
    }
    ++written;
  }
  std::printf("%zu seed frames written to %s\n", written, argv[1]);
  return status;
}
