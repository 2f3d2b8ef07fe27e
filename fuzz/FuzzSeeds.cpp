// stptxrx_fuzz_seeds: writes every frame of the given pcap files into a directory, one file per frame,
// as a seed corpus for the fuzz targets (libFuzzer owns the fuzz binaries' command line).
//
//   stptxrx_fuzz_seeds OUT_DIR FILE.pcap...
//
// A frame is written as OUT_DIR/<pcap file stem>-<frame number>, so running it again rewrites the
// same files. Exits 1 on a bad command line, an unreadable or damaged capture or a failed write, after
// writing what it could; prints the number of frames written.
#include "Pcap.h"

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
    StpTxRx::tools::PcapReader in(argv[i]);
    const std::string stem = std::filesystem::path(argv[i]).stem().string();
    StpTxRx::tools::PcapFrame frame;
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
  std::printf("%zu seed frames written to %s\n", written, argv[1]);
  return status;
}
