#pragma once
// One ordered log of every write an observer of a transmit record sees: its record-level attributes, the
// attributes of its entries (entries created later included) and the entries created or deleted.
#include <stptxrx/state/IntxInfo.h>

#include "support/RecordingReactor.h"

#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace StpTxRx::test {

/// Lines: "stpVersion" (a record attribute), "3.flags" (an attribute of entry 3), "+3" / "-3" (entry 3
/// created / deleted). expand() spells expectations the same way, "R" standing for the six record
/// attributes in declaration order and a bare key for the thirteen attributes of that entry:
///
///   test::RecordLog log(dst);
///   copyIntxInfo(src, dst);
///   EXPECT_EQ(log.take(), test::RecordLog::expand("R 0 +5 5 -7"));
class RecordLog {
 public:
  explicit RecordLog(const IntxInfo::Ptr& record) {
    reactors_.push_back(Zek::test::RecordingReactor::RecordingReactorIs(record, [this, r = record.get()](Zek::AttributeId id, const void* key) {
      if (id != IntxInfo::idMstiN) return add(recordNames[id - IntxInfo::idNeighborAddr]);
      const BridgeSystemId k = *static_cast<const BridgeSystemId*>(key);
      if (Zek::Ptr<IntxMstiInfo> entry = r->mstiN(k)) watch(entry);
      add((r->mstiN(k) ? "+" : "-") + std::to_string(k.value()));
    }));
    for (const auto& [k, entry] : record->mstiN()) watch(record->mstiN(k));
  }

  std::function<void(const std::string&)> hook;  ///< runs after each line is added, with that line

  /// The lines so far, space-separated; the log starts afresh.
  std::string take() { return std::exchange(log_, ""); }

  /// The lines `pattern` stands for, as take() gives them.
  static std::string expand(const std::string& pattern) {
    std::string out;
    const auto add = [&out](const std::string& line) { out += (out.empty() ? "" : " ") + line; };
    std::istringstream items(pattern);
    for (std::string item; items >> item;) {
      if (item == "R") {
        for (const char* name : recordNames) { if (*name) add(name); }
      } else if (item.find_first_not_of("0123456789") == std::string::npos) {
        for (const char* name : entryNames) add(item + "." + name);
      } else {
        add(item);
      }
    }
    return out;
  }

 private:
  static constexpr const char* recordNames[] = {"neighborAddr", "" /* the key: no setter */, "stpVersion",
                                                "intxInfoType", "configRevisionLevel", "configNameString", "configDigest"};
  static constexpr const char* entryNames[] = {
      "flags", "bridgeId", "portId", "cistRootBridgeId", "cistExtRootPathCost", "cistRegionalRootBridgeId",
      "intRootPathCost", "regionalRootBridgeId", "remainingHops", "messageAge", "maxAge", "helloTime", "fwdDelay"};

  void add(const std::string& line) {
    log_ += (log_.empty() ? "" : " ") + line;
    if (hook) hook(line);
  }
  void watch(const Zek::Ptr<IntxMstiInfo>& entry) {
    reactors_.push_back(Zek::test::RecordingReactor::RecordingReactorIs(
        entry, [this, k = std::to_string(entry->key().value())](Zek::AttributeId id, const void*) {
          add(k + "." + entryNames[id - IntxMstiInfo::idFlags]);
        }));
  }

  std::vector<Zek::Ptr<Zek::test::RecordingReactor>> reactors_;  // the record's, then its entries'

  std::string log_;
};

}  // namespace StpTxRx::test
