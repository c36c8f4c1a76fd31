// SPDX-License-Identifier: Apache-2.0
// Memory that runs out in messages and records: every registered record, the tree itself, and configurations.
#include <atomic>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <KFAFunctionality/environment/KFAEnvConfig.h>
#include <KFLMessage/KFLMessage.h>
#include <KFLMessage/KFLMessageCheck.h>
#include <KFLMessage/KFLRecordRegistry.h>

#include "../MessageExamples.h"
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
  KFLMessage message;
  KFLMessageIterator it;
  KFLRecordType::Object object;
};

Binding reading(const KFLRecordType& record, const std::string& xml) {
  Binding binding{parsed(xml), {}, record.create()};
  binding.it = binding.message.getIterator();
  return binding;
}

// The object has other contents, which reading replaces.
Binding rereading(const KFLRecordType& record, const std::string& xml) {
  Binding binding = reading(record, xml);
  record.read(parsed(xml).getIterator(), binding.object.get());
  KFLMessageIterator child = binding.it;
  for (int left = child.firstChild(); left == 0; left = child.nextSibling()) {
    const std::string text(child.getText());
    if (text.empty() || child.countChildren() != 0) continue;
    child.putValue(kLong);
    if (record.read(binding.it, record.create().get()) != 0) child.putValue(text);
  }
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

Entries recordEntries(const KFLRecordType& record, const std::string& name, const std::string& xml) {
  const auto read = [&record](Binding& b) { return record.read(b.it, b.object.get()); };
  const auto readState = [&record](Binding& b) {
    return placeOf(b.it) + writtenForm(record, b.object.get()) + b.message.toString();
  };
  return {
      entry(
          name + " read", [=, &record] { return reading(record, xml); }, read, readState),
      entry(
          name + " read into a filled object", [=, &record] { return rereading(record, xml); }, read,
          readState),
      entry(
          name + " written", [=, &record] { return writing(record, xml); },
          [&record](Binding& b) { return record.write(b.it, b.object.get()); },
          [](Binding& b) { return placeOf(b.it) + b.message.toString(); }),
  };
}

TEST(Allocations, OfEveryRecord) {
  Entries entries;
  for (const auto& [record, example] : examples()) {
    ASSERT_NE(record, nullptr) << example.file;
    for (Entry& made : recordEntries(*record, example.file, example.xml))
      entries.push_back(std::move(made));
  }
  expectLaw("records", entries);
}

struct Check {
  KFLMessage message;
  KFLMessageFindings findings;
  KFL::KFLMessageCheckResult result;
};

TEST(Allocations, OfTheCheckOfEveryRecord) {
  Entries entries;
  for (const auto& [record, example] : examples()) {
    const KFLRecordType& type = *record;
    const std::string xml = example.xml;
    const std::size_t end = xml.rfind("</");
    const std::string marred = xml.substr(0, end) + "<unknown>" + kLong + "</unknown>" + xml.substr(end);
    entries.push_back(entry(
        example.file + " checked",
        [marred] {
          return Check{parsed(marred), {}, {}};
        },
        [&type](Check& c) { return KFL::checkMessage(c.message.getIterator(), type, c.findings, &c.result); },
        [](Check& c) {
          std::string state = c.result.written.toString() + std::to_string(c.result.lost);
          for (const auto& finding : c.findings)
            state += finding.path + std::to_string(finding.element) + finding.text;
          return state;
        }));
  }
  expectLaw("checks", entries);
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
  for (const auto& [type, example] : examples()) {
    const KFLRecordType& record = *type;
    const KFLMessage message = parsed(example.xml);
    const KFLRecordType::Object object = record.create();
    record.read(message.getIterator(), object.get());
    const std::string form = writtenForm(record, object.get());
    std::atomic<int> harmed{0};
    std::vector<std::thread> threads;
    for (std::size_t first = 1; first <= 3; ++first)
      threads.emplace_back([&, first] { harmed += readsUnharmed(record, message, form, first) ? 0 : 1; });
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(harmed, 0) << example.file;
  }
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

Entry ofTree(const std::string& name, int (*call)(Trees&)) {
  return entry(name, &trees, call,
               [](Trees& t) { return placeOf(t.it) + t.message.toString() + t.other.toString() + t.out; });
}

using Words = std::vector<std::string>;
using WordReader = KFL::KFLReaderSimple<std::string>;
using WordWriter = KFL::KFLWriterSimple<std::string>;

TEST(Allocations, OfTheTree) {
  const Entries entries = {
      ofTree("parse", [](Trees& t) { return t.other.parse(std::string(kMixed)); }),
      ofTree("parse a faulty text", [](Trees& t) { return t.other.parse("<r><a>" + kLong + "</b></r>"); }),
      ofTree("print", [](Trees& t) { return t.message.print(t.out); }),
      ofTree("print for people", [](Trees& t) { return t.out = t.message.toPrettyString(), 0; }),
      ofTree("print an element", [](Trees& t) { return t.it.print(t.out); }),
      ofTree("copy", [](Trees& t) { return t.other = t.message, 0; }),
      ofTree("copy content", [](Trees& t) { return t.it.copyContent(t.other.getIterator()); }),
      ofTree("copy content behind a text",
             [](Trees& t) { return t.message.getIterator().copyContent(t.other.getIterator()); }),
      ofTree("copy content into itself", [](Trees& t) { return t.it.copyContent(t.message.getIterator()); }),
      ofTree("put a text", [](Trees& t) { return t.it.putValue(kLong); }),
      ofTree("put a number", [](Trees& t) { return t.it.putValue(1234567890123, "a_new_number"); }),
      ofTree("put an element", [](Trees& t) { return t.it.putValue(kLong, "a_new_element"); }),
      ofTree("get a text", [](Trees& t) { return t.message.getIterator().getValue(t.out, "long"); }),
      ofTree("get a wrong number",
             [](Trees& t) {
               int number = 0;
               return t.message.getIterator().getValue(number, "long");
             }),
      ofTree("get a path", [](Trees& t) { return t.out = t.it.getPath(), 0; }),
      ofTree("compare",
             [](Trees& t) {
               return static_cast<int>(
                   KFLMessage(t.message).getIterator().isEqualTree(t.message.getIterator()));
             }),
      ofTree("add an empty element", [](Trees& t) { return t.it.addEmptyChild("another_element"); }),
      ofTree("name", [](Trees& t) { return t.it.setName("named_anew", "urn:named"), 0; }),
      ofTree("type", [](Trees& t) { return t.it.setTypeByName("urn:type", "typeOfIt"), 0; }),
      ofTree("item namespace", [](Trees& t) { return t.it.setItemNSType(294), 0; }),
      ofTree("select", [](Trees& t) { return t.it.selectNamespace("urn:another"), 0; }),
      ofTree("remove between texts", [](Trees& t) { return t.it.removeCurrent(), 0; }),
      ofTree("hold and remove",
             [](Trees& t) {
               {
                 const KFLElementHold hold(t.it);
                 KFLMessageIterator it(t.it);
                 it.leaveChild();
                 t.it.leaveChild();
                 it.removeChildren("two");
               }
               return static_cast<int>(t.it.removeChildren("one"));
             }),
      ofTree("write a list",
             [](Trees& t) {
               return KFL::KFLWriterListEx(WordWriter(), "word")(t.it, Words{"one", kLong, "three"});
             }),
      ofTree("write a list before a sibling",
             [](Trees& t) {
               KFLMessageIterator it(t.it);
               KFLMessageIterator sibling(it);
               sibling.firstChild();
               it.setInsertionPoint(sibling);
               return KFL::KFLWriterListEx(WordWriter(), "word")(it, Words{"one", kLong, "three"});
             }),
      ofTree("replace an element",
             [](Trees& t) { return t.it.putObject(std::string(kLong), WordWriter(), "three"); }),
      ofTree("read a list",
             [](Trees& t) {
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
             }),
  };
  expectLaw("tree", entries);
}

// --- Configurations -------------------------------------------------------------------------------------------------

// One property, read from a configuration and set in others.
template <class Value>
struct Properties {
  KFLMessage message;
  KFAEnvConfig config;
  Value value;
};

template <class Class, class Value>
class Property {
 public:
  using Get = int (Class::*)(Value&) const;
  using Set = int (Class::*)(const Value&);

  Property(std::string name, Get get, Set set) : name_(std::move(name)), get_(get), set_(set) {}

  // Behind other elements, in place of the one that is there, and where there is no message.
  void addTo(Entries& entries, const std::string& full) const {
    const std::string other =
        "<r "
        "xmlns='http://kelvarium.internal/webservices/kfa/4.0.0/kfatypes'><unknown/>t<qos><id>x</id><hard>1</"
        "hard>"
        "</qos></r>";
    entries.push_back(entry(name_ + " got", made(full, false), getter(), state()));
    entries.push_back(entry(name_ + " set", made(other, true, full), setter(), state()));
    entries.push_back(entry(name_ + " set again", made(full, true, full), setter(), state()));
    entries.push_back(entry(name_ + " set without a message", made("", true, full), setter(), state()));
    entries.push_back(entry(name_ + " removed", made(full, false), setter(), state()));
  }

 private:
  using Subject = Properties<Value>;

  auto made(const std::string& xml, bool isFilled, const std::string& from = {}) const {
    return [this, xml, isFilled, from] {
      auto subject = std::make_shared<Subject>();
      if (!xml.empty()) {
        subject->message = parsed(xml);
        const KFLMessageIterator it = subject->message.getIterator();
        subject->config = KFAEnvConfig(&it, KFL::EnvConfigVirtual);
      }
      if (isFilled) {
        const KFLMessage source = parsed(from);
        const KFLMessageIterator it = source.getIterator();
        EXPECT_EQ((KFAEnvConfig(&it, KFL::EnvConfigVirtual).*get_)(subject->value), 0) << name_;
      }
      return subject;
    };
  }
  auto getter() const {
    return [this](std::shared_ptr<Subject>& s) { return (s->config.*get_)(s->value); };
  }
  auto setter() const {
    return [this](std::shared_ptr<Subject>& s) { return (s->config.*set_)(s->value); };
  }
  auto state() const {
    return [this](std::shared_ptr<Subject>& s) {
      KFAEnvConfig copy;
      (copy.*set_)(s->value);
      return placeOf(s->config.getIterator()) + s->message.toString() +
             (s->config.hasMsg() ? printed(s->config.getIterator()) : "no message") +
             printed(copy.getIterator());
    };
  }

  std::string name_;
  Get get_;
  Set set_;
};

template <class Class, class Value>
Property<Class, Value> property(std::string name, int (Class::*get)(Value&) const,
                                int (Class::*set)(const Value&)) {
  return {std::move(name), get, set};
}

#define PROPERTY(Name) property(#Name, &KFAEnvConfig::get##Name, &KFAEnvConfig::set##Name)

TEST(Allocations, OfConfigurations) {
  const auto all = std::make_tuple(
      PROPERTY(Name), PROPERTY(Hostname), PROPERTY(Addresses), PROPERTY(Nameservers), PROPERTY(SearchDomains),
      PROPERTY(Architecture), PROPERTY(OS), PROPERTY(Disabled), PROPERTY(ClassID), PROPERTY(QoSes),
      PROPERTY(Veid), PROPERTY(VERootVar), PROPERTY(OnBoot), PROPERTY(UUID), PROPERTY(VEType),
      PROPERTY(IPTables), PROPERTY(Capabilities), PROPERTY(Distribution), PROPERTY(OsTemplate),
      PROPERTY(Templates), PROPERTY(WinsServers), PROPERTY(RatesList), PROPERTY(NetVEths), PROPERTY(TSMode),
      PROPERTY(Description), PROPERTY(Type), PROPERTY(ConfigCustomized), PROPERTY(VEPrivateVar),
      PROPERTY(RateBound), PROPERTY(OfflineManagement), PROPERTY(SLMMode), PROPERTY(AllowReboot),
      PROPERTY(Sample), PROPERTY(OriginSample), PROPERTY(TSLicenseServers), PROPERTY(ServerRoles),
      PROPERTY(OfflineServices), PROPERTY(Capability));
  const auto* const record = KFL::findRecordType("KFAEnvConfig");
  ASSERT_NE(record, nullptr);
  const std::string full = examples().find(record)->second.xml;
  Entries entries;
  std::apply([&](const auto&... each) { (each.addTo(entries, full), ...); }, all);
  expectLaw("properties", entries);
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
  const auto state = [](Disks& d) {
    return placeOf(d.config.getIterator()) + printed(d.config.getIterator()) + (d.disks ? "disks" : "");
  };
  const Entries entries = {
      entry(
          "disks set", &disks, [](Disks& d) { return d.config.setHardDisks(d.disks.get()); }, state),
      entry(
          "disks got", &disks, [](Disks& d) { return d.disks.reset(), d.config.getHardDisks(d.disks); },
          state),
      entry(
          "configuration copied", &disks, [](Disks& d) { return d.config = KFAEnvConfig(d.config), 0; },
          state),
      entry(
          "one parameter set", &disks,
          [](Disks& d) { return d.config.setQoS(KFL::KFLOptionalProperty<KFL::KFLQoS>(KFL::KFLQoS(kLong))); },
          state),
  };
  expectLaw("whole configurations", entries);
}

}  // namespace
