// The command line of stptxrx-pcap: every option read and every combination checked before any file or
// interface is opened, so that a refusal writes and sends nothing.
#include "../BpduSamples.h"
#include "Tool.h"

#include <stptxrx/Stp/BpduRecordText.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string_view>

namespace PcapTool {

void complain(const std::string& message) { std::cerr << "stptxrx-pcap: " << message << "\n"; }

namespace {

// Wrong usage: one line, pointing at --help.
bool refuse(const std::string& message) {
  complain(message + " (see --help)");
  return false;
}

std::optional<double> secondsOf(std::string_view text) {
  const std::string s(text);
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  if (s.empty() || *end != '\0' || !(v >= 0) || v > 1e9) return std::nullopt;
  return v;
}

// "COUNT/SECONDS": a count and a positive number of seconds.
std::optional<RateLimit> rateLimit(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto count = StpTxRx::numberFromText(text.substr(0, slash), 0xffffffff);
  const auto secs = secondsOf(text.substr(slash + 1));
  if (!count || !secs || !(*secs > 0)) return std::nullopt;
  return RateLimit{static_cast<std::uint32_t>(*count), *secs};
}

StpTxRx::BpduRecipe recipeOf(const StpTxRx::tools::NamedSample& s) {
  StpTxRx::BpduRecipe recipe;
  recipe.values.cist = s.values;
  return recipe;
}

// The combinations of options that go together; false after saying which do not.
bool checkCombination(Options& o, bool writeOptions) {
  const bool replaying = std::any_of(o.sources.begin(), o.sources.end(), [](const Source& s) { return !s.recipe; });
  if (int(o.readPath.has_value()) + int(o.listenIface.has_value()) + int(o.sendIface.has_value()) > 1) {
    return refuse("--read, --listen and --send go one at a time");
  }
  if (o.rewritePath && !o.readPath) return refuse("--rewrite needs --read");
  if (o.limit && !o.readPath && !o.listenIface) return refuse("--rate-limit goes with --read or --listen");
  if (o.timeout && !o.listenIface) return refuse("--timeout goes with --listen");
  if (o.count && !o.listenIface && !o.sendIface) return refuse("--count goes with --listen or --send");
  if (o.interval && !o.sendIface) return refuse("--interval goes with --send");
  if (replaying && !o.sendIface) return refuse("--replay goes with --send");
  if (o.readPath || o.listenIface) {
    if (writeOptions || o.output) {
      return refuse("--read and --listen take no output file, --sample, --record, --src or --dump");
    }
    std::error_code ec;
    if (o.rewritePath && std::filesystem::equivalent(*o.readPath, *o.rewritePath, ec)) {
      return refuse("--rewrite would overwrite the file being read");
    }
    o.mode = o.readPath ? Options::Mode::read : Options::Mode::listen;
    return true;
  }
  if (o.sendIface) {
    if (o.output || o.dump) return refuse("--send takes no output file or --dump");
    if (o.sources.empty()) return refuse("--send needs --record, --sample or --replay");
    o.mode = Options::Mode::send;
    return true;
  }
  if (!o.output) return refuse("no output file given");
  if (o.sources.empty()) {
    for (auto& r : allSampleRecipes()) o.sources.push_back({r, {}});
  }
  o.mode = Options::Mode::write;
  return true;
}

}  // namespace

std::optional<StpTxRx::BpduRecipe> sampleRecipe(const std::string& name) {
  for (const auto& s : StpTxRx::tools::sampleRecords()) {
    if (s.name == name) return recipeOf(s);
  }
  return std::nullopt;
}

std::vector<StpTxRx::BpduRecipe> allSampleRecipes() {
  std::vector<StpTxRx::BpduRecipe> out;
  for (const auto& s : StpTxRx::tools::sampleRecords()) out.push_back(recipeOf(s));
  return out;
}

void listSamples(std::ostream& os) {
  for (const auto& s : StpTxRx::tools::sampleRecords()) os << s.name << "\t" << s.description << "\n";
}

bool parseOptions(int argc, char** argv, Options& o) {
  bool writeOptions = false;  // an option that only writing frames (to a file or an interface) uses
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    auto operand = [&]() -> std::optional<std::string_view> {
      if (i + 1 >= argc) return std::nullopt;
      return std::string_view(argv[++i]);
    };
    // --help, --list and --version stand alone: a word after them is a mistake, not something ignored.
    if (arg == "--help" || arg == "-h" || arg == "--list" || arg == "--version") {
      if (argc != 2) return refuse(std::string(arg) + " takes no other arguments");
      o.mode = arg == "--list" ? Options::Mode::list : arg == "--version" ? Options::Mode::version : Options::Mode::help;
      return true;
    } else if (arg == "--dump") {
      o.dump = writeOptions = true;
    } else if (arg == "--sample") {
      const auto name = operand();
      if (!name) return refuse("--sample needs a name");
      auto recipe = sampleRecipe(std::string(*name));
      if (!recipe) return refuse("no sample named '" + std::string(*name) + "' (see --list)");
      o.sources.push_back({std::move(recipe), {}});
      writeOptions = true;
    } else if (arg == "--record") {
      const auto items = operand();
      if (!items) return refuse("--record needs FIELD=VALUE,...");
      StpTxRx::RecordTextResult r = StpTxRx::recordFromText(*items);
      if (!r) return refuse("--record: " + r.message());
      o.sources.push_back({std::move(r.recipe), {}});
      writeOptions = true;
    } else if (arg == "--src") {
      const auto text = operand();
      const auto mac = text ? Nelk::EthAddr::fromText(*text) : std::nullopt;
      if (!mac) return refuse("--src needs a MAC address such as 02:00:00:00:00:01");
      if (mac->isGroup()) return refuse("--src: " + std::string(*text) + " is a group address, never a source");
      o.src = *mac;
      writeOptions = true;
    } else if (arg == "--read" || arg == "--rewrite" || arg == "--replay" || arg == "--listen" || arg == "--send") {
      const auto text = operand();
      if (!text || text->empty()) return refuse(std::string(arg) + " needs a file or interface name");
      if (arg == "--replay") {
        o.sources.push_back({std::nullopt, std::string(*text)});
        continue;
      }
      auto& slot = arg == "--read" ? o.readPath : arg == "--rewrite" ? o.rewritePath : arg == "--listen" ? o.listenIface : o.sendIface;
      if (slot) return refuse(std::string(arg) + " given twice");
      slot = std::string(*text);
    } else if (arg == "--rate-limit") {
      const auto text = operand();
      o.limit = text ? rateLimit(*text) : std::nullopt;
      if (!o.limit) return refuse("--rate-limit needs COUNT/SECONDS such as 10/1");
    } else if (arg == "--count") {
      const auto text = operand();
      const auto n = text ? StpTxRx::numberFromText(*text, 1u << 30) : std::nullopt;
      if (!n) return refuse("--count needs a number");
      o.count = *n;
    } else if (arg == "--interval" || arg == "--timeout") {
      const auto text = operand();
      const auto v = text ? secondsOf(*text) : std::nullopt;
      if (!v) return refuse(std::string(arg) + " needs a number of seconds");
      (arg == "--interval" ? o.interval : o.timeout) = *v;
    } else if (!arg.empty() && arg[0] == '-') {
      return refuse("unknown option '" + std::string(arg) + "'");
    } else if (o.output) {
      return refuse("more than one output file given");
    } else {
      o.output = std::string(arg);
    }
  }
  return checkCombination(o, writeOptions);
}

}  // namespace PcapTool
