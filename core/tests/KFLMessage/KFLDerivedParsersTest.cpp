// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLDerivedParsers.h>

#include <malloc.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace testtypes {

struct Shape {
  virtual ~Shape() = default;
  int size = 0;
};

// Kinds of shapes; each has a type tag of its own.
template <int kind>
struct Kind : Shape {};

template <int kind>
struct KindWriter {
  static inline const char* ns = "u";
  static inline const char* tag = "";
  static inline int type = 0;
  static int getNSID() { return type == 0 ? 0 : 292; }
  static const char* getStrNSID() { return ns; }
  static int getTypeID() { return type; }
  static const char* getStrTypeID() { return tag; }
  int operator()(KFLMessageIterator& it, const Shape& shape) const { return it.putValue(shape.size, 1024); }
};
struct KindReader {
  int operator()(const KFLMessageIterator& it, Shape& shape) const { return it.getValue(shape.size, 1024); }
};

template <int kind>
using Factory = KFLDerivedParserFactoryT<Kind<kind>, Shape, std::string, KindReader, KindWriter<kind>>;
using Registry = KFLDerivedParserFactory<Shape, std::string>;

// Registers kind with a tag for as long as it lives.
template <int kind>
std::unique_ptr<Factory<kind>> makeFactory(const char* tag, bool isDefault = false) {
  KindWriter<kind>::tag = tag;
  return std::make_unique<Factory<kind>>(isDefault);
}

}  // namespace testtypes
}  // namespace KFL

KFL_DECLARE_DERIVED_REGISTRY(testtypes::Shape)
KFL_DERIVED_REGISTRY(testtypes::Shape)

namespace KFL {
namespace {

using namespace testtypes;

TEST(KFLDerivedParsers, TheTagChoosesTheClass) {
  const auto round = makeFactory<1>("roundType");
  const auto square = makeFactory<2>("squareType");
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  Kind<2> written;
  written.size = 9;
  const Shape& shape = written;
  EXPECT_EQ(it.putObject(shape, KFLWriterDerived<Shape>(), "s"), 0);
  it.findChild("s");
  EXPECT_EQ(it.getTypeTag(), "squareType");

  boost::shared_ptr<Shape> read;
  EXPECT_EQ(KFLReaderDerived<Shape>()(it, read), 0);
  ASSERT_NE(dynamic_cast<Kind<2>*>(read.get()), nullptr);
  EXPECT_EQ(read->size, 9);
  EXPECT_NE(dynamic_cast<Kind<1>*>(Registry::find("u:roundType")->createObject().get()), nullptr);

  // A read that fails leaves the target alone.
  it.findChild(1024);
  it.putValue("nine");
  it.leaveChild();
  EXPECT_EQ(KFLReaderDerived<Shape>()(it, read), -1);
  EXPECT_EQ(read->size, 9);
  EXPECT_EQ(KFLWriterDerived<Shape>()(it, Kind<3>()), -1);
  EXPECT_EQ(
      getErrorMessage(),
      "/r/s: an object of the class KFL::testtypes::Kind<3> cannot be written; the class has no factory");
  EXPECT_EQ(KFLWriterDerived<Shape>()(it, boost::shared_ptr<Shape>()), -1);
}

TEST(KFLDerivedParsers, AnUnknownTagIsReadByTheDefaultOnly) {
  KFLMessage message;
  message.parse("<r xmlns:i='http://www.w3.org/2001/XMLSchema-instance' i:type='foreign'><size>3</size></r>");
  const KFLMessageIterator it = message.getIterator();
  boost::shared_ptr<Shape> read;
  EXPECT_EQ(KFLReaderDerived<Shape>(true)(it, read), -1);
  const auto round = makeFactory<1>("roundType", true);
  EXPECT_EQ(KFLReaderDerived<Shape>(false)(it, read), -1);
  EXPECT_EQ(read, nullptr);
  EXPECT_EQ(KFLReaderDerived<Shape>(true)(it, read), 0);
  EXPECT_NE(dynamic_cast<Kind<1>*>(read.get()), nullptr);
}

TEST(KFLDerivedParsers, TheKeyIsMadeOfTheNamesThatThereAre) {
  const std::string types = "http://kelvarium.internal/webservices/kfl/4.0.0/types:";
  const std::tuple<const char*, const char*, int, std::string> rows[] = {
      {"u", "aType", 0, "u:aType"},
      {"", "aType", 0, "aType"},
      {"u", "", 121, types + "venv_configType"},
      {"u", "", 7, types}};
  for (const auto& [ns, tag, type, key] : rows) {
    KindWriter<4>::ns = ns;
    KindWriter<4>::type = type;
    const auto factory = makeFactory<4>(tag);
    EXPECT_EQ(Registry::find(key), factory.get()) << key;
  }
}

TEST(KFLDerivedParsers, FactoriesLeaveWhenTheyAreDestroyed) {
  const auto isListed = [] {
    return std::ranges::count(listDerivedTypes(), "testtypes::Shape", &KFLDerivedTypeInfo::base) != 0;
  };
  EXPECT_FALSE(isListed());
  for (int round = 0; round < 3; ++round) {
    auto first = makeFactory<1>("roundType", true);
    const auto second = makeFactory<2>("squareType");
    const std::vector<KFLDerivedTypeInfo> all = Registry::data().list();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].derived, "testtypes::Kind<1>");
    EXPECT_EQ(all[0].namespaceUri + all[0].tag, "uroundType");
    EXPECT_TRUE(all[0].isDefault);
    first.reset();
    EXPECT_EQ(Registry::find("u:roundType"), nullptr);
    EXPECT_EQ(Registry::find(typeid(Kind<1>)), nullptr);
    EXPECT_EQ(Registry::findDefault(), nullptr);
    EXPECT_NE(Registry::find("u:squareType"), nullptr);
    EXPECT_TRUE(isListed());
  }
  EXPECT_FALSE(isListed());
}

// Loading a library again makes tables anew, and nothing else.
TEST(KFLDerivedParsers, ComingAndGoingTakesLittle) {
  const auto comeAndGo = [] {
    const auto first = makeFactory<1>("roundType", true);
    const auto second = makeFactory<2>("squareType");
    const auto third = makeFactory<3>("flatType");
    const auto fourth = makeFactory<4>("thinType");
  };
  constexpr int kRounds = 1000;
  comeAndGo();
  const auto before = mallinfo2().uordblks;
  for (int i = 0; i < kRounds; ++i)
    comeAndGo();
  const auto each = static_cast<long>(mallinfo2().uordblks - before) / kRounds;
  EXPECT_LT(each, 800) << "bytes";
}

TEST(KFLDerivedParsers, RegisteringTwiceAborts) {
  const auto first = makeFactory<1>("roundType", true);
  const auto dies = [](auto call, const std::string& line) {
    EXPECT_DEATH(call(), "KFAFunctionality.*KFLDerivedParsers.*" + line + ".*addFactory");
  };
  dies([] { makeFactory<2>("roundType"); }, "269");
  dies([] { makeFactory<1>("otherType"); }, "271");
  dies([] { makeFactory<2>("squareType", true); }, "274");
  dies([] { makeFactory<2>(nullptr); }, "238");
  KindWriter<2>::ns = nullptr;
  dies([] { makeFactory<2>("squareType"); }, "237");
  KindWriter<2>::ns = "u";
}

TEST(KFLDerivedParsers, ReadersNeedNoLockWhileLibrariesComeAndGo) {
  const auto lasting = makeFactory<1>("roundType");
  std::atomic<bool> stop{false};
  std::atomic<int> missed{0};
  const auto read = [&] {
    while (!stop) {
      missed += Registry::find("u:roundType") != lasting.get();
      missed += Registry::find(typeid(Kind<1>)) != lasting.get();
      listDerivedTypes();
    }
  };
  {
    const std::jthread readers[] = {std::jthread(read), std::jthread(read), std::jthread(read)};
    for (int i = 0; i < 300; ++i) {
      const auto second = makeFactory<2>("squareType", true);
      const auto third = makeFactory<3>("flatType");
    }
    stop = true;
  }
  EXPECT_EQ(missed, 0);
}

}  // namespace
}  // namespace KFL
