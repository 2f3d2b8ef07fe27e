// Type registry, exceptions, assertions and counted strings.
#include <stptxrx/runtime/Assert.h>
#include <stptxrx/runtime/Exception.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include "support/AllocCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <sstream>

namespace Zek::test {
namespace {

class Tracked : public PtrInterface {
  ZEK_TYPE(Tracked);

 public:
  Tracked() = default;
  Tracked(const Tracked&) : PtrInterface() {}
};

}  // namespace

ZEK_TYPE_DEFINE(Tracked, "Zek::test::Tracked")

namespace {

TEST(TypeRegistryTest, TypesRegisterAtLoadAndCountLiveObjects) {
  const TypeNode* node = typeNode("Zek::test::Tracked");
  ASSERT_NE(node, nullptr) << "registered by the static initializer, before any object exists";
  EXPECT_EQ(node, Tracked::zekTypeNode());
  EXPECT_EQ(node->name(), "Zek::test::Tracked");
  const std::int64_t live = node->liveCount();
  const std::uint64_t allocations = node->allocations();
  const std::int64_t total = liveObjectCount();
  {
    Ptr<Tracked> a(new Tracked);
    Ptr<Tracked> b(new Tracked(*a));  // a copy is one more object
    EXPECT_EQ(a->fwkType(), node);
    EXPECT_EQ(node->liveCount(), live + 2);
    EXPECT_EQ(liveObjectCount(), total + 2);
  }
  EXPECT_EQ(node->liveCount(), live);
  EXPECT_EQ(node->allocations(), allocations + 2) << "allocations only grow";
  EXPECT_EQ(liveObjectCount(), total);
}

TEST(TypeRegistryTest, OneNodePerNameInRegistrationOrder) {
  TypeNode* first = typeNodeIs("Zek::test::RegisteredFirst");
  TypeNode* second = typeNodeIs("Zek::test::RegisteredSecond");
  EXPECT_EQ(typeNodeIs("Zek::test::RegisteredFirst"), first);
  EXPECT_EQ(typeNode("Zek::test::RegisteredSecond"), second);
  EXPECT_EQ(typeNode("Zek::test::NeverRegistered"), nullptr);
  std::vector<std::string> names;
  typeNodesForEach([&](const TypeNode& n) { names.push_back(n.name()); });
  auto at = [&](const char* n) { return std::find(names.begin(), names.end(), n) - names.begin(); };
  EXPECT_LT(at("Zek::test::Tracked"), at("Zek::test::RegisteredFirst"));
  EXPECT_EQ(at("Zek::test::RegisteredFirst") + 1, at("Zek::test::RegisteredSecond"));
}

TEST(ExceptionTest, TextsNameTypeAttributeAndValues) {
  try {
    throwMutatorArgNullPointerException("StpTxRx::TxStatusToTxSyncer", "zekTxMstStatusSm");
    FAIL();
  } catch (const MutatorArgNullPointerException& e) {
    EXPECT_STREQ(e.what(), "StpTxRx::TxStatusToTxSyncer::zekTxMstStatusSm: null pointer argument");
  }
  try {
    throwMutatorReinstantiating("StpTxRx::Owner", "txInfoSyncer", "old", "new");
    FAIL();
  } catch (const MutatorReinstantiatingException& e) {
    EXPECT_STREQ(e.what(), "StpTxRx::Owner::txInfoSyncer: reinstantiating with new, existing old");
  }
  const std::string text = "no member \"x\" [1]: 100%";
  try {
    throwRangeException(text);
    FAIL();
  } catch (const RangeException& e) {
    EXPECT_EQ(e.what(), text) << "the text is kept unchanged";
  }
  EXPECT_THROW(throwRangeException(""), Exception);
  EXPECT_THROW(throwRangeException(""), std::exception);
}

void checkedFunction(int vlan) { ZEK_ASSERT(!vlan); }

TEST(AssertDeathTest, PrintsFileLineFunctionAndExpressionThenAborts) {
  checkedFunction(0);  // holds: nothing happens
  EXPECT_DEATH(checkedFunction(5),
               "RuntimeMiscTest\\.cpp:[0-9]+: void Zek::test::[^ ]*anonymous[^:]*::checkedFunction\\(int\\): "
               "Assertion `!vlan' failed");
  EXPECT_DEATH(ZEK_ASSERT_IN("Nelk::Pkt::Ptr StpTxRx::StpTxRxGetPkt(...)", 1 == 2),
               ":[0-9]+: Nelk::Pkt::Ptr StpTxRx::StpTxRxGetPkt\\(\\.\\.\\.\\): Assertion `1 == 2' failed");
  EXPECT_EXIT(ZEK_ASSERT(0), ::testing::KilledBySignal(SIGABRT), "Assertion `0' failed");
}

TEST(StringTest, CopiesShareOneBufferAndAllocateNothing) {
  String a("group-one");
  AllocScope scope;
  String b = a;
  String c;
  c = b;
  Name key = c;
  EXPECT_EQ(scope.count(), 0u);
  EXPECT_EQ(a.c_str(), key.c_str());
  String empty("");
  EXPECT_TRUE(empty.empty());
  EXPECT_STREQ(empty.c_str(), "");
  EXPECT_EQ(scope.count(), 0u) << "the empty string holds no buffer";
}

TEST(StringTest, ConcatenationComparisonAndStreaming) {
  String g("g");
  String joined = g + "|" + String("Et1");
  EXPECT_EQ(joined, "g|Et1");
  EXPECT_EQ(g, "g") << "operands are unchanged";
  String acc;
  acc += "a";
  acc += std::string_view();
  acc += "b";
  EXPECT_EQ(acc.view(), "ab");
  EXPECT_TRUE(String("Et10") < String("Et2")) << "plain text order";
  EXPECT_FALSE(String("a") == String("b"));
  EXPECT_EQ(std::hash<String>()(String("x")), std::hash<std::string_view>()("x"));
  std::ostringstream os;
  os << joined << String() << String(nullptr);
  EXPECT_EQ(os.str(), "g|Et1");
  String moved = std::move(joined);
  EXPECT_EQ(moved, "g|Et1");
  const String& alias = moved;
  moved = alias;  // self-assignment
  EXPECT_EQ(moved.size(), 5u);
}

}  // namespace
}  // namespace Zek::test
