// SPDX-License-Identifier: Apache-2.0
// Memory that runs out in messages and records: every registered record, the tree itself, and configurations.
#include <atomic>
#include <thread>
#include <vector>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFLMessage/KFLMessageCheck.h>

#include "../MessageExamples.h"
#include "../environment/Properties.h"
#include "AllocationLaw.h"

namespace {

using KFA::KFAEnvConfig;
using KFL::KFLElementHold;
using KFL::KFLMessage;
using KFL::KFLMessageFindings;
using KFL::KFLMessageIterator;
using KFL::KFLRecordType;

const std::string kLong(300, 'l');

KFLMessage parsed(const std::string& xml) {
  KFLMessage message;
  EXPECT_EQ(message.parse(xml), 0) << KFL::getErrorMessage();
  return message;
}

std::string printed(const KFLMessageIterator& it) {
  std::string text;
  EXPECT_EQ(it.print(text), 0) << KFL::getErrorMessage();
  return text;
}

// Where the cursor stands, and where an element that it adds would stand, in which namespace.
std::string placeOf(KFLMessageIterator it) {
  if (!it.isValid()) return "nowhere";
  const std::string path = it.getPath();
  it.addChild("probe");
  KFLMessageIterator next(it);
  const bool isLast = next.nextSibling() != 0;
  const std::string place =
      path + " {" + std::string(it.getNamespace()) + "} before " + std::string(isLast ? "" : next.getName());
  it.removeCurrent();
  return place;
}

std::string writtenForm(const KFLRecordType& record, const void* object) {
  KFLMessage message("form");
  KFLMessageIterator it = message.getIterator();
  const int result = record.write(it, object);
  return std::to_string(result) + message.toString();
}

// A message, a cursor in it, and an object that is read from it or written into it.
struct Binding {
  const KFLRecordType* record;
  KFLMessage message;
  KFLMessageIterator it;
  KFLRecordType::Object object;

  int read() { return record->read(it, object.get()); }
  int write() { return record->write(it, object.get()); }
};

Binding reading(const KFLRecordType& record, const std::string& xml) {
  Binding binding{&record, parsed(xml), {}, record.create()};
  binding.it = binding.message.getIterator();
  return binding;
}

// Gives the texts at and below the cursor another value, where the record can be read then.
void alter(const Binding& binding, KFLMessageIterator it) {
  if (it.countChildren() == 0) {
    const std::string text(it.getText());
    for (const std::string& other : {kLong, std::string("1"), text}) {
      if (!text.empty()) it.putValue(other);
      if (binding.record->read(binding.it, binding.record->create().get()) == 0) return;
    }
  }
  for (int left = it.firstChild(); left == 0; left = it.nextSibling())
    alter(binding, it);
}

// The object has other contents, which reading replaces.
Binding rereading(const KFLRecordType& record, const std::string& xml) {
  Binding binding = reading(record, xml);
  record.read(parsed(xml).getIterator(), binding.object.get());
  alter(binding, binding.it);
  return binding;
}

// The element holds the record already, and each part of it is replaced.
Binding rewriting(const KFLRecordType& record, const std::string& xml) {
  Binding binding = reading(record, xml);
  record.read(binding.it, binding.object.get());
  return binding;
}

// Among other elements and texts, with a namespace selected, before a sibling.
Binding writing(const KFLRecordType& record, const std::string& xml) {
  Binding binding = reading(record, xml);
  record.read(binding.it, binding.object.get());
  binding.message =
      parsed("<r xmlns='urn:foreign'><a/><part b='1'>a text of its own<x/>and more of it</part><z/></r>");
  binding.it = binding.message.getIterator();
  EXPECT_EQ(binding.it.findChild("part"), 0);
  binding.it.selectNamespace("urn:selected");
  return binding;
}

TEST(Allocations, OfEveryRecord) {
  AllocationLaws laws("records", [](Binding& b) {
    return placeOf(b.it) + writtenForm(*b.record, b.object.get()) + b.message.toString();
  });
  forEachExample([&](const KFLRecordType& record, const Example& example, const KFLMessage&) {
    for (const auto& [what, prepare, call] : {std::tuple(" read", &reading, &Binding::read),
                                              {" read again", &rereading, &Binding::read},
                                              {" written", &writing, &Binding::write},
                                              {" written again", &rewriting, &Binding::write}}) {
      const auto binding = [&, make = prepare] { return make(record, example.xml); };
      laws(example.file + what, binding, call);
    }
  });
}

struct Check {
  KFLMessage message;
  KFLMessageFindings findings;
  KFL::KFLMessageCheckResult result;
};

TEST(Allocations, OfTheCheckOfEveryRecord) {
  AllocationLaws laws("checks", [](Check& c) {
    std::string state = c.result.written.toString() + std::to_string(c.result.lost);
    for (const auto& finding : c.findings)
      state += finding.path + std::to_string(finding.element) + finding.text;
    return state;
  });
  forEachExample([&](const KFLRecordType& record, const Example& example, const KFLMessage&) {
    std::string marred = example.xml;
    marred.insert(marred.rfind("</"), "<unknown>" + kLong + "</unknown>");
    const auto prepare = [&] { return Check{parsed(marred), {}, {}}; };
    laws(example.file, prepare,
         [&](Check& c) { return KFL::checkMessage(c.message.getIterator(), record, c.findings, &c.result); });
  });
}

// What one thread does with a tree that others read too; false when it did not see what it should.
bool readsUnharmed(const KFLRecordType& record, const KFLMessage& message, const std::string& form,
                   std::size_t first) {
  const KFLMessageIterator it = message.getIterator();
  const std::string text = message.toString();
  for (std::size_t number = first; number < 60; number += 3) {
    failing::arm(number, number % 2 == 0 ? failing::Mode::Once : failing::Mode::FromThenOn);
    try {
      const KFLRecordType::Object object = record.create();
      record.read(it, object.get());
      std::string out;
      it.print(out);
    } catch (const std::bad_alloc&) {
      // What the tree is like then is looked at below.
    }
    failing::disarm();
    const KFLRecordType::Object object = record.create();
    record.read(it, object.get());
    if (message.toString() != text || writtenForm(record, object.get()) != form) return false;
  }
  return true;
}

TEST(Allocations, OfThreadsThatShareATree) {
  forEachExample([](const KFLRecordType& record, const Example&, const KFLMessage& message) {
    const KFLRecordType::Object object = record.create();
    record.read(message.getIterator(), object.get());
    const std::string form = writtenForm(record, object.get());
    std::atomic<int> harmed{0};
    {
      std::vector<std::jthread> threads;
      for (std::size_t first = 1; first <= 3; ++first)
        threads.emplace_back([&, first] { harmed += readsUnharmed(record, message, form, first) ? 0 : 1; });
    }
    EXPECT_EQ(harmed, 0);
  });
}

// --- The tree -------------------------------------------------------------------------------------------------------

constexpr const char* kMixed =
    "<r xmlns='urn:a' xmlns:b='urn:b' b:x='1' y='2'>own text of it<one b:z='3' xmlns:i="
    "'http://www.w3.org/2001/XMLSchema-instance' i:type='b:oneType'>1</one>text "
    "between<two><three/>a&lt;&#13;b</two>"
    "<name>n</name>text behind it all, and long enough<r1/><r2/><r3/><r4/><r5/><r6/><r7/><r8/><r9/><long>"
    "0123456789012345678901234567890123456789</long></r>";

struct Trees {
  KFLMessage message;
  KFLMessageIterator it;
  KFLMessage other;
  std::string out;
};

Trees trees() {
  Trees made{
      parsed(kMixed), {}, parsed("<s xmlns='urn:s' y='9' w='8'>s text<sub t='1'>s<u/>v</sub>w</s>"), {}};
  made.it = made.message.getIterator();
  made.it.findChild("two");
  made.it.selectNamespace("urn:selected");
  return made;
}

using Words = std::vector<std::string>;
using WordReader = KFL::KFLReaderSimple<std::string>;
using WordWriter = KFL::KFLWriterSimple<std::string>;

TEST(Allocations, OfTheTree) {
  AllocationLaws laws(
      "tree", [](Trees& t) { return placeOf(t.it) + t.message.toString() + t.other.toString() + t.out; });
  const auto law = [&](const char* name, int (*call)(Trees&)) { laws(name, &trees, call); };
  law("parse", [](Trees& t) { return t.other.parse(std::string(kMixed)); });
  law("parse a faulty text", [](Trees& t) { return t.other.parse("<r><a>" + kLong + "</b></r>"); });
  law("pack", [](Trees& t) { return t.message.pack(t.out); });
  static std::string packed;
  ASSERT_EQ(trees().message.pack(packed), 0);
  law("unpack", [](Trees& t) { return t.other.unpack(packed); });
  law("print", [](Trees& t) { return t.message.print(t.out); });
  law("print for people", [](Trees& t) { return t.out = t.message.toPrettyString(), 0; });
  law("print an element", [](Trees& t) { return t.it.print(t.out); });
  law("copy", [](Trees& t) { return t.other = t.message, 0; });
  law("copy content", [](Trees& t) { return t.it.copyContent(t.other.getIterator()); });
  law("copy content behind a text",
      [](Trees& t) { return t.message.getIterator().copyContent(t.other.getIterator()); });
  law("copy content into itself", [](Trees& t) { return t.it.copyContent(t.message.getIterator()); });
  law("put a text", [](Trees& t) { return t.it.putValue(kLong); });
  law("put a number", [](Trees& t) { return t.it.putValue(1234567890123, "a_new_number"); });
  law("put an element", [](Trees& t) { return t.it.putValue(kLong, "a_new_element"); });
  law("get a text", [](Trees& t) { return t.message.getIterator().getValue(t.out, "long"); });
  law("get a wrong number", [](Trees& t) {
    int number = 0;
    return t.message.getIterator().getValue(number, "long");
  });
  law("get a path", [](Trees& t) { return t.out = t.it.getPath(), 0; });
  law("compare", [](Trees& t) {
    return static_cast<int>(KFLMessage(t.message).getIterator().isEqualTree(t.message.getIterator()));
  });
  law("add an empty element", [](Trees& t) { return t.it.addEmptyChild("another_element"); });
  law("name", [](Trees& t) { return t.it.setName("named_anew", "urn:named"), 0; });
  law("type", [](Trees& t) { return t.it.setTypeByName("urn:type", "typeOfIt"), 0; });
  law("item namespace", [](Trees& t) { return t.it.setItemNSType(294), 0; });
  law("select", [](Trees& t) { return t.it.selectNamespace("urn:another"), 0; });
  law("remove between texts", [](Trees& t) { return t.it.removeCurrent(), 0; });
  law("hold and remove", [](Trees& t) {
    {
      const KFLElementHold hold(t.it);
      KFLMessageIterator it(t.it);
      it.leaveChild();
      t.it.leaveChild();
      it.removeChildren("two");
    }
    return static_cast<int>(t.it.removeChildren("one"));
  });
  law("write a list", [](Trees& t) {
    return KFL::KFLWriterListEx(WordWriter(), "word")(t.it, Words{"one", kLong, "three"});
  });
  law("write a list before a sibling", [](Trees& t) {
    KFLMessageIterator it(t.it);
    KFLMessageIterator sibling(it);
    sibling.firstChild();
    it.setInsertionPoint(sibling);
    return KFL::KFLWriterListEx(WordWriter(), "word")(it, Words{"one", kLong, "three"});
  });
  law("replace an element",
      [](Trees& t) { return t.it.putObject(std::string(kLong), WordWriter(), "three"); });
  law("read a list", [](Trees& t) {
    Words words{"kept"};
    const auto reader = KFL::KFLReaderListEx(WordReader(), "long");
    const KFLMessageIterator it = t.message.getIterator();
    int result = 0;
    try {
      result = reader(it, words);
    } catch (const std::bad_alloc&) {
      if (words.size() != 1 || !it.isSameElement(t.message.getIterator())) return 7;
      throw;
    }
    t.out = words.back();
    return result;
  });
}

// --- Configurations -------------------------------------------------------------------------------------------------

// One property, read from a configuration and set in others: behind other elements, in place of the one that is there, and
// where there is no message.
template <class Class, class Value>
void expectProperty(const char* name, int (Class::*get)(Value&) const, int (Class::*set)(const Value&),
                    const std::string& full) {
  struct Subject {
    KFLMessage message;
    KFAEnvConfig config;
    Value value;
  };
  const auto configOf = [](const KFLMessage& message) {
    const KFLMessageIterator it = message.getIterator();
    return KFAEnvConfig(&it, KFL::EnvConfigVirtual);
  };
  const auto made = [&](const std::string& xml, bool isFilled) {
    return [&, xml, isFilled] {
      auto subject = std::make_shared<Subject>();
      if (!xml.empty()) subject->message = parsed(xml);
      if (!xml.empty()) subject->config = configOf(subject->message);
      const KFLMessage source = parsed(full);
      if (isFilled) {
        EXPECT_EQ((configOf(source).*get)(subject->value), 0) << name;
      }
      return subject;
    };
  };
  using SubjectSP = std::shared_ptr<Subject>;
  AllocationLaws laws(name, [&](SubjectSP& s) {
    KFAEnvConfig copy;
    (copy.*set)(s->value);
    return placeOf(s->config.getIterator()) + s->message.toString() +
           (s->config.hasMsg() ? printed(s->config.getIterator()) : "no message") +
           printed(copy.getIterator());
  });
  const std::string other =
      "<r xmlns='http://kelvarium.internal/webservices/kfa/4.0.0/kfatypes'><unknown/>t<qos><id>x</id><hard>1"
      "</hard></qos></r>";
  laws("got", made(full, false), [&](SubjectSP& s) { return (s->config.*get)(s->value); });
  const auto setter = [&](SubjectSP& s) { return (s->config.*set)(s->value); };
  laws("set", made(other, true), setter);
  laws("set again", made(full, true), setter);
  laws("set without a message", made("", true), setter);
  laws("removed", made(full, false), setter);
}

TEST(Allocations, OfConfigurations) {
  const std::string full = examples().find(KFL::findRecordType("KFAEnvConfig"))->second.xml;
  forEachProperty([&](const char* name, auto get, auto set) { expectProperty(name, get, set, full); });
  expectProperty("Veid", &KFAEnvConfig::getVeid, &KFAEnvConfig::setVeid, full);
  expectProperty("Disabled", &KFAEnvConfig::getDisabled, &KFAEnvConfig::setDisabled, full);
  expectProperty("Capability", &KFAEnvConfig::getCapability, &KFAEnvConfig::setCapability, full);
}

struct Disks {
  KFAEnvConfig config;
  boost::shared_ptr<KFA::HardDisk::List::Base> disks;
};

Disks disks() {
  const auto* const record = KFL::findRecordType("HardDisk::List::Images<Zloop>");
  Disks made;
  const KFLMessage message = parsed(examples().find(record)->second.xml);
  KFLMessageIterator target;
  made.config.setHostname(std::string("h"));
  target = made.config.getIterator();
  target.addChild("disk_list");
  target.copyContent(message.getIterator());
  EXPECT_EQ(made.config.getHardDisks(made.disks), 0);
  target.removeCurrent();
  return made;
}

TEST(Allocations, OfWholeConfigurations) {
  AllocationLaws laws("whole configurations", [](Disks& d) {
    return placeOf(d.config.getIterator()) + printed(d.config.getIterator()) + (d.disks ? "disks" : "");
  });
  using One = KFL::KFLOptionalProperty<KFL::KFLQoS>;
  laws("disks set", &disks, [](Disks& d) { return d.config.setHardDisks(d.disks.get()); });
  laws("disks got", &disks, [](Disks& d) { return d.disks.reset(), d.config.getHardDisks(d.disks); });
  laws("copied", &disks, [](Disks& d) { return d.config = KFAEnvConfig(d.config), 0; });
  laws("one parameter set", &disks, [](Disks& d) { return d.config.setQoS(One(KFL::KFLQoS(kLong))); });
}

}  // namespace
