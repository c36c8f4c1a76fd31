// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLMessageCombinators.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include <KFLCommon/KFLError.h>
#include <KFLMessage/KFLMessage.h>

namespace KFL {
namespace {

// A writer whose four statics are what a test needs.
template <int nsID, int typeID>
struct PointWriter {
  static inline const char* ns = "";
  static inline const char* type = "";
  static int getNSID() { return nsID; }
  static const char* getStrNSID() { return ns; }
  static int getTypeID() { return typeID; }
  static const char* getStrTypeID() { return type; }
  int operator()(KFLMessageIterator& it, const int& x) const {
    it.putValue(x, 1018);
    return x < 0 ? -1 : 0;
  }
};
struct PointReader {
  int operator()(const KFLMessageIterator& it, int& x) const { return it.getValue(x, 1018); }
};

// What stands in the root after writing, without the declaration of xsi.
template <class Writer>
std::string written(const Writer& writer, int value, KFLElementID id, int expected) {
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  EXPECT_EQ(it.putObject(value, writer, id), expected);
  it.putValue("after", "a");
  std::string out;
  EXPECT_EQ(message.print(out), 0) << getErrorMessage();
  const std::string xsi = " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"";
  if (const std::size_t at = out.find(xsi); at != std::string::npos) out.erase(at, xsi.size());
  return out;
}

TEST(KFLMessageCombinators, NamespaceAndTypeComeFromTheStatics) {
  using Plain = PointWriter<0, 0>;
  EXPECT_EQ(written(Plain(), 1, "x", 0), "<r><x><value>1</value></x><a>after</a></r>");
  Plain::ns = "u";
  EXPECT_EQ(written(Plain(), 1, "x", 0), "<r><x><value xmlns=\"u\">1</value></x><a>after</a></r>");
  Plain::type = "tType";
  EXPECT_EQ(written(Plain(), 1, "x", 0),
            "<r><x xmlns:t=\"u\" xsi:type=\"t:tType\"><value xmlns=\"u\">1</value></x><a>after</a></r>");
  EXPECT_EQ(written(Plain(), 1, {}, 0), "<r xmlns=\"u\" xsi:type=\"tType\"><value>1</value><a>after</a></r>");
  // A failing writer still gives the namespace back.
  EXPECT_EQ(written(Plain(), -1, "x", -1),
            "<r><x xmlns:t=\"u\" xsi:type=\"t:tType\"><value xmlns=\"u\">-1</value></x><a>after</a></r>");
}

TEST(KFLMessageCombinators, ATypeNumberCountsAboveOneHundred) {
  const auto typeBy = []<class Writer>(Writer writer) {
    Writer::type = "byName";
    KFLMessage message;
    KFLMessageIterator it = message.getIterator();
    it.putObject(1, writer);
    std::string tag;
    it.getTypeName(tag);
    return tag;
  };
  EXPECT_EQ(typeBy(PointWriter<0, 100>()), "byName");
  EXPECT_EQ(typeBy(PointWriter<292, 121>()),
            "http://kelvarium.internal/webservices/kfl/4.0.0/types:venv_configType");
  EXPECT_EQ(typeBy(PointWriter<0, 101>()), "");
}

TEST(KFLMessageCombinators, AnObjectIsReplacedNeverDoubled) {
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  it.putObject(1, PointWriter<0, 3>(), 1002);
  it.addEmptyChild("between");
  it.putObject(2, PointWriter<0, 3>(), "veid");
  EXPECT_EQ(message.toString(), "<r><between/><veid><value>2</value></veid></r>");
  int read = 7;
  EXPECT_EQ(it.getObject(read, PointReader(), 1002), 0);
  EXPECT_EQ(it.getObject(read, PointReader(), 1004), -1);
  EXPECT_EQ(it.getObject(read, PointReader()), -1);
  EXPECT_EQ((KFLReaderIDT<int, PointReader>(PointReader(), 1004, KFLReaderOptional)(it, read)), 0);
  EXPECT_EQ((KFLReaderIDT<int, PointReader>(PointReader(), 1004, KFLReaderRequired)(it, read)), -1);
  EXPECT_EQ(read, 2);
  EXPECT_EQ((KFLWriterIDT<std::string, PointWriter<0, 3>, 292>({}, "moved")(it, 3)), 0);
  ASSERT_EQ(it.findChild("moved"), 0);
  EXPECT_EQ(it.getNamespace(), "http://kelvarium.internal/webservices/kfl/4.0.0/types");
}

TEST(KFLMessageCombinators, ListsStopAtTheFirstItemThatFails) {
  const auto writer = KFLWriterListEx(PointWriter<0, 3>(), 1295);
  const std::pair<std::vector<int>, const char*> rows[] = {
      {{}, "<r/>"},
      {{1, 2}, "<r><item><value>1</value></item><item><value>2</value></item></r>"},
      {{1, -2, 3}, "<r><item><value>1</value></item><item><value>-2</value></item></r>"}};
  for (const auto& [items, text] : rows) {
    KFLMessage message("r");
    KFLMessageIterator it = message.getIterator();
    EXPECT_EQ(writer(it, items), items.size() > 2 ? 1 : 0);
    EXPECT_EQ(message.toString(), text);
  }

  KFLMessage message;
  message.parse(
      "<r><item><value>5</value></item><x/><item><value>5</value></item><item/>"
      "<item><value>9</value></item></r>");
  const KFLMessageIterator it = message.getIterator();
  std::vector<int> items;
  std::set<int> set;
  EXPECT_EQ(KFLReaderListEx(PointReader(), "item", KFLReaderRequired)(it, items), -1);
  EXPECT_EQ(items, (std::vector<int>{5, 5}));
  EXPECT_EQ(it.getName(), "r");
  EXPECT_EQ(KFLReaderSet(PointReader(), 1295)(it, set), -1);
  EXPECT_EQ(set, std::set<int>{5});
  EXPECT_EQ(KFLReaderListEx(PointReader(), "absent")(it, items), 0);
  EXPECT_EQ(KFLReaderListEx(PointReader(), "absent", KFLReaderRequired)(it, items), -1);
}

struct Base {
  virtual ~Base() = default;
};
struct Derived : Base {
  int x = 4;
};
struct Other : Base {};
struct DerivedWriter : KFLUntypedWriter {
  int operator()(KFLMessageIterator& it, const Derived& obj) const { return it.putValue(obj.x, 1018); }
};
struct DerivedReader {
  int operator()(const KFLMessageIterator& it, Derived& obj) const { return it.getValue(obj.x, 1018); }
};

TEST(KFLMessageCombinators, PointersOfAnotherClassAreRefused) {
  KFLMessage message("r");
  KFLMessageIterator it = message.getIterator();
  const KFLWriterPointerDataT<Derived, DerivedWriter> writer;
  const KFLReaderPointerDataT<Derived, DerivedReader> reader;
  Derived derived;
  Other other;
  Base* const none = nullptr;
  EXPECT_EQ(writer(it, static_cast<const Base*>(none)), -1);
  EXPECT_THAT(getErrorMessage(), testing::StartsWith("/r: there is no object"));
  EXPECT_EQ(writer(it, static_cast<const Base*>(&other)), -1);
  EXPECT_EQ(message.toString(), "<r/>");
  EXPECT_EQ(writer(it, static_cast<const Base*>(&derived)), 0);
  derived.x = 0;
  EXPECT_EQ(reader(it, static_cast<Base*>(&derived)), 0);
  EXPECT_EQ(derived.x, 4);
  EXPECT_EQ(reader(it, static_cast<Base*>(&other)), -1);
  EXPECT_EQ(getErrorMessage(),
            "/r: there is KFL::(anonymous namespace)::Other; an object of the class KFL::(anonymous "
            "namespace)::Derived is wanted");
  EXPECT_EQ(reader(it, none), -1);
}

template <class Call>
void expectCheck(Call call, const char* line, const char* function) {
  EXPECT_DEATH(call(), std::string("KFAFunctionality.*KFLMessageIterator.*") + line + ".*" + function);
}

TEST(KFLMessageCombinators, MistakesOfOursAbort) {
  KFLMessage message;
  KFLMessageIterator it = message.getIterator();
  using Null = PointWriter<1, 2>;
  int value = 1;
  const auto put = [&] { it.putObject(value, Null(), "x"); };
  Null::ns = nullptr;
  expectCheck(put, "853", "putObjectInternal");
  Null::ns = "";
  Null::type = nullptr;
  expectCheck(put, "854", "putObjectInternal");
  expectCheck([&] { KFLWriterIDT<std::string, PointWriter<0, 3>>({}, "")(it, value); }, "671", "operator()");
  expectCheck([&] { KFLReaderIDT<int, PointReader>({}, 0, KFLReaderOptional)(it, value); }, "752",
              "operator()");
}

}  // namespace
}  // namespace KFL
