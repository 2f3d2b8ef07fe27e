#pragma once
// stptxrx-pcap: BPDUs on files and on the wire, through the library's encoder (generateBpduFromIntxInfo)
// and receive path (BpduReceiver into a port's receive status). It writes frames of every kind to a
// capture file, reads a capture (pcap or pcapng) printing one line per frame and a summary of the port's
// counters, rewrites a capture as the library re-encodes it, listens on an interface printing the BPDUs
// that arrive in the same form, and sends records, samples or a capture's frames on an interface.
// Records and frames may be IEEE or PVST+ (generatePvstBpduFromIntxInfo). Captures and interfaces go through the companion library StpTxRx::pcap. Parts: Usage.cpp (--help),
// Options.cpp (the command line, every refusal before anything is opened), Receive.cpp (--read,
// --listen), Send.cpp (writing a file, --send, --replay), Main.cpp.
#include <stptxrx/Stp/BpduRecordText.h>
#include <stptxrx/net/EthAddr.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace PcapTool {

void usage(std::ostream& os);

/// "stptxrx-pcap: MESSAGE" on standard error.
void complain(const std::string& message);

struct RateLimit {
  std::uint32_t count = 0;
  double seconds = 0;
};

/// What writing a file or --send takes in order: a record to encode or a capture to replay.
struct Source {
  std::optional<StpTxRx::BpduRecipe> recipe;
  std::string replay;
};

/// The command line, checked whole: nothing in it is refused once a mode runs.
struct Options {
  enum class Mode { write, read, listen, send, help, list, version };
  Mode mode = Mode::write;
  std::vector<Source> sources;
  std::optional<std::string> output, readPath, rewritePath, listenIface, sendIface;
  std::optional<RateLimit> limit;
  std::optional<std::size_t> count;
  std::optional<double> interval, timeout;
  Nelk::EthAddr src{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
  bool dump = false;
};

/// Parses and checks the arguments into `o`. On wrong usage says why in one line on standard error and
/// returns false.
bool parseOptions(int argc, char** argv, Options& o);

/// The built-in samples' recipes (--sample NAME, and every sample when a file is written without any
/// --record or --sample), and the --list text.
std::optional<StpTxRx::BpduRecipe> sampleRecipe(const std::string& name);
std::vector<StpTxRx::BpduRecipe> allSampleRecipes();
void listSamples(std::ostream& os);

// The modes: each returns the exit status.
int readCapture(const std::string& input, const std::optional<std::string>& output,
                const std::optional<RateLimit>& limit);
int listen(const std::string& iface, std::size_t count, std::optional<double> timeout,
           const std::optional<RateLimit>& limit);
int writeOrSend(const Options& o);

/// Every frame of `path` re-encoded as --rewrite writes it, into `out`; false (after saying why) when the
/// file cannot be read whole.
bool replayFrames(const std::string& path, std::vector<std::vector<std::uint8_t>>& out);

}  // namespace PcapTool
