// Records from FIELD=VALUE text: every field at the last value that fits and the first that does not,
// the refusals by name, and that what is accepted lands in the field it names (encoded, decoded, printed).
#include "BpduTestFrames.h"

namespace StpTxRx::bpdutest {
namespace {

using E = RecordTextError;
const std::string mac = "00:11:22:33:44:55";
std::string mstiItem(const std::string& id, const std::string& rootPrio, const std::string& bridgePrio,
                     const std::string& portPrio, const std::string& hops = "20") {
  return "msti=" + id + "/0x7c/" + rootPrio + "/" + mac + "/20/" + bridgePrio + "/" + portPrio + "/" + hops;
}

TEST(RecordTextTest, EachFieldAcceptsItsLastFittingValueAndRefusesTheFirstBeyondByName) {
  const struct { std::string text; E error; } cases[] = {
      // bridge identifiers, in all three places
      {"bridge=61440/4095/" + mac, E::none}, {"bridge=61441/0/" + mac, E::bridgePriority},
      {"bridge=4097/0/" + mac, E::bridgePriority}, {"bridge=65536/0/" + mac, E::bridgePriority},
      {"bridge=0/4096/" + mac, E::systemIdExtension},
      {"root=0/0/" + mac, E::none}, {"root=32769/1/" + mac, E::bridgePriority},
      {"root=32768/5000/" + mac, E::systemIdExtension}, {"regroot=4096/4095/" + mac, E::none},
      {"regroot=4095/0/" + mac, E::bridgePriority}, {"regroot=0/4096/" + mac, E::systemIdExtension},
      // port identifier
      {"port=240/4095", E::none}, {"port=0/0", E::none}, {"port=241/1", E::portPriority},
      {"port=256/1", E::portPriority}, {"port=129/1", E::portPriority}, {"port=128/4096", E::portNumber},
      {"port=129/5000", E::portPriority},
      // tag
      {"vlan=1", E::none}, {"vlan=4094", E::none}, {"vlan=0", E::vlan}, {"vlan=4095", E::vlan},
      // PVST+ VLAN, alone or with the one tag it may have, in either order
      {"pvst=1", E::none}, {"pvst=4094", E::none}, {"pvst=0", E::vlan}, {"pvst=4095", E::vlan},
      {"pvst=x", E::badValue}, {"pvst=10,vlan=10", E::none}, {"vlan=4094,pvst=4094", E::none},
      {"pvst=10,vlan=11", E::pvstVlanMismatch}, {"vlan=11,pvst=10", E::pvstVlanMismatch},
      {"pvst=10,pvst=10", E::repeatedField},
      // octets and words
      {"version=255", E::none}, {"version=256", E::tooWide}, {"type=0xff", E::none}, {"type=0x100", E::tooWide},
      {"flags=0xff", E::none}, {"flags=0x100", E::tooWide}, {"hops=255", E::none}, {"hops=256", E::tooWide},
      {"age=0xffff", E::none}, {"maxage=0x10000", E::tooWide}, {"hello=65535", E::none},
      {"fwd=65536", E::tooWide}, {"cost=4294967295", E::none}, {"cost=4294967296", E::tooWide},
      {"intcost=0xffffffff", E::none}, {"intcost=0x100000000", E::tooWide},
      {"revision=65535", E::none}, {"revision=65536", E::tooWide},
      {"name=" + std::string(32, 'n'), E::none}, {"name=" + std::string(33, 'n'), E::none},
      {"digest=000102030405060708090a0b0c0d0e0f", E::none}, {"digest=0x000102030405060708090a0b0c0d0e0F", E::none},
      {"digest=000102030405060708090a0b0c0d0e", E::badValue}, {"digest=000102030405060708090a0b0c0d0e0g", E::badValue},
      // MSTI messages: id, both bridge priorities, port priority, hops
      {mstiItem("1", "61440", "0", "240"), E::none}, {mstiItem("4095", "0", "61440", "0", "255"), E::none},
      {mstiItem("0", "0", "0", "0"), E::mstiId}, {mstiItem("4096", "0", "0", "0"), E::mstiId},
      {mstiItem("1", "61441", "0", "0"), E::bridgePriority}, {mstiItem("1", "0", "4097", "0"), E::bridgePriority},
      {mstiItem("1", "0", "0", "248"), E::portPriority}, {mstiItem("1", "0", "0", "256"), E::portPriority},
      {mstiItem("1", "0", "0", "0", "256"), E::tooWide},
      {"msti=1/0x7c/0/" + mac + "/20/0/0", E::badValue},
      // the shape of the text
      {"", E::emptyRecord}, {",", E::notFieldValue}, {"flags=1,", E::notFieldValue}, {"flags", E::notFieldValue},
      {"colour=1", E::unknownField}, {"flags=1,flags=1", E::repeatedField}, {"vlan=2,version=3,vlan=3", E::repeatedField},
      {"name=a,name=a", E::repeatedField}, {mstiItem("1", "0", "0", "0") + "," + mstiItem("2", "0", "0", "0"), E::none},
      {mstiItem("1", "0", "0", "0") + "," + mstiItem("1", "0", "0", "0"), E::repeatedMsti},
      {"flags=-1", E::badValue}, {"flags=", E::badValue}, {"flags=0x", E::badValue}, {"flags= 1", E::badValue},
      {"bridge=4096/0", E::badValue}, {"bridge=4096/0/00:11:22:33:44", E::badValue}, {"port=128", E::badValue}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const RecordTextResult r = recordFromText(c.text);
    EXPECT_EQ(r.error, c.error) << recordTextErrorText(r.error);
    EXPECT_EQ(static_cast<bool>(r), c.error == E::none);
    EXPECT_EQ(r.message().empty(), c.error == E::none);
  }
}

TEST(RecordTextTest, ARefusalNamesTheItemAndItsReason) {
  EXPECT_EQ(recordFromText("version=3,port=129/5000,flags=1").message(),
            "'port=129/5000': port priority not a multiple of 16 from 0 to 240");
  EXPECT_EQ(recordFromText("flags=1,flags=2").message(), "'flags=2': field given more than once");
  EXPECT_EQ(recordFromText("").message(), "empty record");
  EXPECT_EQ(recordFromText("vlan=3,pvst=4").message(),
            "'pvst=4': vlan differs from pvst: a PVST+ frame is tagged with its own VLAN");
}

TEST(RecordTextTest, NumbersAreDecimalOrHexWithinTheirMaximum) {
  // (The maximum, a field at a time: the first table.)
  EXPECT_EQ(numberFromText("0x0FfF", 4095), 4095u);
  EXPECT_EQ(numberFromText("010", 100), 10u);
  EXPECT_EQ(numberFromText("99999999999999999999999", ~0ul), std::nullopt);
  EXPECT_EQ(numberFromText("1e3", ~0ul), std::nullopt);
}

// What the text says is what the frame says: every field read back from the encoded and decoded frame.
TEST(RecordTextTest, AcceptedValuesReachTheFieldsTheyName) {
  EXPECT_EQ(lineOf("version=3,type=2,vlan=4094,flags=0x01,root=61440/4095/02:00:00:00:00:0a,cost=4294967295,"
                   "bridge=0/1/02:00:00:00:00:0b,port=240/4095,age=0x100,maxage=0x1400,hello=0x200,fwd=0xf00,"
                   "name=region,revision=65535,digest=000102030405060708090a0b0c0d0e0f,regroot=4096/2/02:00:00:00:00:0c,"
                   "intcost=7,hops=255," + mstiItem("4095", "61440", "4096", "16", "1")),
            "mst vlan 4094 src 02:00:00:00:00:07 flags=tc,role:unknown root=61440.4095.02:00:00:00:00:0a "
            "cost=4294967295 bridge=0.1.02:00:00:00:00:0b port=240.4095 age=1s maxage=20s hello=2s fwd=15s "
            "regroot=4096.2.02:00:00:00:00:0c intcost=7 hops=255 name=\"region\" revision=65535 "
            "digest=000102030405060708090a0b0c0d0e0f [msti 4095 flags=role:designated,learning,forwarding,agreement "
            "regroot=61440.4095.00:11:22:33:44:55 intcost=20 bridge=4096.4095.02:00:00:00:00:0b port=16.4095 hops=1]");
}

}  // namespace
}  // namespace StpTxRx::bpdutest
