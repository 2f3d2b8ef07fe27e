// BPDU frame construction: frame allocation and link headers, RST encoding (golden frame, decoded by a
// real decoder when one is installed), allocation failure, assertions, priorities and the decisions.
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Exception.h>

#include "../../tools/BpduSamples.h"
#include "../../tools/PcapWriter.h"
#include "support/AllocCounter.h"
#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Octets = std::vector<std::uint8_t>;
using ::testing::AllOf;
using ::testing::HasSubstr;

const Nelk::EthAddr portMac(0x00, 0x11, 0x22, 0x33, 0x44, 0x55);

Octets frameOf(const Nelk::Pkt& pkt) { return Octets(pkt.data(), pkt.data() + pkt.size()); }

/// Holds every packet the global manager may hand out while it lives: the next newPkt() yields null.
class PoolExhausted {
 public:
  PoolExhausted() : held_(manager().newPkt()), previousLimit_(manager().liveLimit()) {
    manager().liveLimitIs(manager().liveCount());
  }
  ~PoolExhausted() { manager().liveLimitIs(previousLimit_); }
  PoolExhausted(const PoolExhausted&) = delete;
  PoolExhausted& operator=(const PoolExhausted&) = delete;

 private:
  static Nelk::PktManager& manager() { return Nelk::globalPktManager(); }
  Nelk::Pkt::Ptr held_;
  std::size_t previousLimit_;
};

Stp::MstPortSm::Ptr portSmWith(const Nelk::EthAddr& mac) {
  return Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet7"), mac));
}

// ---------------------------------------------------------------------------------------------------
// Frame allocation
// ---------------------------------------------------------------------------------------------------

TEST(StpTxRxGetPktTest, BodyOf36GivesA53OctetFrameWithHeaderInPlaceAndBodyPointerAt17) {
  Stp::CommonBpdu* bpdu = nullptr;
  Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu);
  ASSERT_TRUE(pkt);
  ASSERT_EQ(pkt->size(), 53u);
  EXPECT_EQ(reinterpret_cast<std::uint8_t*>(bpdu), pkt->data() + 17);
  EXPECT_EQ(Octets(pkt->data(), pkt->data() + 17),
            (Octets{0x01, 0x80, 0xc2, 0x00, 0x00, 0x00,   // bridge group address
                    0x00, 0x11, 0x22, 0x33, 0x44, 0x55,   // source, octets in the order held
                    0x00, 0x27,                           // length 3 + 36
                    0x42, 0x42, 0x03}));                  // LLC
}

TEST(StpTxRxGetPktTest, EmptyBodyGivesA17OctetFrameOfLength3) {
  Stp::CommonBpdu* bpdu = nullptr;
  Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 0, &bpdu);
  ASSERT_TRUE(pkt);
  ASSERT_EQ(pkt->size(), 17u);
  EXPECT_EQ(Octets(pkt->data() + 12, pkt->data() + 14), (Octets{0x00, 0x03}));
  EXPECT_EQ(reinterpret_cast<std::uint8_t*>(bpdu), pkt->data() + pkt->size());
}

TEST(StpTxRxGetPktTest, BodyLargerThanTheHeadRoomStillGivesOneContiguousFrame) {
  const std::size_t size = Nelk::PktManager::defaultHeadRoom + 100;
  Stp::CommonBpdu* bpdu = nullptr;
  Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, static_cast<U32>(size), &bpdu);
  ASSERT_TRUE(pkt);
  ASSERT_EQ(pkt->size(), size + 17);
  auto* body = reinterpret_cast<std::uint8_t*>(bpdu);
  ASSERT_EQ(body, pkt->data() + 17);
  for (std::size_t i = 0; i < size; ++i) body[i] = static_cast<std::uint8_t>(i);  // the whole body is writable
  EXPECT_EQ(Octets(pkt->data() + 6, pkt->data() + 17),
            (Octets{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x00, static_cast<std::uint8_t>(size + 3), 0x42, 0x42, 0x03}));
}

TEST(StpTxRxGetPktTest, TracesTheCallAtLevel8OnTheStpTxRxHandle) {
  Zek::test::TraceCapture cap({"StpTxRx/0-9"});
  Stp::CommonBpdu* bpdu = nullptr;
  Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu);
  ASSERT_EQ(cap.lines().size(), 1u);
  const auto& line = cap.lines()[0];
  EXPECT_EQ(line.text, "StpTxRxGetPkt: called for vlan 0 src mac: 00:11:22:33:44:55 size: 36");
  EXPECT_EQ(line.level, 8);
  EXPECT_EQ(line.handle, "StpTxRx");
  EXPECT_EQ(line.file, "Stp/StpTxRxUtils");
  EXPECT_EQ(line.function, "StpTxRxGetPkt");
}

TEST(StpTxRxGetPktTest, ExhaustedPoolGivesNullLeavesBpduAndTracesOneLevel3Message) {
  Zek::test::TraceCapture cap({"StpTxRx/0-9"});
  const std::size_t liveBefore = Nelk::globalPktManager().liveCount();
  Stp::CommonBpdu sentinel{};
  Stp::CommonBpdu* bpdu = &sentinel;
  {
    PoolExhausted exhausted;
    cap.clear();
    EXPECT_FALSE(StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu));
  }
  EXPECT_EQ(bpdu, &sentinel);
  EXPECT_EQ(cap.texts(3), (std::vector<std::string>{"Packet allocation failed"}));
  EXPECT_EQ(cap.lines().size(), 2u) << "the level-8 call trace and the failure, nothing else";
  EXPECT_EQ(Nelk::globalPktManager().liveCount(), liveBefore);
}

TEST(StpTxRxGetPktTest, AllocatesNothingOnceThePoolIsWarm) {
  Zek::test::TraceCapture cap({"StpTxRx/-"});
  Stp::CommonBpdu* bpdu = nullptr;
  StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu);  // warm the pool
  Zek::test::AllocScope scope;
  for (int i = 0; i < 100; ++i) {
    Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu);
    ASSERT_TRUE(pkt);
  }
  EXPECT_EQ(scope.count(), 0u);
}

TEST(StpTxRxGetPvstPktTest, AlwaysNullNeverWritesBpduAndTracesItsSignature) {
  Zek::test::TraceCapture cap({"StpTxRx/0-9"});
  const std::size_t liveBefore = Nelk::globalPktManager().liveCount();
  Stp::MstPortSm::Ptr portSm = portSmWith(portMac);
  Stp::CommonBpdu sentinel{};
  Stp::CommonBpdu* bpdu = &sentinel;

  EXPECT_FALSE(StpTxRxGetPvstPkt(portSm.get(), 36, &bpdu, Bridging::VlanIdOrNone(10)));
  EXPECT_FALSE(StpTxRxGetPvstPkt(nullptr, 0, &bpdu, Bridging::VlanIdOrNone()));

  EXPECT_EQ(bpdu, &sentinel);
  EXPECT_EQ(Nelk::globalPktManager().liveCount(), liveBefore);
  const std::string text =
      "Nelk::Pkt::Ptr StpTxRx::StpTxRxGetPvstPkt(Stp::MstPortSm*, U32, Stp::CommonBpdu**, Bridging::VlanIdOrNone)";
  EXPECT_EQ(cap.texts(8), (std::vector<std::string>{text, text}));
  EXPECT_EQ(cap.lines().at(0).function, "StpTxRxGetPvstPkt");
}

TEST(StpTxRxGetPktDeathTest, AVlanOtherThanNoneAborts) {
  Stp::CommonBpdu* bpdu = nullptr;
  EXPECT_DEATH(StpTxRxGetPkt(Bridging::VlanIdOrNone(1), portMac, 36, &bpdu), HasSubstr("Assertion `!vlan' failed"));
}

// ---------------------------------------------------------------------------------------------------
// Link headers written directly
// ---------------------------------------------------------------------------------------------------

TEST(WriteBpduLinkHeaderTest, UntaggedFormWritesExactly17Octets) {
  Octets buffer(17 + 4, 0xee);
  Stp::CommonBpdu* body = writeBpduLinkHeader(buffer.data(), portMac, 1000);
  EXPECT_EQ(reinterpret_cast<std::uint8_t*>(body), buffer.data() + 17);
  EXPECT_EQ(buffer, (Octets{0x01, 0x80, 0xc2, 0x00, 0x00, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55,
                            0x03, 0xeb,  // 1000 + 3
                            0x42, 0x42, 0x03, 0xee, 0xee, 0xee, 0xee}));
}

TEST(WriteBpduLinkHeaderTest, TaggedFormCarriesPriority7Dei0AndTheLow12VlanBits) {
  struct Case {
    std::uint16_t vlan;
    std::uint8_t tci0, tci1;
  };
  for (const Case& c : {Case{1, 0xe0, 0x01}, Case{0x0abc, 0xea, 0xbc}, Case{0x0fff, 0xef, 0xff},
                        Case{0xf123, 0xe1, 0x23}}) {
    SCOPED_TRACE(c.vlan);
    Octets buffer(21 + 2, 0xee);
    Stp::CommonBpdu* body = writeBpduLinkHeader(buffer.data(), portMac, 36, Bridging::VlanIdOrNone(c.vlan));
    EXPECT_EQ(reinterpret_cast<std::uint8_t*>(body), buffer.data() + 21);
    EXPECT_EQ(buffer, (Octets{0x01, 0x80, 0xc2, 0x00, 0x00, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55,
                              0x81, 0x00,          // tag protocol identifier
                              c.tci0, c.tci1,      // tag control
                              0x00, 0x27,          // length
                              0x42, 0x42, 0x03, 0xee, 0xee}));
  }
}

// ---------------------------------------------------------------------------------------------------
// Priorities, the trace handle and the module constant
// ---------------------------------------------------------------------------------------------------

TEST(PriorityTest, BridgePriorityShiftsBy12AndWrapsAt16Bits) {
  EXPECT_EQ(bridgePriority(0).value, 0);
  EXPECT_EQ(bridgePriority(1).value, 4096);
  EXPECT_EQ(bridgePriority(8).value, 32768);
  EXPECT_EQ(bridgePriority(15).value, 61440);
  EXPECT_EQ(bridgePriority(16).value, 0) << "wraps, no exception";
  EXPECT_EQ(bridgePriority(17).value, 4096);
}

TEST(PriorityTest, AFullPriorityAboveF000RaisesTheRangeMessage) {
  EXPECT_EQ(checkedBridgePriority(0xF000).value, 0xF000);
  EXPECT_EQ(checkedBridgePriority(0).value, 0);
  try {
    checkedBridgePriority(0xF001);
    FAIL() << "no exception";
  } catch (const Zek::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "BridgePriority::value < BridgePriority::minBridgePriority or > BridgePriority::maxBridgePriority "
                 "not allowed");
  }
  EXPECT_THROW(checkedBridgePriority(0xFFFF), Zek::RangeException);
}

TEST(PriorityTest, PortPriorityIsSixteenTimesTheCompressedValue) {
  EXPECT_EQ(portPriority(0), 0);
  EXPECT_EQ(portPriority(8), 128);
  EXPECT_EQ(portPriority(15), 240);
}

TEST(ModuleTest, TraceHandleIsCreatedOnceAndTheConstantHoldsNsDash) {
  Zek::TraceHandle* h = _defaultTraceHandle();
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->name(), "StpTxRx");
  EXPECT_EQ(_defaultTraceHandle(), h);
  EXPECT_EQ(Zek::traceHandleIs("StpTxRx"), h);
  EXPECT_EQ(nsPrefix, "ns-");
}

// ---------------------------------------------------------------------------------------------------
// RST encoding
// ---------------------------------------------------------------------------------------------------

/// Record of the reference frame; every field the encoder reads set explicitly.
IntxInfo::Ptr goldenRecord() {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  info->stpVersionIs(Stp::StpBpduVersion{2});
  Zek::Ptr<IntxMstiInfo> e = info->mstiNIs(0);
  e->cistRootBridgeIdIs(Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)});
  e->cistExtRootPathCostIs(20000);
  e->bridgeIdIs(Stp::BridgeId{4096, 0, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee)});
  e->portIdIs(Stp::PortId(128, 3));
  e->messageAgeIs(Stp::TimerVal(0x00, 0x00));
  e->maxAgeIs(Stp::TimerVal(0x14, 0x00));
  e->helloTimeIs(Stp::TimerVal(0x02, 0x00));
  e->fwdDelayIs(Stp::TimerVal(0x0f, 0x00));
  e->flagsIs(Stp::RstpBpduFlags{0x3c});
  return info;
}

struct AnnotatedField {
  std::size_t offset;
  const char* field;
  Octets octets;
};

// The reference frame, field by field.
const std::vector<AnnotatedField> goldenFrame = {
    {0, "802.3 destination: bridge group address", {0x01, 0x80, 0xc2, 0x00, 0x00, 0x00}},
    {6, "802.3 source: port 02:00:00:00:00:07", {0x02, 0x00, 0x00, 0x00, 0x00, 0x07}},
    {12, "802.3 length: 3 + 36", {0x00, 0x27}},
    {14, "LLC DSAP", {0x42}},
    {15, "LLC SSAP", {0x42}},
    {16, "LLC control", {0x03}},
    {17, "Protocol Identifier", {0x00, 0x00}},
    {19, "Protocol Version Identifier: RSTP", {0x02}},
    {20, "BPDU Type: RST", {0x02}},
    {21, "Flags 0x3c", {0x3c}},
    {22, "Root Identifier 32768/1/00:11:22:33:44:55", {0x80, 0x01, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55}},
    {30, "Root Path Cost 20000", {0x00, 0x00, 0x4e, 0x20}},
    {34, "Bridge Identifier 4096/0/00:aa:bb:cc:dd:ee", {0x10, 0x00, 0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee}},
    {42, "Port Identifier 128/3", {0x80, 0x03}},
    {44, "Message Age 0", {0x00, 0x00}},
    {46, "Max Age 20 s", {0x14, 0x00}},
    {48, "Hello Time 2 s", {0x02, 0x00}},
    {50, "Forward Delay 15 s", {0x0f, 0x00}},
    {52, "Version 1 Length", {0x00}},
};

const Nelk::EthAddr goldenPortMac(0x02, 0x00, 0x00, 0x00, 0x00, 0x07);

TEST(GeneratePktTest, GoldenRecordGivesTheReferenceFrameFieldByField) {
  Nelk::Pkt::Ptr pkt = generatePktFromIntxInfo(portSmWith(goldenPortMac), goldenRecord(), false);
  ASSERT_TRUE(pkt);
  const Octets frame = frameOf(*pkt);

  Octets expected;
  for (const AnnotatedField& f : goldenFrame) {
    ASSERT_EQ(f.offset, expected.size()) << "table is contiguous at " << f.field;
    expected.insert(expected.end(), f.octets.begin(), f.octets.end());
    if (f.offset + f.octets.size() <= frame.size()) {
      EXPECT_EQ(Octets(frame.begin() + f.offset, frame.begin() + f.offset + f.octets.size()), f.octets)
          << "offset " << f.offset << ": " << f.field;
    }
  }
  ASSERT_EQ(expected.size(), 53u);
  EXPECT_EQ(frame, expected);
}

TEST(GeneratePktTest, FieldsTheEncoderDoesNotReadLeaveTheFrameUnchanged) {
  Stp::MstPortSm::Ptr portSm = portSmWith(goldenPortMac);
  const Octets reference = frameOf(*generatePktFromIntxInfo(portSm, goldenRecord(), false));

  IntxInfo::Ptr info = goldenRecord();
  info->intxInfoTypeIs(Stp::StpBpduType{0x80});
  info->configRevisionLevelIs(0xffff);
  info->configNameStringIs("region-1");
  info->configDigestIs(Stp::MstpConfigDigest{{0xde, 0xad, 0xbe, 0xef}});
  info->neighborAddrIs(Nelk::EthAddr(0x0e, 0x0e, 0x0e, 0x0e, 0x0e, 0x0e));
  Zek::Ptr<IntxMstiInfo> e = info->mstiN(0);
  e->cistRegionalRootBridgeIdIs(Stp::BridgeId{0x1000, 5, Nelk::EthAddr(1, 1, 1, 1, 1, 1)});
  e->intRootPathCostIs(123456);
  e->regionalRootBridgeIdIs(Stp::BridgeId{0x2000, 6, Nelk::EthAddr(2, 2, 2, 2, 2, 2)});
  e->remainingHopsIs(20);
  // Other instances, below and above the common one's key order neighbours.
  for (std::uint16_t key : {1, 7, 64}) {
    Zek::Ptr<IntxMstiInfo> other = info->mstiNIs(key);
    other->flagsIs(Stp::RstpBpduFlags{0xff});
    other->bridgeIdIs(Stp::BridgeId{0xF000, 0xfff, Nelk::EthAddr(9, 9, 9, 9, 9, 9)});
    other->cistExtRootPathCostIs(1);
    other->portIdIs(Stp::PortId(16, 99));
    other->maxAgeIs(Stp::TimerVal(0xff, 0xff));
  }
  EXPECT_EQ(frameOf(*generatePktFromIntxInfo(portSm, info, false)), reference);
}

TEST(GeneratePktTest, SourceAddressFollowsThePortRecord) {
  Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), goldenPortMac);
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(port);
  port->portAddrIs(Nelk::EthAddr(0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f));
  Nelk::Pkt::Ptr pkt = generatePktFromIntxInfo(portSm, goldenRecord(), false);
  EXPECT_EQ(Octets(pkt->data() + 6, pkt->data() + 12), (Octets{0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f}));
}

TEST(GeneratePktTest, TracesTheRecordThenTheAllocation) {
  IntxInfo::Ptr info = goldenRecord();
  std::ostringstream record;
  record << IntxInfo::PtrConst(info);
  Zek::test::TraceCapture cap({"StpTxRx/0-9"});

  generatePktFromIntxInfo(portSmWith(goldenPortMac), info, false);

  EXPECT_EQ(cap.texts(), (std::vector<std::string>{
                             "generatePktFromIntxInfo: Called for " + record.str() + " tagged: 0",
                             "StpTxRxGetPkt: called for vlan 0 src mac: 02:00:00:00:00:07 size: 36"}));
  EXPECT_EQ(cap.lines().at(0).level, 8);
  EXPECT_EQ(cap.lines().at(0).function, "generatePktFromIntxInfo");
  EXPECT_EQ(cap.lines().at(0).file, "Stp/StpTxRxUtils");
}

TEST(GeneratePktTest, AllocationFailureGivesNullOneMessagePerLevelAndChangesNothing) {
  Zek::test::LiveCounts before;
  Zek::test::TraceCapture cap({"StpTxRx/2-3"});
  const std::size_t liveBefore = Nelk::globalPktManager().liveCount();
  IntxInfo::Ptr info = goldenRecord();
  Stp::MstPortSm::Ptr portSm = portSmWith(goldenPortMac);
  auto onRecord = Zek::test::RecordingReactor::RecordingReactorIs(info);
  auto onEntry = Zek::test::RecordingReactor::RecordingReactorIs(info->mstiN(0));
  {
    PoolExhausted exhausted;
    EXPECT_FALSE(generatePktFromIntxInfo(portSm, info, false));
  }
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{"Packet allocation failed", "generateBpdu: failed to allocate pkt "}));
  EXPECT_EQ(cap.lines().at(1).level, 2);
  EXPECT_EQ(onRecord->count() + onEntry->count(), 0u);
  EXPECT_EQ(Nelk::globalPktManager().liveCount(), liveBefore);
  onRecord = nullptr;
  onEntry = nullptr;
  info = nullptr;
  portSm = nullptr;
  EXPECT_TRUE(before.unchanged());
}

TEST(GeneratePktTest, AllocatesNothingOnceThePoolIsWarmWhileTracingIsOff) {
  Zek::test::TraceCapture cap({"StpTxRx/-"});
  IntxInfo::Ptr info = goldenRecord();
  Stp::MstPortSm::Ptr portSm = portSmWith(goldenPortMac);
  generatePktFromIntxInfo(portSm, info, false);  // warm the pool
  Zek::test::AllocScope scope;
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(generatePktFromIntxInfo(portSm, info, false));
  EXPECT_EQ(scope.count(), 0u);
  EXPECT_TRUE(cap.lines().empty());
}

const char* const generateFunction =
    "Nelk::Pkt::Ptr StpTxRx::generatePktFromIntxInfo(Stp::MstPortSm::Ptr, StpTxRx::IntxInfo::Ptr, bool)";

TEST(GeneratePktDeathTest, OnlyVersion2IsAccepted) {
  for (std::uint8_t version : {0, 3}) {
    IntxInfo::Ptr info = goldenRecord();
    info->stpVersionIs(Stp::StpBpduVersion{version});
    EXPECT_DEATH(generatePktFromIntxInfo(portSmWith(portMac), info, false),
                 AllOf(HasSubstr("Assertion `0' failed"), HasSubstr(generateFunction), HasSubstr("StpTxRxUtils")));
  }
}

TEST(GeneratePktDeathTest, OnlyTheRecordWithoutVlanIsAccepted) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(5);
  info->stpVersionIs(Stp::StpBpduVersion{2});
  info->mstiNIs(0);
  EXPECT_DEATH(generatePktFromIntxInfo(portSmWith(portMac), info, false),
               AllOf(HasSubstr("Assertion `vlan == 0' failed"), HasSubstr(generateFunction)));
}

TEST(GeneratePktDeathTest, TaggedFramesAreNotBuilt) {
  EXPECT_DEATH(generatePktFromIntxInfo(portSmWith(portMac), goldenRecord(), true),
               AllOf(HasSubstr("Assertion `!tagged' failed"), HasSubstr(generateFunction)));
}

// ---------------------------------------------------------------------------------------------------
// Frames decoded by tshark
// ---------------------------------------------------------------------------------------------------

/// Runs tshark on `pcap` and returns one row of tab-separated field texts per frame; empty when tshark
/// is not installed (checked by the caller first).
std::vector<std::vector<std::string>> tsharkFields(const std::string& pcap, const std::vector<std::string>& fields) {
  std::string command = "tshark -r '" + pcap + "' -T fields -E separator=/t -E occurrence=f";
  for (const std::string& f : fields) command += " -e " + f;
  command += " 2>/dev/null";
  std::vector<std::vector<std::string>> rows;
  FILE* out = popen(command.c_str(), "r");
  if (!out) return rows;
  std::string text;
  char chunk[4096];
  for (std::size_t n; (n = std::fread(chunk, 1, sizeof chunk, out)) > 0;) text.append(chunk, n);
  pclose(out);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> row;
    std::size_t at = 0;
    for (std::size_t tab; (tab = line.find('\t', at)) != std::string::npos; at = tab + 1) {
      row.push_back(line.substr(at, tab - at));
    }
    row.push_back(line.substr(at));
    rows.push_back(row);
  }
  return rows;
}

bool haveTshark() { return std::system("command -v tshark >/dev/null 2>&1") == 0; }

unsigned long num(const std::string& s) { return std::strtoul(s.c_str(), nullptr, 0); }

std::string macText(const Nelk::EthAddr& a) {
  std::ostringstream os;
  os << a;
  return os.str();
}

std::filesystem::path scratchFile(const std::string& name) {
  return std::filesystem::temp_directory_path() /
         (name + "-" + std::to_string(static_cast<long>(::getpid())) + ".pcap");
}

TEST(TsharkDecodeTest, EveryBodyFieldDecodesToTheRecordItCameFrom) {
  if (!haveTshark()) GTEST_SKIP() << "tshark is not installed: frames are not decoded by a real decoder";

  std::vector<tools::CistValues> records;
  for (const auto& sample : tools::sampleRecords()) records.push_back(sample.values);
  tools::CistValues mixed = tools::goldenCist();  // one value per field that stands out
  mixed.flags = Stp::RstpBpduFlags{0x5a};
  mixed.rootId = Stp::BridgeId{0x9000, 0x0123, Nelk::EthAddr(0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc)};
  mixed.rootPathCost = 0x80000001;
  mixed.bridgeId = Stp::BridgeId{0xA000, 0x0fed, Nelk::EthAddr(0xcb, 0xa9, 0x87, 0x65, 0x43, 0x21)};
  mixed.portId = Stp::PortId(0x70, 0x0abc);
  mixed.messageAge = Stp::TimerVal(0x01, 0x80);
  mixed.maxAge = Stp::TimerVal(0x00, 0x01);
  mixed.helloTime = Stp::TimerVal(0x80, 0x00);
  mixed.fwdDelay = Stp::TimerVal(0x12, 0x34);
  records.push_back(mixed);

  const std::filesystem::path path = scratchFile("stptxrx-decode");
  Stp::MstPortSm::Ptr portSm = portSmWith(goldenPortMac);
  {
    tools::PcapWriter writer(path.string());
    ASSERT_TRUE(writer.ok()) << path;
    for (const auto& v : records) {
      Nelk::Pkt::Ptr pkt = generatePktFromIntxInfo(portSm, tools::rstRecord(v), false);
      ASSERT_TRUE(pkt);
      ASSERT_TRUE(writer.write(*pkt));
    }
    ASSERT_TRUE(writer.close());
  }
  const std::vector<std::string> fields = {
      "eth.dst",        "eth.src",         "eth.len",         "llc.dsap",       "llc.ssap",
      "llc.control",    "stp.protocol",    "stp.version",     "stp.type",       "stp.flags",
      "stp.root.prio",  "stp.root.ext",    "stp.root.hw",     "stp.root.cost",  "stp.bridge.prio",
      "stp.bridge.ext", "stp.bridge.hw",   "stp.port",        "stp.msg_age",    "stp.max_age",
      "stp.hello",      "stp.forward",     "stp.version_1_length", "frame.len"};
  const auto rows = tsharkFields(path.string(), fields);
  std::filesystem::remove(path);
  ASSERT_EQ(rows.size(), records.size()) << "tshark read every frame";

  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE("frame " + std::to_string(i));
    const auto& row = rows[i];
    ASSERT_EQ(row.size(), fields.size());
    auto at = [&](const char* name) -> const std::string& {
      for (std::size_t f = 0; f < fields.size(); ++f) {
        if (fields[f] == name) return row[f];
      }
      static const std::string none;
      return none;
    };
    const tools::CistValues& v = records[i];
    EXPECT_EQ(at("eth.dst"), "01:80:c2:00:00:00");
    EXPECT_EQ(at("eth.src"), macText(goldenPortMac));
    EXPECT_EQ(num(at("eth.len")), 39u);
    EXPECT_EQ(num(at("llc.dsap")), 0x42u);
    EXPECT_EQ(num(at("llc.ssap")), 0x42u);
    EXPECT_EQ(num(at("llc.control")), 0x03u);
    EXPECT_EQ(num(at("frame.len")), 53u);
    EXPECT_EQ(num(at("stp.protocol")), 0u);
    EXPECT_EQ(num(at("stp.version")), 2u);
    EXPECT_EQ(num(at("stp.type")), 2u);
    EXPECT_EQ(num(at("stp.flags")), v.flags.value);
    EXPECT_EQ(num(at("stp.root.prio")), v.rootId.priority & 0xf000u);
    EXPECT_EQ(num(at("stp.root.ext")), v.rootId.systemIdExtension & 0x0fffu);
    EXPECT_EQ(at("stp.root.hw"), macText(v.rootId.address));
    EXPECT_EQ(num(at("stp.root.cost")), v.rootPathCost);
    EXPECT_EQ(num(at("stp.bridge.prio")), v.bridgeId.priority & 0xf000u);
    EXPECT_EQ(num(at("stp.bridge.ext")), v.bridgeId.systemIdExtension & 0x0fffu);
    EXPECT_EQ(at("stp.bridge.hw"), macText(v.bridgeId.address));
    EXPECT_EQ(num(at("stp.port")), ((v.portId.priority >> 4u) << 12u) | (v.portId.portNumber & 0x0fffu));
    EXPECT_DOUBLE_EQ(std::strtod(at("stp.msg_age").c_str(), nullptr), v.messageAge.wire() / 256.0);
    EXPECT_DOUBLE_EQ(std::strtod(at("stp.max_age").c_str(), nullptr), v.maxAge.wire() / 256.0);
    EXPECT_DOUBLE_EQ(std::strtod(at("stp.hello").c_str(), nullptr), v.helloTime.wire() / 256.0);
    EXPECT_DOUBLE_EQ(std::strtod(at("stp.forward").c_str(), nullptr), v.fwdDelay.wire() / 256.0);
    EXPECT_EQ(num(at("stp.version_1_length")), 0u);
  }
}

TEST(TsharkDecodeTest, TaggedLinkHeaderDecodesAsAnIeee8021QTag) {
  if (!haveTshark()) GTEST_SKIP() << "tshark is not installed: frames are not decoded by a real decoder";

  // A tagged frame is only built by hand: tagged header, then the body the encoder would write.
  Nelk::Pkt::Ptr untagged = generatePktFromIntxInfo(portSmWith(goldenPortMac), goldenRecord(), false);
  Octets frame(taggedBpduLinkHeaderSize + Stp::RstpBpdu::wireSize);
  Stp::CommonBpdu* body = writeBpduLinkHeader(frame.data(), goldenPortMac, Stp::RstpBpdu::wireSize, 0x0123);
  std::copy(untagged->data() + bpduLinkHeaderSize, untagged->data() + untagged->size(),
            reinterpret_cast<std::uint8_t*>(body));

  const std::filesystem::path path = scratchFile("stptxrx-tagged");
  {
    tools::PcapWriter writer(path.string());
    ASSERT_TRUE(writer.write(frame.data(), frame.size(), 0, 0));
  }
  const auto rows = tsharkFields(path.string(), {"vlan.priority", "vlan.dei", "vlan.id", "vlan.len", "llc.dsap",
                                                 "stp.flags", "stp.root.cost"});
  std::filesystem::remove(path);
  ASSERT_EQ(rows.size(), 1u);
  ASSERT_EQ(rows[0].size(), 7u);
  EXPECT_EQ(num(rows[0][0]), 7u);
  EXPECT_THAT(rows[0][1], ::testing::AnyOf("0", "False"));
  EXPECT_EQ(num(rows[0][2]), 0x123u);
  EXPECT_EQ(num(rows[0][3]), 39u);
  EXPECT_EQ(num(rows[0][4]), 0x42u);
  EXPECT_EQ(num(rows[0][5]), 0x3cu);
  EXPECT_EQ(num(rows[0][6]), 20000u);
}

// ---------------------------------------------------------------------------------------------------
// Decisions
// ---------------------------------------------------------------------------------------------------

struct FilterInputs {
  Stp::PortConfig::Ptr portConfig;
  Stp::StpiPortStatus::Ptr portStatus;  // may be null
  Stp::Config::Ptr config;
};

/// Every combination of the flags beside the mode: allowed x {no status, oper off, oper on} x global.
std::vector<FilterInputs> allCombinations(std::uint8_t mode) {
  std::vector<FilterInputs> out;
  for (bool allowed : {false, true}) {
    for (int status : {-1, 0, 1}) {
      for (bool global : {false, true}) {
        out.push_back({Stp::PortConfig::PortConfigIs(Stp::BpdufilterMode{mode}, allowed),
                       status < 0 ? nullptr : Stp::StpiPortStatus::StpiPortStatusIs(status == 1),
                       Stp::Config::ConfigIs(global)});
      }
    }
  }
  return out;
}

TEST(MstBpdufilterPktTest, Mode1FiltersAndModesOtherThan0And1NeverDo) {
  for (std::uint8_t mode : {1, 2, 3, 255}) {
    for (const FilterInputs& in : allCombinations(mode)) {
      EXPECT_EQ(mstBpdufilterPkt(in.portConfig, in.portStatus, in.config), mode == 1)
          << "mode " << unsigned{mode} << " allowed " << in.portConfig->bpdufilterDefaultAllowed() << " status "
          << (in.portStatus ? int{in.portStatus->bpdufilterDefaultOper()} : -1) << " global "
          << in.config->bpdufilterDefault();
    }
  }
}

TEST(MstBpdufilterPktTest, Mode0FiltersOnlyWhenAllowedOperationalAndGloballyOn) {
  int filtered = 0;
  for (const FilterInputs& in : allCombinations(0)) {
    const bool result = mstBpdufilterPkt(in.portConfig, in.portStatus, in.config);
    filtered += result;
    if (result) {
      EXPECT_TRUE(in.portConfig->bpdufilterDefaultAllowed());
      ASSERT_TRUE(in.portStatus);
      EXPECT_TRUE(in.portStatus->bpdufilterDefaultOper());
      EXPECT_TRUE(in.config->bpdufilterDefault());
    }
  }
  EXPECT_EQ(filtered, 1) << "exactly one of the 12 combinations filters";
  // The same inputs with the port status missing do not filter.
  EXPECT_FALSE(mstBpdufilterPkt(Stp::PortConfig::PortConfigIs(Stp::BpdufilterMode::followDefault, true), nullptr,
                                Stp::Config::ConfigIs(true)));
}

TEST(LogSpanTreeIntfTest, TruthTable) {
  using M = Stp::IntfLoggingMode;
  // rows: first 0..3, columns: second 0..3
  const bool expected[4][4] = {
      {true, false, true, false},
      {true, false, false, false},
      {true, false, false, false},
      {true, false, false, false},
  };
  for (int first = 0; first < 4; ++first) {
    for (int second = 0; second < 4; ++second) {
      EXPECT_EQ(logSpanTreeIntf(M(first), M(second)), expected[first][second]) << first << ", " << second;
    }
  }
  EXPECT_TRUE(logSpanTreeIntf(M(5), M(0)));
  EXPECT_FALSE(logSpanTreeIntf(M(0), M(5)));
  EXPECT_TRUE(logSpanTreeIntf(M::on, M::useDefault));
  EXPECT_FALSE(logSpanTreeIntf(M::off, M::useDefault));
}

}  // namespace
}  // namespace StpTxRx
