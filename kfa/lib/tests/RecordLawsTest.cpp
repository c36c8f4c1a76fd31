// SPDX-License-Identifier: Apache-2.0
// Laws of every registered record, over values that are made from the messages of examples/messages by deleting,
// emptying, repeating and replacing elements at any depth, and over the value that a record has when it is new:
//
//   what a record writes, its own reader reads, and writes again the same;
//   reading into an object that was used gives what reading into a new one gives.
//
// And one of every value with a text form: the text that is read may be a piece of the object itself.
#include <functional>
#include <initializer_list>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include <KFAFunctionality/network/KFANetVEth.h>
#include <KFAFunctionality/templates/KFADistribution.h>
#include <KFLCommon/KFLError.h>
#include <KFLFunctionality/KFLInterfaceRate.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "MessageExamples.h"

namespace {

using KFL::KFLMessage;
using KFL::KFLMessageIterator;
using KFL::KFLRecordType;

// --- Messages ----------------------------------------------------------------------------------------------

constexpr int kMessagesOfEach = 150;

// A message near a given one: a few of its elements are changed.
class Variation {
 public:
  explicit Variation(unsigned seed) : random_(seed) {}

  KFLMessage of(const KFLMessage& source) {
    KFLMessage message(source);
    for (int changes = pick(6); changes > 0; --changes)
      change(message.getIterator());
    return message;
  }

 private:
  int pick(int choices) { return static_cast<int>(random_() % static_cast<unsigned>(choices)); }

  // Goes down to some element below the current one and changes it.
  void change(KFLMessageIterator it) {
    do {
      const auto children = static_cast<int>(it.countChildren());
      if (children == 0) return;
      it.firstChild();
      for (int next = pick(children); next > 0; --next)
        it.nextSibling();
    } while (it.countChildren() != 0 && pick(3) != 0);
    changeElement(it);
  }

  void changeElement(KFLMessageIterator& it) {
    static const std::vector<const char*> texts = {"",
                                                   "0",
                                                   "1",
                                                   "-1",
                                                   "true",
                                                   "false",
                                                   "9223372036854775807",
                                                   "-2147483648",
                                                   "dhcp",
                                                   "::",
                                                   "10.0.0.5/24",
                                                   "a & b",
                                                   " ",
                                                   "00000000-0000-0000-0000-000000000000",
                                                   "no_proxy",
                                                   "sunday"};
    const int what = pick(5);
    if (what == 0) return it.removeCurrent();
    if (what == 1) return it.clear();
    if (what == 2) return repeat(it);
    if (it.countChildren() != 0) return;
    it.putValue(texts[static_cast<std::size_t>(pick(static_cast<int>(texts.size())))]);
  }

  // Behind its siblings.
  static void repeat(KFLMessageIterator& it) {
    const KFLMessageIterator source(it);
    it.leaveChild();
    it.addChild(std::string(source.getName()));
    it.setName(source.getName(), source.getNamespace());
    it.copyContent(source);
  }

  std::mt19937 random_;
};

// Holds the law over messages of each record. It gives what contradicts it, or nothing; one contradiction is
// enough for each record.
template <class Law>
void forEachMessage(unsigned seed, const Law& law) {
  Variation variation(seed);
  forEachExample([&](const KFLRecordType& record, const Example&, const KFLMessage& source) {
    std::string fault;
    for (int i = 0; i < kMessagesOfEach && fault.empty(); ++i)
      fault = law(record, variation.of(source));
    EXPECT_TRUE(fault.empty()) << record.name() << " " << fault;
  });
}

// --- Records -----------------------------------------------------------------------------------------------

// Writes the object; a refusal gives false, and a text that says why.
bool write(const KFLRecordType& record, const void* object, KFLMessage& message) {
  KFLMessageIterator it = message.getIterator();
  it.setName("record", {});
  KFL::setErrorMessage("%s", "");
  return record.write(it, object) == 0;
}

std::string textOf(const KFLRecordType& record, const void* object) {
  KFLMessage message;
  return write(record, object, message) ? message.toString() : "refused";
}

// What a message of these records does not tell: an update's product marks the summary instead of itself, an address
// that is not specified stands in the message as an empty one, and clone options that were read have a configuration,
// if only an empty one.
void removeOddities(const KFLRecordType& record, KFLMessageIterator it) {
  static const std::set<std::string_view> addressed = {
      "KFAUpdateConnectionSettings", "KFAUpdateProxySettings", "KFAUpdateConnection", "KFAUpdateConfig"};
  if (std::string_view(record.name()) == "KFAWindowsSystemUpdate") {
    it.removeChildren("product");
    it.removeChildren(1264);
  }
  if (std::string_view(record.name()) == "KFAMigratorCloneOptions" && it.findChild(1185) == 0)
    it.isEmptyElement() ? it.removeCurrent() : it.leaveChild();
  if (addressed.count(record.name()) == 0) return;
  it.removeChildren(1012);
  for (int left = it.firstChild(); left == 0; left = it.nextSibling())
    removeOddities(record, it);
}

// What of the object cannot be read back.
std::string findUnreadable(const KFLRecordType& record, const void* object) {
  KFLMessage first;
  if (!write(record, object, first)) return KFL::getErrorMessage().empty() ? "refused without a text" : "";
  const KFLRecordType::Object again = record.create();
  KFL::setErrorMessage("%s", "");
  if (record.read(first.getIterator(), again.get()) != 0)
    return "not read: " + KFL::getErrorMessage() + "\n" + first.toString();
  KFLMessage second;
  if (!write(record, again.get(), second))
    return "not written again: " + KFL::getErrorMessage() + "\n" + first.toString();
  removeOddities(record, first.getIterator());
  removeOddities(record, second.getIterator());
  return first.toString() == second.toString() ? ""
                                               : "changed: " + first.toString() + "\n" + second.toString();
}

TEST(RecordLaws, WhatIsWrittenCanBeRead) {
  for (const KFLRecordType* record : KFL::listRecordTypes()) {
    const KFLRecordType::Object object = record->create();
    EXPECT_EQ(findUnreadable(*record, object.get()), "") << record->name();
    record->read(KFLMessage("empty").getIterator(), object.get());
    EXPECT_EQ(findUnreadable(*record, object.get()), "") << record->name();
  }
  forEachMessage(1, [](const KFLRecordType& record, const KFLMessage& message) {
    // Whatever becomes of the reading, the object is one that an agent may have.
    const KFLRecordType::Object object = record.create();
    record.read(message.getIterator(), object.get());
    return findUnreadable(record, object.get());
  });
}

TEST(RecordLaws, NothingIsLeftOfAFormerValue) {
  const KFLRecordType* last = nullptr;
  KFLRecordType::Object used;
  forEachMessage(2, [&](const KFLRecordType& record, const KFLMessage& message) -> std::string {
    if (last != &record) used = record.create();
    last = &record;
    // Of an environment's type a sub-type that is absent stays as it was.
    if (std::string_view(record.name()) == "KFAVPSType") used = record.create();
    const KFLRecordType::Object fresh = record.create();
    const int result = record.read(message.getIterator(), fresh.get());
    if (record.read(message.getIterator(), used.get()) != result) return "another result";
    const std::string wanted = result == 0 ? textOf(record, fresh.get()) : "";
    const std::string given = result == 0 ? textOf(record, used.get()) : "";
    return wanted == given ? "" : message.toString() + "\ngives " + given + "\nnot   " + wanted;
  });
}

// --- Texts -------------------------------------------------------------------------------------------------

// Reads each piece of the value into the value itself; a copy of the piece read into a copy of the value says what
// is right. The pieces are long enough to stand outside the objects.
template <class T>
void expectOwnPieces(const T& value,
                     std::initializer_list<std::function<const std::string&(const T&)>> pieces) {
  for (const auto& piece : pieces) {
    T wanted(value);
    wanted.fromString(std::string(piece(value)));
    T own(value);
    own.fromString(piece(own));
    EXPECT_EQ(own.toString(), wanted.toString()) << typeid(T).name();
  }
}

TEST(RecordLaws, TextsMayBePiecesOfTheObject) {
  const std::string entry =
      "ifname=a-long-interface,network=a-long-network-name,mac=00:11:22:33:44:55,ip=10.0.0.1,gw=10.0.0.254";
  const std::string name = "a-template-with-a-long-name/of-parts-1.5-and-2/3.25-of-a-long-version";
  KFA::KFANetVEth device;
  device.setName(entry);
  device.setNetwork(entry);
  device.setMAC(entry);
  device.setGateway(entry);
  device.setGatewayV6(entry);
  device.setIPAddresses({entry, entry});
  device.setWinsServers({entry});
  device.setNameServers({entry});
  using Device = KFA::KFANetVEth;
  expectOwnPieces<Device>(
      device, {&Device::getName, &Device::getNetwork, &Device::getMAC, &Device::getGateway,
               &Device::getGatewayV6,
               [](const Device& d) -> auto& { return d.getIPAddresses().back().toString();
}
, [](const Device& d) -> auto& {
  return d.getWinsServers().front();
}
, [](const Device& d) -> auto& {
  return d.getNameServers().front();
}
}  // namespace
);
using KFA::KFADistribution, KFA::KFATemplate, KFL::KFLIPAddress, KFL::KFLInterfaceRate;
expectOwnPieces<KFATemplate>(KFATemplate(name, name), {&KFATemplate::getName, &KFATemplate::getVersion});
expectOwnPieces<KFADistribution>(KFADistribution(name, name),
                                 {&KFADistribution::getName, &KFADistribution::getVersion});
expectOwnPieces<KFLIPAddress>(entry, {&KFLIPAddress::toString});
expectOwnPieces<KFLInterfaceRate>(KFLInterfaceRate(entry), {&KFLInterfaceRate::toString});
}

}  // namespace
